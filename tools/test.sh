#!/usr/bin/env bash
# The project's test command (see README.md): installs the build and test
# dependencies with apt when one is missing, builds the whole tree and runs
# every test, runs the fuzzers (tools/fuzz.sh), then builds the tree again
# with ThreadSanitizer and with AddressSanitizer + UndefinedBehaviorSanitizer
# and runs every test under each. Exits non-zero on any failure; the
# output ends with the summary of the last CTest run.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."

JOBS=2
TEST_TIMEOUT=300  # seconds, for any test that does not set its own

step() { printf '\n==== %s\n' "$*"; }

# build_tree <dir> <cmake options...>
build_tree() {
    local dir=$1
    shift
    step "configure and build $dir"
    cmake -S . -B "$dir" "$@" >"$dir/configure.log" 2>&1 || {
        cat "$dir/configure.log"
        return 1
    }
    cmake --build "$dir" -j "$JOBS"
}

run_tests() {
    step "tests in $1"
    ctest --test-dir "$1" --output-on-failure --timeout "$TEST_TIMEOUT" -j "$JOBS"
}

step "packages"
bash tools/install-deps.sh

mkdir -p build build-tsan build-asan
build_tree build -DCMAKE_BUILD_TYPE=RelWithDebInfo
run_tests build

fuzz_failed=0
if [[ -f tools/fuzz.sh ]]; then
    step "fuzzers (tools/fuzz.sh)"
    if ! bash tools/fuzz.sh; then
        fuzz_failed=1
        echo "tools/fuzz.sh FAILED"
    fi
fi

# The whole suite once under ThreadSanitizer: the main thread and the
# sampling worker meet on the trigger state locks, the list locks and the
# counters, and any report fails the run.
export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1}
build_tree build-tsan -DCMAKE_BUILD_TYPE=Debug -DMTE_SANITIZE=thread -DMTE_BUILD_BENCH=OFF
run_tests build-tsan

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
build_tree build-asan -DCMAKE_BUILD_TYPE=Debug -DMTE_SANITIZE=address -DMTE_BUILD_BENCH=OFF
if ((fuzz_failed)); then
    echo "(tools/fuzz.sh failed above; the sanitizer tests run anyway)"
fi
run_tests build-asan
exit "$fuzz_failed"
