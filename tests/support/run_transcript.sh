#!/usr/bin/env bash
# Runs one transcript test: labshell runs NAME.lsh on a fresh data folder and
# what it prints, its exit status and its logs must read as NAME.out.
#
# A first line "# args: ..." replaces the default arguments "--today 20240815".
# The logs are shown without their time stamps; a line "# logs: NAME..." shows
# only the logs named, for a script whose point is not in the others. UPDATE=1 writes NAME.out from
# the run instead of comparing (read the result before you commit it).
# LABSHELL_EMULATOR, when set, is put in front of labshell (a cross-build).
set -u
labshell=$1
script=$2
base=${script%.lsh}
expected=$base.out

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
data=$work/data
mkdir -p "$data"
if [ -d "$base.data" ]; then cp -r "$base.data/." "$data/"; fi

args="--today 20240815"
first=$(head -n 1 "$script")
case "$first" in "# args:"*) args=${first#"# args:"} ;; esac
logs=$(sed -n 's/^# logs://p' "$script" | head -n 1)

# shellcheck disable=SC2086
(cd "$work" && ${LABSHELL_EMULATOR:-} "$labshell" --data "$data" --echo $args "$script" >"$work/stdout" 2>"$work/stderr" </dev/null)
status=$?

{
  cat "$work/stdout"
  if [ -s "$work/stderr" ]; then echo "--- stderr"; cat "$work/stderr"; fi
  echo "--- exit $status"
  for log in ${logs:-run.log error.log UsageAlertLog.log}; do
    if [ -f "$data/log/$log" ]; then
      echo "--- log/$log"
      # Drop "YYYY-MM-DD HH:MM:SS " in front of each line.
      sed -E 's/^[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} //' "$data/log/$log"
    fi
  done
} >"$work/actual"

if [ "${UPDATE:-0}" = 1 ]; then
  cp "$work/actual" "$expected"
  echo "wrote $expected"
  exit 0
fi
if ! diff -u "$expected" "$work/actual"; then
  echo "transcript $script: output differs from $expected" >&2
  exit 1
fi
