#!/usr/bin/env bash
# Runs clang-tidy-14 with the checks of .clang-tidy over every translation
# unit of the tree (library, platform, examples, tools, tests, benchmarks,
# fuzz targets), one per core, and prints each finding once; headers are
# checked through the files that include them. Exits 1 on any finding.
#
#   tools/tidy.sh [BUILD_DIR] [FILE.cpp...]   (default build-tidy/, every file)
#
# Paths are taken from the checkout's root. BUILD_DIR is configured as the
# real build is (GCC), with the benchmarks and compile commands; of it only
# the generated sources are built. clang-tidy reads a copy of the compile
# commands without the GCC-only flags clang does not know.
set -euo pipefail
cd "$(dirname "$0")/.."
build=build-tidy
if (($# > 0)) && [[ $1 != *.cpp ]]; then build=$1; shift; fi
build=$(realpath -m "$build")

cmake -S . -B "$build" -DCMAKE_EXPORT_COMPILE_COMMANDS=ON -DNY80211_BUILD_BENCH=ON >/dev/null
# Trace.cpp includes the tracepoint headers; the vendor tables are sources.
cmake --build "$build" --target ny80211_generated >/dev/null

# The copy drops every -f, -m or -W flag that clang rejects, found by asking
# it once per distinct flag, and the C sources: they are the tracepoint
# providers that lttng-gen-tp writes.
db=$build/tidy
mkdir -p "$db"
python3 - "$build/compile_commands.json" "$db/compile_commands.json" <<'EOF'
import json, shlex, subprocess, sys

entries = [e for e in json.load(open(sys.argv[1])) if not e["file"].endswith(".c")]
for entry in entries:
    entry["arguments"] = entry.get("arguments") or shlex.split(entry.pop("command"))
flags = {arg for entry in entries for arg in entry["arguments"][1:] if arg[:2] in ("-f", "-m", "-W")}

def known(flag):
    probe = ["clang++-14", "-Werror", "-fsyntax-only", "-x", "c++", flag, "/dev/null"]
    return subprocess.run(probe, capture_output=True).returncode == 0

unknown = {flag for flag in flags if not known(flag)}
for entry in entries:
    entry["arguments"] = [arg for arg in entry["arguments"] if arg not in unknown]
json.dump(entries, open(sys.argv[2], "w"), indent=1)
EOF

if (($# == 0)); then
  mapfile -t files < <(python3 -c '
import json, sys
print("\n".join(sorted({e["file"] for e in json.load(open(sys.argv[1]))})))' \
    "$db/compile_commands.json")
else
  files=("$@")
fi

# The headers of .clang-tidy, below this checkout only: not those that a
# build folder generates.
root=$(pwd | sed 's/[][\.*^$()+?{}|]/\\&/g')
filter="^$root$(sed -n "s/^HeaderFilterRegex: '\(.*\)'$/\1/p" .clang-tidy)"

# Each file's output goes to a log of its own, kept only when clang-tidy
# failed; a header's findings come once per file that includes it.
logs=$(mktemp -d)
trap 'rm -rf "$logs"' EXIT
export db logs filter
printf '%s\0' "${files[@]}" | xargs -0 -n1 -P"$(nproc)" bash -c '
  log=$logs/$(printf %s "$1" | md5sum | cut -c1-32)
  clang-tidy-14 -p "$db" --quiet --header-filter="$filter" "$1" >"$log" 2>&1 && rm "$log"
  true' tidy

shopt -s nullglob
failed=("$logs"/*)
if ((${#failed[@]} == 0)); then
  echo "tidy: ${#files[@]} files, no findings"
  exit 0
fi
# Each diagnostic with its source lines and notes, once; clang's counts of
# the warnings it suppressed are left out.
awk -v files="${#files[@]}" -v failed="${#failed[@]}" '
  FNR == 1 { keep = 1 }
  /^[0-9]+ (warning|error)s?( and [0-9]+ (warning|error)s?)? generated\.$/ { next }
  /^Error while processing / { next }
  /^[^ ].*:[0-9]+:[0-9]+: (warning|error): / { keep = !seen[$0]++; findings += keep }
  keep { print }
  END { printf "tidy: %d findings in %d of %d files\n", findings, failed, files }
' "${failed[@]}"
exit 1
