#!/usr/bin/env bash
# UsageLog against plain SQL, and the cost of a monitoring pass.
#
# 1. 10 000 "UsageLog -a" lines (and a final save) as one labshell script on a
#    store of 10 000 counters, against the sqlite3 tool running the same
#    10 000 updates on a copy of the same file in one transaction. Both are
#    timed as whole processes; the ratio labshell / sqlite3 is the figure.
#    The same number of runs that end before any work shows what the host
#    itself costs per command line, whatever the command does.
# 2. The CPU time of one pass of "UsageLog -d1" over 100 000 items: the
#    monitor runs in a labshell of its own, and its thread's CPU time is read
#    from /proc over ten passes (the first pass, which prints every item, is
#    left out).
#
# Usage: bench/bench_usagelog.sh [BUILD_DIR]   (default build/plain)
set -eu
cd "$(dirname "$0")/.."
build=${1:-build/plain}
labshell=$build/bin/labshell
[ -x "$labshell" ] || { echo "no labshell in $build/bin" >&2; exit 1; }
command -v sqlite3 >/dev/null || { echo "the sqlite3 tool is missing" >&2; exit 1; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
now_ns() { date +%s%N; }

# A saved store of N counters K000001.. in DIR.
make_store() {  # dir, count
  local per_line=100
  awk -v n="$2" -v per="$per_line" 'BEGIN {
    for (i = 1; i <= n; i += per) {
      line = "UsageLog -i"
      for (j = i; j < i + per && j <= n; j++) line = line sprintf(" K%06d", j)
      print line
    }
    print "UsageLog -b"
  }' >"$work/make.lsh"
  "$labshell" --data "$1" "$work/make.lsh" >/dev/null
}

# --- 1. increments --------------------------------------------------------
items=10000
make_store "$work/shell" $items
cp -r "$work/shell" "$work/sql"
awk -v n=$items 'BEGIN { for (i = 1; i <= n; i++) printf "UsageLog -a K%06d\n", i; print "UsageLog -b" }' \
  >"$work/increments.lsh"
awk -v n=$items 'BEGIN {
  print "BEGIN;"
  for (i = 1; i <= n; i++) printf "UPDATE usage_item SET value = value + 1 WHERE key = '\''K%06d'\'';\n", i
  print "COMMIT;"
}' >"$work/increments.sql"

start=$(now_ns)
"$labshell" --data "$work/shell" "$work/increments.lsh" >/dev/null
shell_ns=$(( $(now_ns) - start ))
# The host's own cost of a run: as many "UsageLog -a" lines without an item,
# which end with exit number 1 before they touch the store.
cp -r "$work/sql" "$work/floor"
awk -v n=$items 'BEGIN { for (i = 1; i <= n; i++) print "UsageLog -a"; print "UsageLog -b" }' >"$work/floor.lsh"
start=$(now_ns)
"$labshell" --data "$work/floor" "$work/floor.lsh" >/dev/null
floor_ns=$(( $(now_ns) - start ))
start=$(now_ns)
sqlite3 "$work/sql/usage.db" <"$work/increments.sql"
sql_ns=$(( $(now_ns) - start ))

# Both must have done the same work.
check=$(sqlite3 "$work/shell/usage.db" "SELECT SUM(value) FROM usage_item")
[ "$check" = "$items" ] || { echo "labshell store sums to $check, not $items" >&2; exit 1; }
check=$(sqlite3 "$work/sql/usage.db" "SELECT SUM(value) FROM usage_item")
[ "$check" = "$items" ] || { echo "sqlite3 store sums to $check, not $items" >&2; exit 1; }

awk -v a="$shell_ns" -v b="$sql_ns" -v f="$floor_ns" -v n=$items 'BEGIN {
  printf "increments: labshell %.3f s, sqlite3 %.3f s, ratio %.2f (%d updates each)\n", a / 1e9, b / 1e9, a / b, n
  printf "  the host alone, %d runs that end before any work: %.3f s\n", n, f / 1e9
}'

# --- 2. monitoring pass ---------------------------------------------------
items=100000
make_store "$work/monitor" $items
"$labshell" --data "$work/monitor" -c "SHELL -b UsageLog -d1" -c "sleep 16000" >/dev/null &
shell_pid=$!

# CPU nanoseconds of each thread of the shell: "TID NS" lines.
thread_cpu() {
  for task in /proc/$shell_pid/task/*; do
    [ -r "$task/schedstat" ] && echo "${task##*/} $(cut -d' ' -f1 "$task/schedstat")"
  done
}
sleep 4
first=$(thread_cpu)
sleep 10
second=$(thread_cpu)
wait $shell_pid || true

# The monitor's thread is the one that used the most CPU between the samples.
echo "$first" >"$work/first"
echo "$second" >"$work/second"
awk -v n=$items 'NR == FNR { before[$1] = $2; next }
  ($1 in before) { d = $2 - before[$1]; if (d > best) best = d }
  END { printf "monitor: %.3f ms CPU per pass over %d items (10 passes, %.1f ns per item)\n",
               best / 10 / 1e6, n, best / 10 / n }' "$work/first" "$work/second"
