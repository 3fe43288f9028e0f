#!/usr/bin/env bash
# Records the library's log lines in a real LTTng session and reads them back
# with babeltrace2. Starts its own session daemon unless one is running, and
# stops what it started.
set -euo pipefail
emit=$1
for tool in lttng lttng-sessiond babeltrace2; do
  command -v "$tool" >/dev/null || { echo "skipped: $tool is not installed"; exit 77; }
done
[[ $(id -u) -eq 0 ]] || { echo "skipped: the session daemon needs root here"; exit 77; }

work=$(mktemp -d)
export LTTNG_HOME=$work
session="ny80211-test-$$"
started=0
cleanup() {
  lttng destroy "$session" >/dev/null 2>&1 || true
  if ((started)); then
    pid=$(cat /var/run/lttng/lttng-sessiond.pid 2>/dev/null || true)
    [[ -n "$pid" ]] && kill "$pid" 2>/dev/null || true
    for _ in $(seq 50); do pgrep -x lttng-sessiond >/dev/null || break; sleep 0.1; done
  fi
  rm -rf "$work"
}
trap cleanup EXIT

if ! lttng list >/dev/null 2>&1; then
  lttng-sessiond --daemonize --no-kernel
  started=1
fi
lttng create "$session" --output="$work/trace" >/dev/null
lttng enable-event --userspace 'ny80211_cmd:*' >/dev/null
lttng enable-event --userspace 'ny80211_event:*' >/dev/null
lttng start "$session" >/dev/null

line="written at $(date +%s.%N) by pid $$"
# Wait for the program to register with the session daemon before it writes.
LTTNG_UST_REGISTER_TIMEOUT=-1 "$emit" "$line"
lttng stop "$session" >/dev/null
lttng destroy "$session" >/dev/null

trace=$(babeltrace2 "$work/trace")
echo "$trace"
grep -F "ny80211_cmd:log_err: " <<<"$trace" | grep -qF "text = \"$line\"" ||
  { echo "FAIL: no ny80211_cmd:log_err line with the text"; exit 1; }
grep -F "ny80211_event:log_info: " <<<"$trace" | grep -qF "text = \"$line\"" ||
  { echo "FAIL: no ny80211_event:log_info line with the text"; exit 1; }
echo "PASS: both lines read back from the LTTng trace"
