#!/usr/bin/env bash
# The main job: builds the library and its examples, then, in the VM with
# virtual radios (tools/vm-run), starts an access point with hostapd on wlan0,
# scans from wlan1 and shows what a daemon gets through the library: the
# interfaces, then the scan results with each BSS's derived channel.
set -euo pipefail
cd "$(dirname "$0")/.."
build=$(realpath -m "${BUILD_DIR:-build}")
[[ -f $build/CMakeCache.txt ]] || cmake -S . -B "$build"
cmake --build "$build" -j"$(nproc)" --target interfaces scan_results

job=$(mktemp)
trap 'rm -f "$job"' EXIT
cat >"$job" <<JOB
set -e
cat >/tmp/ap.conf <<CONF
interface=wlan0
driver=nl80211
ssid=ny80211-demo
country_code=DE
hw_mode=a
channel=36
ieee80211n=1
ieee80211ac=1
ht_capab=[HT40+]
vht_oper_chwidth=1
vht_oper_centr_freq_seg0_idx=42
CONF
iw reg set DE
hostapd -B /tmp/ap.conf >/dev/null
while ! iw dev wlan0 info | grep -q ssid; do sleep 0.2; done
ip link set wlan1 up
echo "== interfaces, as nl80211 reports them"
$build/examples/interfaces wlan0
echo "== scanning from wlan1"
for attempt in 1 2 3; do
  timeout 30 iw dev wlan1 scan freq 5180 >/dev/null && break
done
echo "== scan results of wlan1: BSSID, SSID, signal, derived channel"
$build/examples/scan_results wlan1
JOB
tools/vm-run --work "$build/vm" --radios 2 -- sh "$job"
