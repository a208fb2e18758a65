#!/usr/bin/env bash
# Sets up, builds and converts the sample document to examples/article.pdf.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/build.sh
build/bin/vellum --verbose examples/article.html -o examples/article.pdf
echo "wrote examples/article.pdf"
