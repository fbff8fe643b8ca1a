#!/usr/bin/env bash
# Builds labshell and UsageLog.dll and runs the demo of an instrument's day
# on a fresh data folder.
set -eu
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build/plain -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/plain -j "${JOBS:-2}"
data=$(mktemp -d)
trap 'rm -rf "$data"' EXIT
cp examples/UsageSchedule.ini "$data/"
build/plain/bin/labshell --data "$data" --today 20240815 --echo examples/demo.lsh
echo
echo "--- $data/log/run.log"
cat "$data/log/run.log"
