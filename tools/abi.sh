#!/usr/bin/env bash
# Compares the binary interface of a built libny80211.so with the committed
# baseline, so that a change which breaks daemons built against an earlier
# version is seen, and recorded on purpose.
#
#   tools/abi.sh [BUILD_DIR]            compare (BUILD_DIR defaults to build)
#   tools/abi.sh --update [BUILD_DIR]   rewrite the baseline from BUILD_DIR
#
# abidw (abigail-tools) reads the library's debug information; only types
# declared in include/ny80211 count as the library's own. The baseline is of
# the x86-64 main build (RelWithDebInfo, as in .ci/run). Added functions and
# variables pass, with abidiff's list of them; anything else that differs
# (removed or changed functions and variables, changed types they reach)
# prints abidiff's report and exits 1. Commit an updated baseline with a
# message that says why the interface changed.
set -euo pipefail
cd "$(dirname "$0")/.."

baseline=abi/libny80211.abi
update=0
if [[ "${1:-}" == "--update" ]]; then update=1; shift; fi
if (($# > 1)) || [[ "${1:-}" == -* ]]; then
  echo "usage: $0 [--update] [BUILD_DIR]" >&2; exit 2
fi
build=${1:-build}
library=$build/src/libny80211.so

if [[ ! -e $library ]]; then
  echo "abi: no $library; build the library first" >&2; exit 2
fi
if ! readelf -h "$library" | grep -q 'Machine: *Advanced Micro Devices X86-64'; then
  echo "abi: $library is not an x86-64 build; the baseline is of x86-64" >&2; exit 2
fi
if ! readelf -S "$library" | grep -q '\.debug_info'; then
  echo "abi: $library has no debug information (build RelWithDebInfo or Debug)" >&2; exit 2
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# No paths of the checkout or build folder in the output, and ids that do not
# shift when a type is added, so that the baseline is the same from any clone.
# abidw still orders declarations by their files' full paths: from a checkout
# whose path sorts before /usr (below /tmp, say) the same interface comes out
# in another order, which abidiff takes as equal but git does not.
abidw --headers-dir include/ny80211 --drop-private-types \
      --no-corpus-path --no-comp-dir-path --short-locs --type-id-style hash \
      --out-file "$work/current.abi" "$library"

if ((update)); then
  mkdir -p "$(dirname "$baseline")"
  cp "$work/current.abi" "$baseline"
  echo "abi: $baseline rewritten from $library"
  exit 0
fi
if [[ ! -f $baseline ]]; then
  echo "abi: no $baseline; write it with $0 --update" >&2; exit 2
fi

# abidiff's status is a bit set: 1 error, 2 usage, 4 change, 8 incompatible.
status=0
abidiff --no-added-syms "$baseline" "$work/current.abi" >"$work/changes" || status=$?
if ((status & 3)); then
  cat "$work/changes"
  echo "abi: abidiff failed (status $status)" >&2; exit 2
fi
if ((status != 0)); then
  cat "$work/changes"
  echo "abi: FAIL: the interface of $library differs from $baseline beyond additions;" \
       "daemons built against the baseline may break. If intended, run $0 --update and" \
       "commit the baseline saying why."
  exit 1
fi

status=0
abidiff "$baseline" "$work/current.abi" >"$work/all" || status=$?
if ((status != 0)); then
  cat "$work/all"
  echo "abi: the interface grew (compatible); $0 --update records the additions"
fi
echo "abi: $library is compatible with $baseline"
