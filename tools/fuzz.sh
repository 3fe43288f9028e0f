#!/usr/bin/env bash
# Runs the libFuzzer targets of fuzz/, each for a time, two at a time by
# default, and prints per target the executions, coverage (cov/ft of
# libFuzzer's last status line) and findings (crash, leak, timeout, OOM),
# with the reproducers' paths. Exits 1 when any target found something.
#
#   tools/fuzz.sh [--time SECONDS] [--jobs N] [TARGET...]
#
# Builds build-fuzz (clang) first where needed. Each run starts from the
# committed seed corpus and regressions and writes what it finds new, and its
# reproducers, below build-fuzz/fuzz-work/<target>/, never into the tree; the
# new corpus entries accumulate there from run to run. Without TARGETs, all.
set -euo pipefail
cd "$(dirname "$0")/.."

time_per_target=60
jobs=2
targets=()
while (($# > 0)); do
  case "$1" in
    --time) time_per_target=$2; shift 2 ;;
    --jobs) jobs=$2; shift 2 ;;
    -h|--help) sed -n '2,${/^#/!q;s/^# \{0,1\}//;p}' "$0"; exit 0 ;;
    -*) echo "usage: $0 [--time SECONDS] [--jobs N] [TARGET...]" >&2; exit 2 ;;
    *) targets+=("$1"); shift ;;
  esac
done
if ((${#targets[@]} == 0)); then
  targets=($(sed -n 's/^set(fuzz_targets \(.*\))$/\1/p' fuzz/CMakeLists.txt))
fi

build=build-fuzz
work=$build/fuzz-work
if [[ ! -f $build/CMakeCache.txt ]]; then
  CC=clang-14 CXX=clang++-14 cmake -S . -B "$build" -DNY80211_FUZZ=ON \
    -DNY80211_BUILD_TESTS=OFF -DNY80211_BUILD_EXAMPLES=OFF >/dev/null
fi
cmake --build "$build" -j"$(nproc)" --target "${targets[@]/#/fuzz_}" >/dev/null

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:symbolize=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-halt_on_error=1:print_stacktrace=1}
export ASAN_SYMBOLIZER_PATH=${ASAN_SYMBOLIZER_PATH:-$(command -v llvm-symbolizer-14 || true)}
# LTTng-UST looks for a session daemon at start; there is none to wait for.
export LTTNG_UST_REGISTER_TIMEOUT=0

# One target: the first corpus folder is the one libFuzzer writes to, the
# committed ones are only read.
run() {
  local target=$1 dir=$work/$1
  mkdir -p "$dir/corpus" "$dir/findings"
  local inputs=("$dir/corpus" "fuzz/corpus/$target")
  [[ -d fuzz/regressions/$target ]] && inputs+=("fuzz/regressions/$target")
  local status=0
  timeout $((time_per_target + 300)) "$build/fuzz/fuzz_$target" \
    -max_total_time="$time_per_target" -timeout=10 -print_final_stats=1 \
    -artifact_prefix="$dir/findings/" "${inputs[@]}" >"$dir/log" 2>&1 || status=$?
  echo "$status" >"$dir/status"
}

report() {
  local target=$1 dir=$work/$1
  local status execs cov ft findings
  status=$(cat "$dir/status")
  # The final statistics, or the last status line's count when a finding
  # ended the run before them.
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$dir/log" | tail -1)
  [[ -n $execs ]] || execs=$(sed -n 's/^#\([0-9]*\)[[:space:]].*/\1/p' "$dir/log" | tail -1)
  cov=$(grep -o 'cov: [0-9]*' "$dir/log" | tail -1 | cut -d' ' -f2)
  ft=$(grep -o 'ft: [0-9]*' "$dir/log" | tail -1 | cut -d' ' -f2)
  findings=$(find "$dir/findings" -type f -newer "$dir/started" | sort)
  printf '%-16s executions %-10s cov %-6s ft %-6s ' "$target" "${execs:-?}" "${cov:-?}" "${ft:-?}"
  if [[ $status == 0 && -z $findings ]]; then
    echo "no findings"
    return 0
  fi
  echo "FINDING (exit $status), log $dir/log"
  grep -E '^(==[0-9]+==ERROR|SUMMARY|fuzz target check failed)|runtime error|what\(\)' "$dir/log" |
    head -5 | sed 's/^/    /'
  local file
  for file in $findings; do echo "    reproducer: $file"; done
  return 1
}

for target in "${targets[@]}"; do
  [[ -x $build/fuzz/fuzz_$target ]] || { echo "no fuzz target '$target'" >&2; exit 2; }
  mkdir -p "$work/$target"
  touch "$work/$target/started"
done

echo "fuzzing ${targets[*]} for ${time_per_target} s each, $jobs at a time"
running=0
for target in "${targets[@]}"; do
  if ((running == jobs)); then wait -n; running=$((running - 1)); fi
  run "$target" &
  running=$((running + 1))
done
wait

failed=0
for target in "${targets[@]}"; do report "$target" || failed=1; done
exit "$failed"
