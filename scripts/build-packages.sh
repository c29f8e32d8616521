#!/usr/bin/env bash
# Stages and builds the rootful and rootless .deb packages of the phone library and its resource bundle;
# control fields and the preinst come from resources/packaging.
# usage: build-packages.sh --rootful DYLIB --rootless DYLIB --resources BUNDLE_DIR --version X.Y.Z --output DIR
set -euo pipefail

package_id=com.quorvane.qvdovrinkit
name=Verdigo
library_dir=Library/MobileSubstrate/DynamicLibraries
resource_dir=var/quorvane_tweak_resources/qvdovrinkit/QVVPPResources.bundle
packaging="$(cd "$(dirname "$0")/../resources/packaging" && pwd)"

rootful="" rootless="" resources="" version="" output=""
while [ $# -gt 0 ]; do
  case "$1" in
    --rootful) rootful="$2"; shift 2 ;;
    --rootless) rootless="$2"; shift 2 ;;
    --resources) resources="$2"; shift 2 ;;
    --version) version="$2"; shift 2 ;;
    --output) output="$2"; shift 2 ;;
    *) echo "build-packages: unknown argument $1" >&2; exit 2 ;;
  esac
done
for required in rootful rootless resources version output; do
  if [ -z "${!required}" ]; then
    echo "build-packages: --$required is required" >&2
    exit 2
  fi
done
for file in "$rootful" "$rootless"; do
  [ -f "$file" ] || { echo "build-packages: no library at $file" >&2; exit 1; }
done
[ -d "$resources" ] || { echo "build-packages: no resource bundle at $resources" >&2; exit 1; }

umask 022
mkdir -p "$output"
work=$(mktemp -d "${TMPDIR:-/tmp}/verdigo-packages.XXXXXX")
trap 'rm -rf "$work"' EXIT

# stage LAYOUT ARCH PREFIX DYLIB
stage() {
  local layout=$1 arch=$2 prefix=$3 dylib=$4
  local root="$work/$layout"
  local libs="$root$prefix/$library_dir"
  local res="$root$prefix/$resource_dir"
  mkdir -p "$root/DEBIAN" "$libs" "$res"
  install -m 0755 "$dylib" "$libs/$name.dylib"
  cat > "$libs/$name.plist" <<PLIST
{ Filter = { Bundles = ( "com.apple.AppStore", "com.apple.itunesstored" ); }; }
PLIST
  cp -R "$resources/." "$res/"
  sed -e "s/@PACKAGE@/$package_id/" -e "s/@NAME@/$name/" -e "s/@VERSION@/$version/" -e "s/@ARCH@/$arch/" \
    "$packaging/control.in" > "$root/DEBIAN/control"
  # Stock iOS has no /bin/sh; rootless jailbreaks keep theirs under /var/jb.
  sed -e "1s|^#!/bin/sh|#!$prefix/bin/sh|" "$packaging/preinst" > "$root/DEBIAN/preinst"
  find "$root" -type d -exec chmod 0755 {} +
  find "$root" -type f ! -name "$name.dylib" -exec chmod 0644 {} +
  chmod 0755 "$root/DEBIAN/preinst"
  local deb="$output/${package_id}_${version}_${arch}.deb"
  rm -f "$deb"
  dpkg-deb -Zgzip --root-owner-group -b "$root" "$deb" > /dev/null
  echo "built $deb"
}

rm -f "$output"/${package_id}_*.deb
stage rootful iphoneos-arm "" "$rootful"
stage rootless iphoneos-arm64 /var/jb "$rootless"
