#!/usr/bin/env bash
# The demo of an instrument's day must tell the same story every time: its
# run log (time stamps left out) must read as tests/examples/demo_run.log,
# however the demo's background runs are scheduled.
set -u
labshell=$1
source_dir=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp "$source_dir/examples/UsageSchedule.ini" "$work/"
# shellcheck disable=SC2086
${LABSHELL_EMULATOR:-} "$labshell" --data "$work" --today 20240815 "$source_dir/examples/demo.lsh" \
  >"$work/output" 2>&1 </dev/null || { cat "$work/output"; echo "the demo ended with $?" >&2; exit 1; }
sed -E 's/^[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} //' "$work/log/run.log" >"$work/run.log"
diff -u "$source_dir/tests/examples/demo_run.log" "$work/run.log"
