#!/usr/bin/env bash
# install_consumer.sh BUILD_DIR CONSUMER_SOURCE WORK_DIR
set -euo pipefail
build=$1 source=$2 work=$3
rm -rf "$work"
prefix=$work/prefix

cmake --install "$build" --prefix "$prefix" >/dev/null
for f in include/ny80211/Version.h include/nycpp/span.h lib/cmake/ny80211/ny80211Config.cmake \
         lib/pkgconfig/ny80211.pc bin/ny80211; do
  [[ -e "$prefix/$f" ]] || { echo "FAIL: $f was not installed"; exit 1; }
done
soname=$(objdump -p "$prefix/lib/libny80211.so" | awk '/SONAME/ { print $2 }')
[[ "$soname" == libny80211.so.* ]] || { echo "FAIL: soname is '$soname'"; exit 1; }
# Only the marked interface is exported.
if nm -D --defined-only "$prefix/lib/libny80211.so" | grep -q 'trace.*write'; then
  echo "FAIL: internal symbols are exported"; exit 1
fi

out=$(LD_LIBRARY_PATH="$prefix/lib" "$prefix/bin/ny80211" --help)
[[ "$out" == "usage: ny80211 "* ]] || { echo "FAIL: the installed ny80211 --help printed '$out'"; exit 1; }

cmake -S "$source" -B "$work/cmake-build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cmake-build" >/dev/null
out=$(LD_LIBRARY_PATH="$prefix/lib" "$work/cmake-build/consumer")
echo "find_package consumer: $out"
[[ "$out" == "ny80211 "* ]]

mkdir -p "$work/pc-build"
# shellcheck disable=SC2046
c++ -std=c++20 "$source/main.cpp" -o "$work/pc-build/consumer" \
  $(PKG_CONFIG_PATH="$prefix/lib/pkgconfig" pkg-config --cflags --libs ny80211)
out=$(LD_LIBRARY_PATH="$prefix/lib" "$work/pc-build/consumer")
echo "pkg-config consumer: $out"
[[ "$out" == "ny80211 "* ]]
