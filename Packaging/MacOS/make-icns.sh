#!/usr/bin/env bash
# Draws the icon set from the program's SVG icon.
#   make-icns.sh ICON.svg OUTPUT.icns
# Needs rsvg-convert (brew install librsvg) and iconutil (part of macOS).
set -euo pipefail
[ $# -eq 2 ] || { echo 'usage: make-icns.sh ICON.svg OUTPUT.icns' >&2; exit 2; }
for tool in rsvg-convert iconutil; do
  command -v "$tool" >/dev/null || { printf 'make-icns: needs %s\n' "$tool" >&2; exit 2; }
done
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
set=$folder/quenda.iconset
mkdir "$set"
for size in 16 32 128 256 512; do
  rsvg-convert -w "$size" -h "$size" "$1" -o "$set/icon_${size}x${size}.png"
  rsvg-convert -w $((size * 2)) -h $((size * 2)) "$1" -o "$set/icon_${size}x${size}@2x.png"
done
iconutil -c icns "$set" -o "$2"
