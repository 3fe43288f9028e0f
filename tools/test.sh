#!/usr/bin/env bash
# test.sh: the whole test suite, the VM tests included, on a fresh Debian
# bookworm machine in one command: installs what is missing (tools/setup.sh,
# as root; silent when everything is there), configures and builds build/
# (CMake preset "default") and runs every test. Extra arguments go to ctest
# (-L unit, -R NAME, ...).
#
#   BUILD_DIR=DIR tools/test.sh [CTEST-ARGS...]     (default build/)
set -euo pipefail
cd "$(dirname "$0")/.."
build=$(realpath -m "${BUILD_DIR:-build}")
tools/setup.sh --native
[[ -f $build/CMakeCache.txt ]] || cmake --preset default -B "$build" >/dev/null
cmake --build "$build" -j"$(nproc)"
ctest --test-dir "$build" --output-on-failure -j"$(nproc)" "$@"
