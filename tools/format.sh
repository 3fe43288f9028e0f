#!/usr/bin/env bash
# format.sh [--check]: formats every C and C++ file of the tree in place with
# clang-format 14 and the rules of .clang-format; with --check it changes
# nothing, lists the files that are not formatted and fails if there are any.
set -euo pipefail
cd "$(dirname "$0")/.."
check=0
case ${1:-} in
  --check) check=1 ;;
  "") ;;
  *) echo "usage: $0 [--check]" >&2; exit 2 ;;
esac
format=$(command -v clang-format-14) || { echo "format: clang-format-14 is not installed" >&2; exit 3; }
mapfile -t files < <(git ls-files '*.c' '*.cpp' '*.h')
if ((check == 0)); then
  "$format" -i "${files[@]}"
  exit 0
fi
unformatted=()
for file in "${files[@]}"; do
  "$format" --dry-run -Werror "$file" 2>/dev/null || unformatted+=("$file")
done
if ((${#unformatted[@]} > 0)); then
  printf 'format: not formatted (tools/format.sh formats them):\n' >&2
  printf '  %s\n' "${unformatted[@]}" >&2
  exit 1
fi
echo "format: ${#files[@]} files formatted"
