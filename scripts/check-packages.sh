#!/usr/bin/env bash
# Inspects the built .deb packages: file lists, control fields, the preinst, and the phone library's Mach-O slices
# and load commands.
# usage: check-packages.sh PACKAGE_DIR VERSION [ARCHS]   (ARCHS: the slices the build made, "arm64" or "arm64,arm64e")
set -euo pipefail

dir=${1:?package directory}
version=${2:?version}
IFS=',; ' read -r -a archs <<< "${3:-arm64}"
scripts=$(dirname "$0")
package_id=com.quorvane.qvdovrinkit
otool=${OTOOL:-llvm-otool-14}
objdump=${OBJDUMP:-llvm-objdump-14}
failures=0
work=$(mktemp -d "${TMPDIR:-/tmp}/verdigo-check.XXXXXX")
trap 'rm -rf "$work"' EXIT

fail() {
  echo "check-packages: $*" >&2
  failures=$((failures + 1))
}

expect_field() { # deb field expected
  local actual
  actual=$(dpkg-deb -f "$1" "$2")
  [ "$actual" = "$3" ] || fail "$(basename "$1"): $2 is '$actual', expected '$3'"
}

expect_line() { # label haystack needle
  grep -qxF -- "$3" <<< "$2" || fail "$1: missing '$3'"
}

# check LAYOUT ARCH PREFIX
check() {
  local layout=$1 arch=$2 prefix=$3
  local failures_before=$failures
  local deb="$dir/${package_id}_${version}_${arch}.deb"
  [ -f "$deb" ] || { fail "no $layout package at $deb"; return; }
  local lib="$prefix/Library/MobileSubstrate/DynamicLibraries"
  local res="$prefix/var/quorvane_tweak_resources/qvdovrinkit/QVVPPResources.bundle"

  expect_field "$deb" Package "$package_id"
  expect_field "$deb" Name Verdigo
  expect_field "$deb" Version "$version"
  expect_field "$deb" Architecture "$arch"
  expect_field "$deb" Section Tweaks
  expect_field "$deb" Depends mobilesubstrate
  [ -n "$(dpkg-deb -f "$deb" Maintainer)" ] || fail "$layout: no Maintainer"
  dpkg-deb -f "$deb" Description | tr '\n' ' ' | grep -q 'arm64e devices (A12 *and newer) the App Store processes cannot load it yet' ||
    fail "$layout: Description does not say that arm64e devices cannot load it"

  # The preinst stops the install on arm64e devices; it must run, so it must be there and executable.
  local control="$work/$layout.control" shell=/bin/sh
  [ "$layout" = rootless ] && shell=/var/jb/bin/sh
  dpkg-deb -e "$deb" "$control"
  if [ ! -x "$control/preinst" ]; then
    fail "$layout: no executable preinst"
  elif [ "$(head -1 "$control/preinst")" != "#!$shell" ]; then
    fail "$layout: preinst does not start with #!$shell"
  fi

  local files
  files=$(dpkg-deb -c "$deb" | awk '{print $6}' | sed 's#^\.##; s#/$##')
  for path in "$lib/Verdigo.dylib" "$lib/Verdigo.plist" "$res/DefaultPreferences.plist" "$res/Info.plist" \
    "$res/en.lproj/Localizable.strings" "$res/settings.png" "$res/share.png"; do
    expect_line "$layout files" "$files" "$path"
  done
  if [ "$layout" = rootless ]; then
    local outside
    outside=$(grep -v -E '^(/var|/var/jb(/.*)?)?$' <<< "$files" || true)
    [ -z "$outside" ] || fail "rootless: outside /var/jb: $(tr '\n' ' ' <<< "$outside")"
  fi

  local root="$work/$layout"
  dpkg-deb -x "$deb" "$root"
  local dylib="$root$lib/Verdigo.dylib"
  grep -q 'Mach-O 64-bit arm64.* dynamically linked shared library' <<< "$(file -b "$dylib")" ||
    fail "$layout: not an arm64 Mach-O dylib: $(file -b "$dylib")"
  local required=()
  for arch in "${archs[@]}"; do required+=(--require "$arch"); done
  python3 "$scripts/check-macho-arch.py" "${required[@]}" "$dylib" > /dev/null || fail "$layout: CPU slices"
  grep -q '"com.apple.AppStore"' "$root$lib/Verdigo.plist" || fail "$layout: filter lacks com.apple.AppStore"
  grep -q '"com.apple.itunesstored"' "$root$lib/Verdigo.plist" || fail "$layout: filter lacks com.apple.itunesstored"

  local headers libs
  headers=$("$objdump" --macho --private-headers "$dylib")
  libs=$("$otool" -L "$dylib" | tail -n +2 | sed 's/^[[:space:]]*//')
  grep -q 'cmd LC_CODE_SIGNATURE' <<< "$headers" || fail "$layout: not signed (no LC_CODE_SIGNATURE)"
  grep -A3 -E 'cmd LC_(VERSION_MIN_IPHONEOS|BUILD_VERSION)' <<< "$headers" | grep -qE '(version|minos) 11\.0' ||
    fail "$layout: deployment target is not iOS 11.0"

  local substrate install_name
  if [ "$layout" = rootful ]; then
    substrate=/Library/Frameworks/CydiaSubstrate.framework/CydiaSubstrate
    install_name=/Library/MobileSubstrate/DynamicLibraries/Verdigo.dylib
  else
    substrate=@rpath/CydiaSubstrate.framework/CydiaSubstrate
    install_name=@rpath/Verdigo.dylib
  fi
  [ "$(head -1 <<< "$libs" | awk '{print $1}')" = "$install_name" ] || fail "$layout: install name is not $install_name"
  grep -A2 'cmd LC_LOAD_WEAK_DYLIB' <<< "$headers" | grep -qF "name $substrate " ||
    fail "$layout: $substrate is not a weak load"
  # Nothing but the system, libobjc, libc++ and the substrate may be linked.
  tail -n +2 <<< "$libs" | awk '{print $1}' | while read -r dep; do
    case "$dep" in
      "$substrate" | /System/Library/Frameworks/*.framework/* | /usr/lib/libobjc.A.dylib | /usr/lib/libc++.1.dylib | \
        /usr/lib/libSystem.B.dylib) ;;
      *) echo "unexpected dependency $dep" ;;
    esac
  done > "$work/$layout.deps"
  [ ! -s "$work/$layout.deps" ] || fail "$layout: $(tr '\n' ' ' < "$work/$layout.deps")"

  local rpaths
  rpaths=$(grep -A2 'cmd LC_RPATH' <<< "$headers" | awk '/ path /{print $2}' || true)
  if [ "$layout" = rootless ]; then
    expect_line "rootless rpaths" "$rpaths" /var/jb/Library/Frameworks
    expect_line "rootless rpaths" "$rpaths" /var/jb/usr/lib
  else
    [ -z "$rpaths" ] || fail "rootful: unexpected rpaths $rpaths"
  fi
  # Symbols stay hidden: a hook library exports nothing.
  [ -z "$(llvm-nm-14 -gU "$dylib" 2>/dev/null)" ] || fail "$layout: exports symbols"
  [ "$failures" -ne "$failures_before" ] || echo "ok $layout: $(basename "$deb")"
}

check rootful iphoneos-arm ""
check rootless iphoneos-arm64 /var/jb

# The resource data itself: the five settings keys with boolean defaults, and a well-formed strings table.
python3 - "$work/rootful/var/quorvane_tweak_resources/qvdovrinkit/QVVPPResources.bundle" <<'PY' || failures=$((failures + 1))
import plistlib, re, sys
bundle = sys.argv[1]
with open(f"{bundle}/DefaultPreferences.plist", "rb") as f:
    defaults = plistlib.load(f)
keys = {"enableDowngradeOptions_QV", "longPressToShowDowngradeOptions_QV", "holdToDowngradeTipsShown_QV",
        "disableAppCaching_QV", "disableUpdateBlocker_QV"}
problems = []
if set(defaults) != keys:
    problems.append(f"DefaultPreferences keys {sorted(defaults)}")
problems += [f"{k} is not a boolean" for k, v in defaults.items() if not isinstance(v, bool)]
entry = re.compile(r'^"((?:[^"\\]|\\.)*)" = "((?:[^"\\]|\\.)*)";$')
with open(f"{bundle}/en.lproj/Localizable.strings", encoding="utf-8") as f:
    for number, line in enumerate(f, 1):
        line = line.strip()
        if line and not line.startswith("/*") and not entry.match(line):
            problems.append(f"Localizable.strings line {number} malformed")
for problem in problems:
    print(f"check-packages: {problem}", file=sys.stderr)
sys.exit(1 if problems else 0)
PY

if [ "$failures" -ne 0 ]; then
  echo "check-packages: $failures problem(s)" >&2
  exit 1
fi
echo "check-packages: both packages verified"
