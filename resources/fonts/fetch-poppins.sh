#!/bin/sh
# Regenerates Poppins-SemiBold.ttf and OFL.txt in this folder from the npm
# package @fontsource/poppins. Needs npm and woff2_decompress (Debian: woff2).
# The package ships web fonts only; the latin subset covers U+0000-00FF, which
# holds every letter of the Portuguese catalogue.
set -eu

version="${1:-5.3.0}"
here="$(cd "$(dirname "$0")" && pwd)"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

cd "$work"
npm pack --silent "@fontsource/poppins@$version" >/dev/null
tar xzf fontsource-poppins-*.tgz
# A TrueType file, not WOFF2: not every platform's font database reads web
# fonts.
woff2_decompress package/files/poppins-latin-600-normal.woff2
cp package/files/poppins-latin-600-normal.ttf "$here/Poppins-SemiBold.ttf"
cp package/LICENSE "$here/OFL.txt"
echo "Poppins SemiBold (latin) from @fontsource/poppins $version"
