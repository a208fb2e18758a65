#!/usr/bin/env bash
# Sets up, builds (warnings as errors) and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/build.sh -DVELLUM_WERROR=ON
ctest --test-dir build --output-on-failure -j2
