#!/usr/bin/env bash
# Installs every Debian package that building, running and testing Vellum needs.
# Idempotent: when everything is present it only asks dpkg and returns.
set -euo pipefail

packages=(
    # toolchain
    g++ cmake ninja-build ccache pkg-config python3
    # libraries the product links against
    libxml2-dev libcurl4-gnutls-dev libgcrypt20-dev zlib1g-dev libpng-dev libjpeg-dev
    libgif-dev libtiff-dev libfreetype-dev libfontconfig-dev
    # data the build turns into resources (ca-certificates: the CA bundle for HTTPS)
    w3c-sgml-lib unicode-data ca-certificates
    # hyphenation patterns (tools/gen_hyph_patterns.py turns them into resources/hyph/)
    hyphen-en-us hyphen-en-gb hyphen-de hyphen-fr hyphen-es hyphen-it hyphen-nl hyphen-pt-pt
    # fonts the default style sheets name
    fonts-dejavu-core fonts-dejavu-extra fonts-liberation2 fonts-urw-base35 fonts-noto-core fonts-noto-cjk
    # tests
    libgtest-dev libgmock-dev poppler-utils qpdf python3-fonttools python3-pil openssl
    # the system-call tracer that shows which runs start threads
    strace
    # the reference shaper the shaping tests compare glyphs and positions with
    libharfbuzz-bin
    # the reference rasteriser that made the SVG reference set's images (tools/gen_svg_reference.sh)
    librsvg2-bin
)

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$p")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

echo "setup: installing ${missing[*]}" >&2
sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then
    sudo_cmd=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq || true
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
