#!/usr/bin/env bash
# Builds a libFuzzer target with clang (address and undefined-behaviour sanitizers) and runs it.
#   tools/fuzz.sh <name> [seconds]     e.g. tools/fuzz.sh url 600
# The target is tests/fuzz/<name>_fuzz.cpp; its corpus is tests/fuzz/corpus/<name>/, where new
# interesting inputs are kept (crashes are written to build-fuzz/<name>/ and belong in the corpus once
# fixed). The sources compiled in are those of the subsystems the target needs.
set -euo pipefail
cd "$(dirname "$0")/.."
name=$1
seconds=${2:-60}
case "$name" in
url) dirs="src/resource" ;;
css) dirs="src/css src/resource" ;;
html5) dirs="src/document/html5" ;;
# Case-insensitive regular expressions need the case mapping of the Unicode tables.
js|regexp) dirs="src/js src/text/unicode.cpp src/text/unicode" ;;
opentype) dirs="src/text src/resource src/text/fonts/freetype.cpp"; skip="*/text/fonts/*" ;;
# The whole program but its entry, built by CMake with clang in the sanitizer tree build-sanitize,
# which is also the prefix the target reads the program's own files from.
pipeline) dirs="" ;;
*) echo "fuzz.sh: unknown target $name" >&2; exit 2 ;;
esac
out=build-fuzz/$name
mkdir -p "$out"
if [ "$name" = pipeline ]; then
    # The sanitizer tree of tools/sanitize.sh carries the coverage instrumentation this target needs.
    [ -f build-sanitize/build.ninja ] || bash tools/sanitize.sh configure
    cmake --build build-sanitize --target pipeline_fuzzer vellum_resources -- -j2
    cp build-sanitize/tests/pipeline_fuzzer "$out/fuzzer"
    mkdir -p "tests/fuzz/corpus/$name" "$out/corpus-new"
    export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
    # Leaks inside the system's libraries (tools/lsan.supp says which) are not the program's.
    export LSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=$PWD/tools/lsan.supp:print_suppressions=0}
    # Each input must finish in 10 s; a deep document may take a large stack and much memory. The
    # seeds are the documents of the end-to-end tests (tools/fuzz_seeds.sh collects them).
    "$out/fuzzer" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=8192 -artifact_prefix="$out/" \
        "$out/corpus-new" "tests/fuzz/corpus/$name" tests/fuzz/seeds/pipeline 2>&1 | tail -n 20
    exit 0
fi
# shellcheck disable=SC2086
# The font database (text/fonts) reads style sheets; the table readers need none of it.
sources=$(find src/util src/driver/log.cpp $dirs -name '*.cpp' -not -path '*/styledom/*' \( -not -path "${skip:-/none/}" -o -name freetype.cpp \) -not -name font_subset.cpp | sort -u)
clang++-14 -std=c++2b -O1 -g -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=undefined \
    -I src $(pkg-config --cflags libxml-2.0 freetype2) \
    "tests/fuzz/${name}_fuzz.cpp" $sources -o "$out/fuzzer" \
    $(pkg-config --libs libxml-2.0 freetype2 fontconfig libcurl zlib) -lpthread
mkdir -p "tests/fuzz/corpus/$name" "$out/corpus-new"
"$out/fuzzer" -max_total_time="$seconds" -artifact_prefix="$out/" "$out/corpus-new" "tests/fuzz/corpus/$name" \
    2>&1 | tail -n 20
