#!/usr/bin/env bash
# Measures the paired benchmarks of bench/: the library against its baseline,
# row by row.
#   tools/bench.sh [BUILD_DIR]        (default build-bench, built with
#                                      -DNY80211_BUILD_BENCH=ON, Release)
# First each program runs once under Google Benchmark for the CPU and wall
# time ratios. Then each side of each row runs N and 2N items under
# callgrind, which counts instructions the same on a loaded machine; the
# difference of the two runs over N is the cost of one item, without the
# start-up both share. The programs count their own heap allocations the same
# way. Last, the stripped size of the shared library (and of an AArch64 build
# in AARCH64_BUILD, default build-aarch64, when there is one).
#
# Environment: BENCH_ITEMS (N, default 500, a multiple of the 50 BSS of the
# scan dump), BENCH_MIN_TIME (Google Benchmark seconds per side, default 0.2).
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build-bench}
aarch64_build=${AARCH64_BUILD:-build-aarch64}
items=${BENCH_ITEMS:-500}
min_time=${BENCH_MIN_TIME:-0.2}
programs=(bss_bench nl80211_event_bench wext_event_bench wiphy_bench)

for p in "${programs[@]}"; do
  if [[ ! -x $build/bench/$p ]]; then
    echo "bench: no $build/bench/$p; build it with" >&2
    echo "  cmake -S . -B $build -DNY80211_BUILD_BENCH=ON -DCMAKE_BUILD_TYPE=Release" >&2
    echo "  cmake --build $build --target ny80211 ${programs[*]} -j2" >&2
    exit 1
  fi
done
command -v valgrind >/dev/null || { echo "bench: valgrind is missing (tools/setup.sh)" >&2; exit 1; }

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# Times: "ROW CPU-RATIO WALL-RATIO ITEMS/S" per row.
for p in "${programs[@]}"; do
  echo "=== $p"
  "$build/bench/$p" --benchmark_color=false --benchmark_min_time="$min_time" | tee "$scratch/$p.out"
  awk '{ gsub(/\033\[[0-9;]*m/, "") } $1 == "ratio" { sub(/:$/, "", $2); sub(/x$/, "", $4); sub(/x$/, "", $6);
                       print $2, $4, $6, $10 }' "$scratch/$p.out" >>"$scratch/times"
done

# "INSTRUCTIONS ALLOCATIONS" of the items loop of one run.
counted() {
  local program=$1 row=$2 work=$3 n=$4
  valgrind --tool=callgrind --toggle-collect=ny80211_bench_items \
    --callgrind-out-file="$scratch/callgrind.out" \
    "$build/bench/$program" --items "$n" --work "$work" --row "$row" >"$scratch/items.out" \
    2>"$scratch/valgrind.out" || { cat "$scratch/valgrind.out" >&2; return 1; }
  echo "$(awk '/^summary:/ { print $2 }' "$scratch/callgrind.out")" \
    "$(awk '$1 == "row" { print $8 }' "$scratch/items.out")"
}

# Counts: "ROW WORK INSTRUCTIONS/ITEM ALLOCATIONS/ITEM" per side of each row.
echo "=== counting $items and $((2 * items)) items per side under callgrind"
for p in "${programs[@]}"; do
  for row in $("$build/bench/$p" --list); do
    for work in library baseline; do
      read -r i1 a1 < <(counted "$p" "$row" "$work" "$items")
      read -r i2 a2 < <(counted "$p" "$row" "$work" "$((2 * items))")
      awk -v r="$row" -v w="$work" -v n="$items" -v i1="$i1" -v i2="$i2" -v a1="$a1" -v a2="$a2" \
        'BEGIN { print r, w, (i2 - i1) / n, (a2 - a1) / n }' >>"$scratch/counts"
    done
  done
done

# The stripped size of a shared library, in KiB, with the strip that fits it.
stripped_kib() {
  local so=$1 strip=$2
  cp -L "$so" "$scratch/lib.so"
  "$strip" "$scratch/lib.so"
  echo $((($(stat -c %s "$scratch/lib.so") + 1023) / 1024))
}

echo
echo "=== per item: library against baseline ($(git rev-parse --short HEAD)$(
  git diff --quiet HEAD -- src include 2>/dev/null || echo ' with changes'))"
awk '
  function rate(r) { return r >= 1e6 ? sprintf("%.2fM", r / 1e6) : sprintf("%.0fk", r / 1e3) }
  function mark(ok) { return ok ? "" : " MISSED" }
  FNR == NR { cpu[$1] = $2; wall[$1] = $3; persec[$1] = $4; next }
  { key = $1; if ($2 == "library") { li[key] = $3; la[key] = $4; order[++n] = key }
              else { bi[key] = $3; ba[key] = $4 } }
  END {
    printf "%-30s %10s %9s %7s | %7s %8s | %6s %6s %9s | %s\n", "row", "instr lib", "base",
           "ratio", "allocs", "base", "CPU", "wall", "lib/s", "target"
    for (k = 1; k <= n; k++) {
      r = order[k]; ir = bi[r] > 0 ? li[r] / bi[r] : 0
      if (r == "bss") target = "<=3x instr" mark(ir <= 3) ", <=5x CPU" mark(cpu[r] <= 5) \
                               ", <=4 allocs" mark(la[r] <= 4)
      else if (r ~ /^nl80211-/) target = ">=1M/s" mark(persec[r] >= 1e6) ", <=4x CPU" mark(cpu[r] <= 4)
      else if (r ~ /^wext-/) target = ">=5M/s" mark(persec[r] >= 5e6) ", <=2x CPU" mark(cpu[r] <= 2)
      else if (r == "wiphy") target = "<=3x instr" mark(ir <= 3)
      else target = ""
      printf "%-30s %10.0f %9.0f %6.1fx | %7.2f %8.2f | %5.1fx %5.1fx %9s | %s\n", r, li[r], bi[r],
             ir, la[r], ba[r], cpu[r], wall[r], rate(persec[r]), target
    }
  }' "$scratch/times" "$scratch/counts"
echo "(instructions and allocations from callgrind runs; instructions are those of user space, the"
echo " CPU time ratio includes the system calls; lib/s: library items per second of CPU time)"

echo
so=$(stripped_kib "$build/src/libny80211.so" strip)
# The size target is the target's (AArch64); this one is for comparison.
echo "libny80211.so stripped, $(uname -m): $so KiB"
if [[ -e $aarch64_build/src/libny80211.so ]] && command -v aarch64-linux-gnu-strip >/dev/null; then
  so=$(stripped_kib "$aarch64_build/src/libny80211.so" aarch64-linux-gnu-strip)
  echo "libny80211.so stripped, aarch64 ($aarch64_build, built $(date -r "$aarch64_build/src/libny80211.so" '+%F %R')): $so KiB (target < 700 KiB)$([[ $so -lt 700 ]] || echo ' MISSED')"
else
  echo "libny80211.so stripped, aarch64: no build in $aarch64_build"
fi
