#!/usr/bin/env bash
# Builds the whole program and its tests with clang under AddressSanitizer, LeakSanitizer and
# UndefinedBehaviorSanitizer (-DVELLUM_SANITIZE=ON), then runs the test suite and converts every real
# document under ../shared/realdocs with leak detection on. The same tree carries libFuzzer's coverage
# instrumentation, so `tools/fuzz.sh pipeline` reuses it for the whole-program fuzzer.
#   tools/sanitize.sh [configure|build|test|realdocs|all]     (default: all)
# Any sanitizer report ends the process that made it with a failure status, so a report fails its test.
set -euo pipefail
cd "$(dirname "$0")/.."
dir=build-sanitize
step=${1:-all}
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=0:detect_stack_use_after_return=0}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
# Leaks inside the system's libraries (tools/lsan.supp says which) are not the program's.
export LSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=$PWD/tools/lsan.supp:print_suppressions=0}

configure() {
    # No build type: the flags below are the whole optimisation setting (-O1 is what the sanitizers
    # are tuned for, and it builds much faster than the release -O2).
    local flags="-O1 -g1 -DNDEBUG -fsanitize=fuzzer-no-link"
    cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Sanitize -DCMAKE_C_COMPILER=clang-14 \
        -DCMAKE_CXX_COMPILER=clang++-14 -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_C_FLAGS="$flags" \
        -DVELLUM_SANITIZE=ON -DVELLUM_LIBFUZZER=ON >/dev/null
}
build() {
    [ -f "$dir/build.ninja" ] || configure
    cmake --build "$dir" -- -j"${JOBS:-2}"
}
run_tests() {
    # AddressSanitizer's frames are several times larger: the script tests that recurse a few thousand
    # calls deep need a larger main-thread stack than the default 8 MB to reach their depth.
    ulimit -s 65536
    ctest --test-dir "$dir" --output-on-failure -j"${JOBS:-2}" --timeout 1200
}
realdocs() {
    local docs=../shared/realdocs out=$dir/realdocs
    [ -x "$docs/render.sh" ] || { echo "sanitize.sh: no real documents at $docs" >&2; return 0; }
    "$docs/render.sh" -p 1 "$dir/bin/vellum" "$out"
    cat "$out/summary.tsv"
    # A sanitizer report names itself in the messages; a non-zero status is caught too.
    if grep -l -E "ERROR: (Address|Leak)Sanitizer|runtime error:" "$out"/*/messages.txt; then
        echo "sanitize.sh: sanitizer reports above" >&2
        return 1
    fi
    awk -F'\t' 'NR > 1 && $2 != 0 { bad = 1; print "sanitize.sh: " $1 " ended with status " $2 }
                END { exit bad }' "$out/summary.tsv"
}
case "$step" in
configure) configure ;;
build) build ;;
test) run_tests ;;
realdocs) realdocs ;;
all) build && run_tests && realdocs ;;
*) echo "sanitize.sh: unknown step $step" >&2; exit 2 ;;
esac
