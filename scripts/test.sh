#!/usr/bin/env bash
# Builds the project and runs every test: a plain build, one with
# AddressSanitizer and UndefinedBehaviorSanitizer, and the concurrency tests
# with ThreadSanitizer. Installs what is missing first.
set -eu
cd "$(dirname "$0")/.."
scripts/install-deps.sh

jobs=${JOBS:-2}
run_suite() {  # name, sanitizers, ctest label filter (empty: all)
  local dir=build/$1
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DLABSHELL_SANITIZE="$2" >/dev/null
  cmake --build "$dir" -j "$jobs"
  local filter=()
  [ -n "$3" ] && filter=(-L "$3")
  (cd "$dir" && ctest --output-on-failure -j "$jobs" "${filter[@]}")
}

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1

run_suite plain "" ""
run_suite asan "address,undefined" ""
run_suite tsan "thread" "concurrency"
