#!/usr/bin/env bash
# The main job. Until the example daemon exists (it comes with the event
# path), this builds the project and runs the platform and library checks:
# the firmware-library stand-ins and the log path.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${BUILD_DIR:-build}
[[ -f $build/CMakeCache.txt ]] || cmake -S . -B "$build"
cmake --build "$build" -j"$(nproc)" --target platform_test trace_test
echo "== platform libraries: span, MHz/ChannelNumber, MacAddress/Oui, epoll, publisher"
"$build/tests/platform/platform_test" --gtest_brief=1
echo "== library log path: tracepoint providers ny80211_cmd and ny80211_event"
"$build/tests/trace/trace_test" --gtest_brief=1
echo "== the example daemon is not there yet: the checks above are what this command runs for now"
