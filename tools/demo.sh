#!/usr/bin/env bash
# The main job: builds the library and the event_monitor example, then, in the
# VM with two virtual radios (tools/vm-run), runs event_monitor as a daemon
# would and plays a scenario against it with iw, hostapd, hostapd_cli and
# wpa_supplicant: a WPA2 access point comes up on wlan0, wlan1 scans, then
# associates with it as a station, and SIGUSR2 has the daemon print the
# station table and channel survey of wlan0; the station leaves, the access
# point switches channel, a monitor interface comes and goes, the access
# point goes down; then SIGUSR1 has the daemon print wlan1's scan table and
# SIGTERM stops it.
# The daemon's lines appear as they come, marked "  |". Afterwards the script
# checks that the daemon printed the events the scenario made the kernel
# send, and fails naming those it did not.
#
# On a fresh Debian bookworm machine it first installs what is missing
# (tools/setup.sh, as root; silent when everything is there) and configures
# build/ (CMake preset "default").
#
#   BUILD_DIR=DIR tools/demo.sh     (default build/)
set -euo pipefail
cd "$(dirname "$0")/.."
build=$(realpath -m "${BUILD_DIR:-build}")
tools/setup.sh --native
[[ -f $build/CMakeCache.txt ]] || cmake --preset default -B "$build" >/dev/null
cmake --build "$build" -j"$(nproc)" --target event_monitor

job=$(mktemp)
trap 'rm -f "$job"' EXIT
# Runs in the VM under its /bin/sh; $1 is the daemon.
cat >"$job" <<'JOB'
set -eu
monitor=$1
out=/tmp/event_monitor.out

step() { echo "== scenario: $*"; }
fail() { echo "demo: $*" >&2; exit 1; }
# Polls a shell condition for up to $1 tenths of a second.
within() {
  tries=$1; shift
  until eval "$*"; do
    tries=$((tries - 1))
    [ "$tries" -gt 0 ] || return 1
    sleep 0.1
  done
}
# Waits up to 5 s for the daemon to print a line that matches $1, then lets
# the display catch up. What never comes, the checks at the end report.
await() {
  tries=50
  until grep -q -- "$1" "$out" || [ "$tries" -eq 0 ]; do
    tries=$((tries - 1))
    sleep 0.1
  done
  sleep 0.3
}

# What the daemon must print.
scan_started='^scan started for VAP wlan1'
scan_finished='^scan finished for VAP wlan1'
switched='^VAP wlan0 switched to channel: primary 5745 MHz'
created="^ifc created: .*monitor 'mon0'"
deleted="^ifc deleted: .*monitor 'mon0'"
ap_stopped='^AP stopped (phy '
table='^scan table of wlan1:'
stations='^stations of netifc wlan0:'
survey='^survey netifc wlan0 / 5180 MHz'
table_row='^[0-9a-f:]*  ny80211-demo '
count='^event_monitor: stopped; events seen: [0-9]'

cat >/tmp/ap.conf <<CONF
interface=wlan0
driver=nl80211
ctrl_interface=/run/hostapd
ssid=ny80211-demo
country_code=DE
hw_mode=a
channel=36
ieee80211n=1
ieee80211ac=1
ht_capab=[HT40+]
vht_oper_chwidth=1
vht_oper_centr_freq_seg0_idx=42
wpa=2
wpa_key_mgmt=WPA-PSK
rsn_pairwise=CCMP
wpa_passphrase=ny80211-secret
CONF
cat >/tmp/sta.conf <<CONF
ctrl_interface=/run/wpa_supplicant
network={
  ssid="ny80211-demo"
  psk="ny80211-secret"
  key_mgmt=WPA-PSK
  scan_freq=5180
}
CONF
cli() { hostapd_cli -p /run/hostapd -i wlan0 "$@"; }

echo "== the daemon: event_monitor wlan1 (its lines are marked '  |')"
"$monitor" wlan1 >"$out" 2>&1 &
daemon=$!
# Shows the daemon's output live and ends when the daemon has ended.
tail --pid="$daemon" -s 0.2 -n +1 -f "$out" | sed -u 's/^/  | /' &
display=$!
within 100 'grep -q "^event_monitor: listening" "$out" || ! kill -0 $daemon' || true
grep -q "^event_monitor: listening" "$out" || { sleep 0.5; fail "event_monitor did not start"; }
sleep 0.3

step "AP up: hostapd on wlan0, WPA2-PSK, 5 GHz channel 36, VHT80, country DE"
hostapd -B -P /run/hostapd.pid /tmp/ap.conf >/dev/null
within 200 'iw dev wlan0 info | grep -q ssid' || fail "hostapd did not start the AP"
ap=$(cat /run/hostapd.pid)
sleep 0.5

step "scan from wlan1 on 5180 MHz"
ip link set wlan1 up
# The daemon tells when each scan ends. Under emulation a scan may miss the
# AP: scan again, a few times, until wlan1 has seen it.
scans=0
for attempt in 1 2 3 4 5; do
  if iw dev wlan1 scan trigger freq 5180 2>/dev/null; then
    scans=$((scans + 1))
    within 100 '[ "$(grep -c -- "$scan_finished" "$out")" -ge $scans ]' || true
    iw dev wlan1 scan dump | grep -q "SSID: ny80211-demo" && break
  else
    sleep 0.5  # busy
  fi
done
sleep 0.3

step "a station: wpa_supplicant on wlan1 associates with the AP"
station=$(cat /sys/class/net/wlan1/address)
wpa_supplicant -B -P /run/wpa_supplicant.pid -D nl80211 -i wlan1 -c /tmp/sta.conf >/dev/null
within 300 'iw dev wlan1 link | grep -q "^Connected"' || fail "wlan1 did not associate"
sleep 0.5

step "SIGUSR2: the daemon prints the stations and survey of wlan0"
kill -USR2 "$daemon"
await "$survey"

step "the station leaves: wpa_supplicant ended"
kill "$(cat /run/wpa_supplicant.pid)"
within 50 '! iw dev wlan1 link | grep -q "^Connected"' || true
sleep 0.3

step "channel switch of the AP to channel 149 (5745 MHz), VHT80"
answer=$(cli chan_switch 5 5745 sec_channel_offset=1 center_freq1=5775 bandwidth=80 vht)
[ "$answer" = OK ] || echo "demo: hostapd_cli chan_switch answered: $answer" >&2
await "$switched"

step "monitor interface mon0 added to phy1 and removed"
iw phy phy1 interface add mon0 type monitor
await "$created"
iw dev mon0 del
await "$deleted"

# hostapd stopping the AP itself (SIGTERM) gets no event: the kernel tells
# only of an AP it stops on its own, as when the interface goes down.
step "AP down: wlan0 taken down under hostapd, then hostapd ended"
ip link set wlan0 down
await "$ap_stopped"
kill "$ap"
within 50 '! kill -0 $ap 2>/dev/null' || true
sleep 0.3

step "SIGUSR1: the daemon prints the scan table of wlan1"
kill -USR1 "$daemon"
await "$table"

step "SIGTERM: the daemon stops"
kill -TERM "$daemon"
status=0
wait "$daemon" || status=$?
wait "$display" || true

missing=
expect() {
  grep -q -- "$1" "$out" || missing="$missing
  $2"
}
expect "$scan_started" "scan started (wlan1)"
expect "$scan_finished" "scan finished (wlan1)"
expect "$switched" "switched to channel (wlan0, to 5745 MHz)"
expect "$created" "ifc created (mon0)"
expect "$deleted" "ifc deleted (mon0)"
expect "$ap_stopped" "AP stopped"
expect "$stations" "the station table (wlan0)"
expect "^| $station " "the station in the station table ($station)"
expect "$survey" "the survey of wlan0 (5180 MHz)"
expect "$table" "the scan table"
expect "$table_row" "the AP in the scan table"
expect "$count" "the event count"
[ "$status" -eq 0 ] || missing="$missing
  exit status 0 (it was $status)"
if [ -n "$missing" ]; then
  echo "demo: FAILED: event_monitor did not print:$missing" >&2
  exit 1
fi
echo "== done: event_monitor printed every event of the scenario"
JOB
tools/vm-run --work "$build/vm" --radios 2 -- sh "$job" "$build/examples/event_monitor"
