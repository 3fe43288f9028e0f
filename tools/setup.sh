#!/usr/bin/env bash
# Installs every build and test dependency from Debian bookworm packages.
# Idempotent; prints nothing when everything is already present.
#   tools/setup.sh            build, test and cross-build dependencies
#   tools/setup.sh --native   no cross-build dependencies
set -euo pipefail

native=(
  cmake g++ make pkg-config python3
  libnl-3-dev libnl-genl-3-dev libnl-route-3-dev
  libfmt-dev libpoco-dev liblttng-ust-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  lttng-tools babeltrace2
  clang-14 libclang-rt-14-dev llvm-14 clang-format-14 clang-tidy-14
  # tools/bench.sh counts instructions under callgrind
  valgrind
  # tools/abi.sh compares the library's interface with its baseline
  abigail-tools
)
# The target is AArch64: a cross compiler, the arm64 builds of the libraries,
# and user-mode qemu to run the unit tests. libpoco-dev:arm64 cannot sit beside
# the native one (its MySQL dependency is not multi-arch), so the cross build
# uses the native Poco headers with the arm64 Foundation library.
cross=(
  g++-aarch64-linux-gnu qemu-user-static
  libnl-3-dev:arm64 libnl-genl-3-dev:arm64 libnl-route-3-dev:arm64
  libfmt-dev:arm64 libpocofoundation80:arm64 liblttng-ust-dev:arm64
  libgtest-dev:arm64 libgmock-dev:arm64
)

# The kernel tests: a Debian kernel with mac80211_hwsim booted under qemu,
# with the host's hostapd, wpa_supplicant, iw and regulatory database.
vm=(
  qemu-system-x86 linux-image-amd64 busybox-static kmod
  hostapd wpasupplicant iw wireless-regdb
)

want=("${native[@]}" "${vm[@]}")
with_cross=1
if [[ "${1:-}" == "--native" ]]; then with_cross=0; elif [[ $# -gt 0 ]]; then
  echo "usage: $0 [--native]" >&2; exit 2
fi
((with_cross)) && want+=("${cross[@]}")

# Name the architecture: with arm64 beside it, a bare name matches both.
native_arch=$(dpkg --print-architecture)
missing=()
for p in "${want[@]}"; do
  [[ "$p" == *:* ]] || p="$p:$native_arch"
  status=$(dpkg-query -W -f='${db:Status-Status}' "$p" 2>/dev/null || true)
  [[ "$status" == installed ]] || missing+=("$p")
done
((${#missing[@]} == 0)) && exit 0

if [[ $(id -u) -ne 0 ]]; then
  echo "setup: missing packages: ${missing[*]}; run as root" >&2
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive
if ((with_cross)) && ! dpkg --print-foreign-architectures | grep -qx arm64; then
  dpkg --add-architecture arm64
fi
echo "setup: installing ${missing[*]}"
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
