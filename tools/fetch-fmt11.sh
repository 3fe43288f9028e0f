#!/usr/bin/env bash
# fetch-fmt11.sh DIR: puts the headers of Debian unstable's libfmt-dev (fmt 11)
# below DIR and prints their include directory. Nothing is installed: apt runs
# with a private configuration and state inside DIR, and the package is only
# unpacked there.
set -euo pipefail
dir=$(realpath -m "${1:?usage: fetch-fmt11.sh DIR}")
include=$dir/root/usr/include
if [[ -f $include/fmt/base.h ]]; then echo "$include"; exit 0; fi

mkdir -p "$dir/apt/lists/partial" "$dir/apt/cache/archives/partial" "$dir/deb"
echo "deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] http://deb.debian.org/debian unstable main" \
  >"$dir/apt/sources.list"
apt_opts=(-o "Dir::Etc::sourcelist=$dir/apt/sources.list" -o "Dir::Etc::sourceparts=-"
          -o "Dir::State::lists=$dir/apt/lists" -o "Dir::Cache=$dir/apt/cache"
          -o "Dir::State::status=/dev/null" -o "APT::Sandbox::User=root")
apt-get -qq "${apt_opts[@]}" update
(cd "$dir/deb" && apt-get -qq "${apt_opts[@]}" download libfmt-dev)
dpkg-deb -x "$dir"/deb/libfmt-dev_*.deb "$dir/root"
version=$(dpkg-deb -f "$dir"/deb/libfmt-dev_*.deb Version)
[[ $version == 11.* ]] || { echo "fetch-fmt11: unstable has libfmt-dev $version, not 11" >&2; exit 1; }
[[ -f $include/fmt/base.h ]] || { echo "fetch-fmt11: no fmt/base.h in libfmt-dev $version" >&2; exit 1; }
echo "$include"
