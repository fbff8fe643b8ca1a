#!/usr/bin/env bash
# Fuzzes with libFuzzer: the expression evaluator (expression), a schedule
# file through GetUsageAlerts (schedule) and command lines through the host
# (commandline).
#
#   scripts/fuzz.sh TARGET [SECONDS]   one target, 60 s by default
#   scripts/fuzz.sh                    every target for 60 s (CI's fuzz leg)
#
# Builds build/fuzz with clang, AddressSanitizer and UndefinedBehaviorSanitizer
# (installing clang and the fuzzer runtime when missing). A target starts from
# its seeds (tests/fuzz/TARGET/corpus), its saved findings and what earlier
# runs on this machine kept (build/fuzz/corpus/TARGET). An input that crashes,
# breaks one of the target's oracles, takes longer than 1 s or more than
# 1 GiB is a finding: it is saved in tests/fuzz/TARGET/regressions/, which the
# normal suite replays from then on, and the script fails.
set -eu
cd "$(dirname "$0")/.."
targets=(expression schedule commandline)
[ $# -ge 1 ] && targets=("$1")
seconds=${2:-60}

start=$SECONDS
scripts/install-deps.sh clang libclang-rt-dev
CC=clang CXX=clang++ cmake -S . -B build/fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DLABSHELL_SANITIZE=address,undefined,fuzzer-no-link -DLABSHELL_FUZZ=ON -DLABSHELL_BENCHMARKS=OFF >/dev/null
cmake --build build/fuzz -j "${JOBS:-2}" --target "${targets[@]/#/fuzz_}"
timings=("build $((SECONDS - start)) s")

export ASAN_OPTIONS=detect_odr_violation=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
options=(-timeout=1 -rss_limit_mb=1024 -max_len=4096 -close_fd_mask=3)

# Fuzzes one target for `seconds`; false when a finding stands. A timeout
# stands only when the input is slow again on its own (run twice, so that
# the host's start is not counted): on a loaded machine any input may be
# late once. Fuzzing goes on after one that does not stand.
fuzz_target() {
  local target=$1 source=tests/fuzz/$1 end=$((SECONDS + seconds)) before finding
  local program=build/fuzz/bin/fuzz_$target
  mkdir -p "build/fuzz/corpus/$target" "$source/regressions"
  while [ $SECONDS -lt $end ]; do
    before=$(ls "$source/regressions")
    # New inputs go to the first folder, so the seeds in the repository
    # stay as they are. The target's own output is closed.
    "$program" "build/fuzz/corpus/$target" "$source/corpus" "$source/regressions" "${options[@]}" \
      -dict="$source/dict" -max_total_time=$((end - SECONDS)) -print_final_stats=1 \
      -artifact_prefix="$source/regressions/" >>"build/fuzz/$target.log" 2>&1 && return 0
    finding=$(comm -13 <(echo "$before") <(ls "$source/regressions") | head -n 1)
    [ -n "$finding" ] || return 1
    # Once more with the target's output, which says which oracle broke.
    echo "replay of $finding:" >>"build/fuzz/$target.log"
    "$program" -timeout=1 "$source/regressions/$finding" >>"build/fuzz/$target.log" 2>&1 || true
    case $finding in timeout-*) ;; *) return 1 ;; esac
    "$program" "${options[@]}" "$source/regressions/$finding" "$source/regressions/$finding" >/dev/null 2>&1 && {
      echo "$target: $finding was slow only once: dropped"
      rm "$source/regressions/$finding"
      continue
    }
    return 1
  done
}

failed=()
for target in "${targets[@]}"; do
  start=$SECONDS
  : >"build/fuzz/$target.log"
  fuzz_target "$target" || { failed+=("$target"); tail -n 60 "build/fuzz/$target.log"; }
  grep -E '^(stat::number_of_executed_units|stat::new_units_added)' "build/fuzz/$target.log" |
    awk -v t="$target" '{ sum[$1] += $2 } END { for (k in sum) print t, k, sum[k] }'
  timings+=("$target $((SECONDS - start)) s")
done
echo "fuzzing time: ${timings[*]}"
if [ ${#failed[@]} -ne 0 ]; then
  echo "findings of ${failed[*]} saved in tests/fuzz/TARGET/regressions/ (the log is build/fuzz/TARGET.log):"
  echo "fix them and commit them with the fix: the normal suite replays them (ctest -R fuzz)"
  exit 1
fi
