#!/usr/bin/env bash
# Installs what the build, the tests and the benchmarks need (Debian packages;
# python3 drives the interactive test at a pseudo-terminal), and the packages
# named as arguments.
set -eu
packages="g++ cmake ninja-build pkg-config libsqlite3-dev sqlite3 libreadline-dev libgtest-dev libbenchmark-dev python3 $*"
missing=""
for p in $packages; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
done
if [ -n "$missing" ]; then
  sudo_cmd=""
  [ "$(id -u)" = 0 ] || sudo_cmd=sudo
  $sudo_cmd apt-get update -qq
  # shellcheck disable=SC2086
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq $missing
fi
