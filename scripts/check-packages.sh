#!/usr/bin/env bash
# Inspects the built .deb packages: file lists, control fields, the preinst, the resource folder, and each slice of
# the phone library: architecture, minimum iOS, pointer format, signature, load commands, imports against the iOS
# SDKs' stubs and exports; and the service address the library holds.
# usage: check-packages.sh PACKAGE_DIR VERSION [ARCHS]   (ARCHS: the slices the build made, "arm64" or "arm64,arm64e")
# QV_ALLOW_LOOPBACK=1 in the environment accepts a library built to talk to a service on the phone itself.
set -euo pipefail

dir=${1:?package directory}
version=${2:?version}
IFS=',; ' read -r -a archs <<< "${3:-arm64}"
scripts=$(dirname "$0")
# Every row of the hook table must have its body in the library.
hook_rows=$(grep -c '^ *HookRow{' "$scripts/../src/core/hook_table.h")
package_id=com.quorvane.qvdovrinkit
otool=${OTOOL:-llvm-otool-22}
objdump=${OBJDUMP:-llvm-objdump-22}
lipo=${LIPO:-llvm-lipo-22}
nm=${NM:-llvm-nm-22}
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

# The resource override answers every bundle of the store processes that asks for a name lying at the top of the
# resource folder, so only names the library itself asks for may lie there: its settings defaults, its two images
# and the string tables' folders. An Info.plist there would answer for the store's own.
check_resource_names() { # layout file-list resource-folder
  local name
  while read -r name; do
    case "$name" in
      DefaultPreferences.plist | settings.png | settings@[23]x.png | share.png | share@[23]x.png | *.lproj) ;;
      *) fail "$1: $name lies at the top of the resource folder; every bundle asking for that name would get ours" ;;
    esac
  done < <(sed -n "s#^$3/\([^/]*\)\$#\1#p" <<< "$2")
}

# Every symbol one slice binds without weak import must exist in each iOS SDK's stubs from the slice's deployment
# target up, or the store processes stop at launch on that iOS; nothing may be exported into their namespace.
check_load_safety() { # layout dylib arch
  local output
  if output=$(python3 "$scripts/check-load-safety.py" --arch "$3" "$2" 2>&1); then
    sed "s/^/$1 /" <<< "$output"
  else
    sed "s/^/$1 /" <<< "$output" >&2
    fail "$1: the $3 slice is not safe to load"
  fi
}

# A library for people must reach a real service; only a build that asked for loopback may carry it.
check_service_address() { # layout dylib
  [ "${QV_ALLOW_LOOPBACK:-}" = 1 ] && return
  if grep -qaF -e 127.0.0.1 -e //localhost "$2"; then
    fail "$1: the library holds a loopback address (127.0.0.1 or localhost); build with QV_API_BASE_URL=https://…/"
  fi
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
  dpkg-deb -f "$deb" Description | tr '\n' ' ' | tr -s ' ' |
    grep -q 'arm64 devices (A8-A11) from iOS 11 and on arm64e devices (A12 and newer) from iOS 14' ||
    fail "$layout: Description does not say which devices and iOS versions load it"

  # The preinst stops the install on arm64e devices below iOS 14; it must run, so it must be there and executable.
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
  for path in "$lib/Verdigo.dylib" "$lib/Verdigo.plist" "$res/DefaultPreferences.plist" \
    "$res/en.lproj/Localizable.strings" "$res/settings.png" "$res/share.png"; do
    expect_line "$layout files" "$files" "$path"
  done
  check_resource_names "$layout" "$files" "$res"
  if [ "$layout" = rootless ]; then
    local outside
    outside=$(grep -v -E '^(/var|/var/jb(/.*)?)?$' <<< "$files" || true)
    [ -z "$outside" ] || fail "rootless: outside /var/jb: $(tr '\n' ' ' <<< "$outside")"
  fi

  local root="$work/$layout"
  dpkg-deb -x "$deb" "$root"
  local dylib="$root$lib/Verdigo.dylib"
  grep -q 'Mach-O.* dynamically linked shared library' <<< "$(file -b "$dylib")" ||
    fail "$layout: not a Mach-O dylib: $(file -b "$dylib")"
  grep -q '"com.apple.AppStore"' "$root$lib/Verdigo.plist" || fail "$layout: filter lacks com.apple.AppStore"
  grep -q '"com.apple.itunesstored"' "$root$lib/Verdigo.plist" || fail "$layout: filter lacks com.apple.itunesstored"
  check_slices "$layout" "$dylib"
  check_service_address "$layout" "$dylib"
  local slice
  for slice in "${archs[@]}"; do
    if [ -f "$work/$layout.$slice.dylib" ]; then
      check_load_commands "$layout" "$slice" "$work/$layout.$slice.dylib"
      check_load_safety "$layout" "$work/$layout.$slice.dylib" "$slice"
    fi
  done
  [ "$failures" -ne "$failures_before" ] || echo "ok $layout: $(basename "$deb")"
}

# The minimum iOS each slice is built for: arm64 keeps the project's target, arm64e starts where its ABI does.
minimum_ios() {
  case "$1" in
    arm64) echo 11.0 ;;
    arm64e) echo 14.0 ;;
  esac
}

# check_slices LAYOUT DYLIB: exactly the built slices, each as its devices' loader accepts it (subtype, minimum iOS,
# pointer format, signature); leaves each slice thin in $work/LAYOUT.ARCH.dylib for the checks that read one slice.
check_slices() {
  local layout=$1 dylib=$2
  local info expected arch specs=()
  info=$("$lipo" -info "$dylib" 2>&1) || { fail "$layout: lipo cannot read the library: $info"; return; }
  echo "$layout: ${info//$dylib/Verdigo.dylib}"
  expected=$(printf '%s\n' "${archs[@]}" | sort | tr '\n' ' ')
  [ "$(sed 's/.*: //' <<< "$info" | tr ' ' '\n' | grep . | sort | tr '\n' ' ')" = "$expected" ] ||
    fail "$layout: slices are not ${archs[*]}: $info"
  for arch in "${archs[@]}"; do
    specs+=(--slice "$arch:$(minimum_ios "$arch")")
    if [ ${#archs[@]} -eq 1 ]; then
      cp "$dylib" "$work/$layout.$arch.dylib"
    else
      "$lipo" "$dylib" -thin "$arch" -output "$work/$layout.$arch.dylib" 2> /dev/null || rm -f "$work/$layout.$arch.dylib"
    fi
  done
  python3 "$scripts/check-macho-slices.py" "${specs[@]}" --hook-rows "$hook_rows" "$dylib" | sed "s|^ok $dylib |$layout |" ||
    fail "$layout: slices"
}

# check_load_commands LAYOUT ARCH SLICE: install name, dependencies, run paths and exports of one thin slice.
check_load_commands() {
  local layout=$1 dylib=$3 label="$1 $2"
  local headers libs
  headers=$("$objdump" --macho --private-headers "$dylib")
  libs=$("$otool" -L "$dylib" | tail -n +2 | sed 's/^[[:space:]]*//')

  local substrate install_name
  if [ "$layout" = rootful ]; then
    substrate=/Library/Frameworks/CydiaSubstrate.framework/CydiaSubstrate
    install_name=/Library/MobileSubstrate/DynamicLibraries/Verdigo.dylib
  else
    substrate=@rpath/CydiaSubstrate.framework/CydiaSubstrate
    install_name=@rpath/Verdigo.dylib
  fi
  [ "$(head -1 <<< "$libs" | awk '{print $1}')" = "$install_name" ] || fail "$label: install name is not $install_name"
  grep -A2 'cmd LC_LOAD_WEAK_DYLIB' <<< "$headers" | grep -qF "name $substrate " ||
    fail "$label: $substrate is not a weak load"
  # Nothing but the system, libobjc, libc++ and the substrate may be linked.
  tail -n +2 <<< "$libs" | awk '{print $1}' | while read -r dep; do
    case "$dep" in
      "$substrate" | /System/Library/Frameworks/*.framework/* | /usr/lib/libobjc.A.dylib | /usr/lib/libc++.1.dylib | \
        /usr/lib/libSystem.B.dylib) ;;
      *) echo "unexpected dependency $dep" ;;
    esac
  done > "$work/deps"
  [ ! -s "$work/deps" ] || fail "$label: $(tr '\n' ' ' < "$work/deps")"

  local rpaths
  rpaths=$(grep -A2 'cmd LC_RPATH' <<< "$headers" | awk '/ path /{print $2}' || true)
  if [ "$layout" = rootless ]; then
    expect_line "$label rpaths" "$rpaths" /var/jb/Library/Frameworks
    expect_line "$label rpaths" "$rpaths" /var/jb/usr/lib
  else
    [ -z "$rpaths" ] || fail "$label: unexpected rpaths $rpaths"
  fi
  # Symbols stay hidden: a hook library exports nothing.
  [ -z "$("$nm" -gU "$dylib" 2>/dev/null)" ] || fail "$label: exports symbols"
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
