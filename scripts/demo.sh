#!/usr/bin/env bash
# Builds labshell and the plug-in files it loads (nothing else), runs the demo
# of an instrument's day on a fresh data folder with the script's comments in
# its output, and keeps that folder for a look afterwards.
set -eu
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build/plain -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DLABSHELL_BENCHMARKS=OFF >/dev/null
cmake --build build/plain -j "${JOBS:-2}" --target labshell
data=$(mktemp -d "${TMPDIR:-/tmp}/labshell-demo.XXXXXX")
cp examples/UsageSchedule.ini "$data/"
build/plain/bin/labshell --data "$data" --today 20240815 --echo --comments examples/demo.lsh
echo
echo "--- $data/log/run.log"
cat "$data/log/run.log"
echo
echo "The demo's data folder is kept: $data"
echo "  usage.db     the usage store (sqlite3 $data/usage.db .dump)"
echo "  log/         run.log, error.log, UsageAlertLog.log"
echo "Look around at the prompt: build/plain/bin/labshell --data $data"
