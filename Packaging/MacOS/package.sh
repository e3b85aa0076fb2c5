#!/usr/bin/env bash
# Turns a built quenda.app into a signed, notarised disk image, step by step; each step says what
# it needs and stops where it is missing.
#   package.sh BUILD_FOLDER [--unsigned]
# Environment:
#   QUENDA_SIGNING_IDENTITY   a "Developer ID Application: ..." identity of the login keychain
#   QUENDA_NOTARY_PROFILE     a profile stored by `xcrun notarytool store-credentials`
set -euo pipefail

fail() {
  printf 'package: %s\n' "$1" >&2
  exit 2
}
needs() { command -v "$1" >/dev/null || fail "needs $1: $2"; }

[ $# -ge 1 ] || fail 'usage: package.sh BUILD_FOLDER [--unsigned]'
[ "$(uname)" = Darwin ] || fail 'needs macOS'
build=$1
unsigned=no
[ "${2:-}" != --unsigned ] || unsigned=yes
app=$build/bin/quenda.app
here=$(cd "$(dirname "$0")" && pwd)
[ -d "$app" ] || fail "needs a built bundle at $app: cmake --build --preset release"

echo '1. Qt into the bundle'
needs macdeployqt "comes with Qt: brew install qt"
macdeployqt "$app" -always-overwrite

if [ "$unsigned" = no ]; then
  echo '2. Signature with the hardened runtime'
  needs codesign "comes with the Xcode command line tools: xcode-select --install"
  [ -n "${QUENDA_SIGNING_IDENTITY:-}" ] || fail 'needs QUENDA_SIGNING_IDENTITY (or --unsigned)'
  sign=(codesign --force --timestamp --options runtime --sign "$QUENDA_SIGNING_IDENTITY")
  while IFS= read -r -d '' part; do
    "${sign[@]}" "$part"
  done < <(find "$app/Contents/Frameworks" "$app/Contents/PlugIns" -depth \
             \( -name '*.dylib' -o -name '*.framework' \) -print0 2>/dev/null)
  server=$app/Contents/Resources/bin/whisper-server
  [ ! -f "$server" ] || "${sign[@]}" "$server"
  "${sign[@]}" --entitlements "$here/Quenda.entitlements" "$app"
  codesign --verify --deep --strict "$app"
else
  echo '2. Signature for this machine only'
  needs codesign "comes with the Xcode command line tools: xcode-select --install"
  # macdeployqt has changed the files, and Apple silicon runs nothing without a signature.
  codesign --force --deep --sign - --entitlements "$here/Quenda.entitlements" "$app"
fi

echo '3. Disk image'
needs hdiutil "part of macOS"
image=$build/Quenda.dmg
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
cp -R "$app" "$stage/"
ln -s /Applications "$stage/Applications"
hdiutil create -volname Quenda -srcfolder "$stage" -ov -format UDZO "$image"

if [ "$unsigned" = no ]; then
  echo '4. Notarisation'
  needs xcrun "comes with the Xcode command line tools: xcode-select --install"
  [ -n "${QUENDA_NOTARY_PROFILE:-}" ] || fail 'needs QUENDA_NOTARY_PROFILE'
  "${sign[@]}" "$image"
  xcrun notarytool submit "$image" --keychain-profile "$QUENDA_NOTARY_PROFILE" --wait
  xcrun stapler staple "$image"
  xcrun stapler validate "$image"
fi
printf 'package: %s\n' "$image"
