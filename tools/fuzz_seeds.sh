#!/usr/bin/env bash
# Collects the documents the end-to-end tests convert into tests/fuzz/seeds/pipeline, the seed corpus
# of the whole-program fuzzer (with tests/fuzz/corpus/pipeline, its reproducers). Each e2e test runs
# with a stand-in for the program that keeps a copy of every HTML or XML document it is given (up to
# 64 KB, named by content hash) and then runs the real program.
#   tools/fuzz_seeds.sh [BUILD]      (default build: the release tree)
set -euo pipefail
cd "$(dirname "$0")/.."
build=$(realpath "${1:-build}")
seeds=$PWD/tests/fuzz/seeds/pipeline
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$seeds" "$work/bin"
cat >"$work/bin/vellum" <<STANDIN
#!/usr/bin/env bash
for a in "\$@"; do
    case "\$a" in
    *.html | *.htm | *.xhtml | *.xml)
        if [ -f "\$a" ] && [ "\$(stat -c %s "\$a")" -le 65536 ]; then
            cp "\$a" "$seeds/\$(sha1sum "\$a" | cut -c1-16).\${a##*.}"
        fi ;;
    esac
done
exec "$build/bin/vellum" "\$@"
STANDIN
chmod +x "$work/bin/vellum"
for t in tests/e2e/*_test.sh; do
    bash "$t" "$work/bin/vellum" "$PWD/tests/e2e" >/dev/null 2>&1 || true
done
ls "$seeds" | wc -l
