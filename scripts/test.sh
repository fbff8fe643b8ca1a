#!/usr/bin/env bash
# Checks the direction of includes between the tree's parts, then builds the
# project and runs every test: a plain build, one with
# AddressSanitizer and UndefinedBehaviorSanitizer, the concurrency tests
# with ThreadSanitizer, a minute of fuzzing per fuzz target, and a build for
# the instrument (32-bit ARM) under qemu. Installs what is missing first.
# Arguments name the legs to run (plain, asan, tsan, fuzz, armhf); none runs
# them all.
set -eu
cd "$(dirname "$0")/.."
scripts/install-deps.sh
# The parts of the tree include one another in one direction only.
scripts/check-layers.py

jobs=${JOBS:-2}
legs=("$@")
selected() { [ ${#legs[@]} -eq 0 ] || [[ " ${legs[*]} " == *" $1 "* ]]; }
run_suite() {  # name, sanitizers, ctest name filter (empty: all), more cmake arguments
  selected "$1" || return 0
  local dir=build/$1
  local benchmarks=OFF
  [ -z "$2" ] && benchmarks=ON
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DLABSHELL_SANITIZE="$2" \
    -DLABSHELL_BENCHMARKS=$benchmarks "${@:4}" >/dev/null
  cmake --build "$dir" -j "$jobs"
  local filter=()
  [ -n "$3" ] && filter=(-R "$3")
  (cd "$dir" && ctest --output-on-failure -j "$jobs" "${filter[@]}")
  # Counted from the end of the leg before, so an install for this one counts too.
  timings+=("$1 $((SECONDS - last_end)) s")
  last_end=$SECONDS
}
timings=()
last_end=$SECONDS

# Every plug-in file carries the frame's exported globals and the first one
# loaded serves them all: identical definitions on purpose, so only globals
# of different sizes count as a fault.
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:detect_odr_violation=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1

run_suite plain "" ""
run_suite asan "address,undefined" ""
# Tests of concurrent runs carry "concurrency" in their names.
run_suite tsan "thread" "[Cc]oncurrency"
# Each fuzz target for a minute on top of its seeds; the script prints the
# time of its build and of each target.
if selected fuzz; then
  scripts/fuzz.sh
  timings+=("fuzz $((SECONDS - last_end)) s")
  last_end=$SECONDS
fi
# The instrument: a cross-build whose tests CTest runs under qemu.
if selected armhf; then
  scripts/install-armhf.sh
  run_suite armhf "" "" -DCMAKE_TOOLCHAIN_FILE=cmake/armhf.cmake -DLABSHELL_BENCHMARKS=OFF
fi

echo "time per leg: ${timings[*]}"
# The tests' share of the code: non-blank, non-comment lines of tests against
# those of the product (expected outputs and data not counted).
count_lines() {
  git ls-files -- "$@" | grep -E '\.(c|cc|cpp|h|hpp|py|sh|lsh)$' | xargs -r cat | grep -c -v -E '^\s*(//.*|#.*)?$' || true
}
if git rev-parse --git-dir >/dev/null 2>&1; then
  test_lines=$(count_lines tests/)
  code_lines=$(count_lines frame usage commands evaluator labhost shell)
  echo "test code: $test_lines lines, product code: $code_lines lines ($((100 * test_lines / code_lines)) %)"
fi
