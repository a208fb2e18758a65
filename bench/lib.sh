# Shared set-up of the conversion benchmarks, sourced after `here` is set: the build directory from the
# first argument, the `vellum` binary in it, and a scratch directory removed on exit.
build=${1:-$here/../build}
bin=$build/bin/vellum
if [ ! -x "$bin" ]; then
    echo "vellum not built in $build (ninja -C $build vellum)" >&2
    exit 1
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
