#!/usr/bin/env bash
# Configures and builds Vellum into build/ (the layout of an installed prefix).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup-debian.sh
export CCACHE_BASEDIR="$PWD"
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
cmake --build build -- -j2
