#!/usr/bin/env bash
# vm-repeat.sh: runs the whole VM suite again and again, to catch the failures
# that come only now and then.
#
#   tools/vm-repeat.sh [--runs N] [BUILD_DIR]
#
# Runs `ctest --test-dir BUILD_DIR -L kernel` N times in a row (default 20;
# BUILD_DIR default build), every run whatever the one before did. Keeps each
# run's full output in a scratch folder under TMPDIR (named at the start),
# prints one line per run (pass or fail, how long, which tests failed) and at
# the end "N passed, M failed". Exits 0 only if every run passed.
set -uo pipefail

runs=20
while [[ $# -gt 0 ]]; do
  case $1 in
    --runs) runs=${2:-}; shift 2 || shift ;;
    -h | --help) sed -n '2,11p' "$0"; exit 0 ;;
    -*) echo "vm-repeat: unknown option $1" >&2; exit 2 ;;
    *) break ;;
  esac
done
[[ $runs =~ ^[1-9][0-9]*$ ]] || { echo "vm-repeat: --runs takes a positive number, not '$runs'" >&2; exit 2; }
[[ $# -le 1 ]] || { echo "vm-repeat: one build folder at most" >&2; exit 2; }
dir=${1:-build}
[[ -f $dir/CTestTestfile.cmake ]] || { echo "vm-repeat: $dir is not a configured build folder" >&2; exit 2; }

logs=$(mktemp -d "${TMPDIR:-/tmp}/vm-repeat.XXXXXX")
echo "vm-repeat: $runs runs of the kernel tests in $dir; logs in $logs"

passed=0
failed=0
for ((i = 1; i <= runs; i++)); do
  log=$(printf '%s/run-%02d.log' "$logs" "$i")
  start=$(date +%s)
  # -V: the whole output of every test, the passing ones too, to compare
  # timings with the failing runs.
  ctest --test-dir "$dir" -L kernel -V --no-tests=error >"$log" 2>&1
  status=$?
  seconds=$(($(date +%s) - start))
  # ctest's summary: "  2 - kernel.kernel_network_test (Failed)".
  names=$(sed -n '/^The following tests FAILED:/,$p' "$log" |
    sed -n 's/^[[:space:]]*[0-9]* - \([^ ]*\) (\(.*\))$/\1 (\2)/p' | paste -sd, - | sed 's/,/, /g')
  if [[ $status -eq 0 ]]; then
    passed=$((passed + 1))
    printf 'run %2d/%d: pass  %4d s\n' "$i" "$runs" "$seconds"
  else
    failed=$((failed + 1))
    printf 'run %2d/%d: FAIL  %4d s  %s\n' "$i" "$runs" "$seconds" "${names:-ctest exit $status}"
  fi
done
echo "$passed passed, $failed failed"
[[ $failed -eq 0 ]]
