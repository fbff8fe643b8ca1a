#!/usr/bin/env bash
# Installs what the build for the instrument (32-bit ARM, Debian armhf) needs:
# the cross compiler and qemu from the machine's packages, and a sysroot with
# the armhf libraries that labshell and the tests link and run with, in
# build/cache/armhf/sysroot. Run it as root or with sudo; running it again
# changes nothing unless the package list below has changed.
#
# The armhf libraries are not installed the multi-arch way: packages shared
# between architectures fail on version skew, and an added architecture can
# make the machine's "apt-get update" fail. Instead apt reads the machine's
# Debian sources for armhf into a state and cache folder of its own
# (build/cache/armhf/apt, chosen with -o Dir::State/Dir::Cache and
# APT::Architecture=armhf), which leaves the machine's apt as it was; then
# "apt-get download" fetches the packages and "dpkg-deb -x" unpacks them.
set -eu
cd "$(dirname "$0")/.."
scripts/install-deps.sh g++-arm-linux-gnueabihf qemu-user-static

packages="libc6 libgcc-s1 libstdc++6 libsqlite3-0 libsqlite3-dev libreadline8 libreadline-dev libtinfo6 libgtest-dev"
cache=$PWD/build/cache/armhf
sysroot=$cache/sysroot
stamp=$sysroot/.packages
if [ -f "$stamp" ] && [ "$(cat "$stamp")" = "$packages" ]; then exit 0; fi

# The machine's Debian sources; the deb822 file where the system has one.
sources=/etc/apt/sources.list
[ -f /etc/apt/sources.list.d/debian.sources ] && sources=/etc/apt/sources.list.d/debian.sources
apt_dir=$cache/apt
mkdir -p "$apt_dir/state/lists/partial" "$apt_dir/cache/archives/partial" "$apt_dir/no-parts"
: >"$apt_dir/status"
apt_options=(-o Dir::State="$apt_dir/state" -o Dir::State::status="$apt_dir/status"
  -o Dir::Cache="$apt_dir/cache" -o Dir::Etc::SourceList="$sources"
  -o Dir::Etc::SourceParts="$apt_dir/no-parts"
  -o APT::Architecture=armhf -o APT::Architectures=armhf -qq)
# apt's download user cannot write into a root-owned work tree.
[ "$(id -u)" = 0 ] && apt_options+=(-o APT::Sandbox::User=root)
# An index that fails to download (a mirror in the middle of a sync) only
# leaves older versions to choose from; the download below fails if a
# package is missing altogether.
apt-get "${apt_options[@]}" update || echo "install-armhf: some armhf package lists were not updated" >&2

debs=$cache/debs
rm -rf "$debs" "$sysroot"
mkdir -p "$debs" "$sysroot"
# shellcheck disable=SC2086
(cd "$debs" && apt-get "${apt_options[@]}" download $packages)
for deb in "$debs"/*.deb; do dpkg-deb -x "$deb" "$sysroot"; done

# Absolute links point into the build machine's root: make them relative.
find "$sysroot" -type l -lname '/*' | while read -r link; do
  ln -sfr "$sysroot$(readlink "$link")" "$link"
done
echo "$packages" >"$stamp"
