#!/usr/bin/env bash
# Runs the phone build's toolchain check against made-up SDK and linker folders: what it asks for follows the slices.
set -uo pipefail
check="$(dirname "$0")/../../scripts/device-toolchain.sh"
root=$(mktemp -d "${TMPDIR:-/tmp}/verdigo-toolchain.XXXXXX")
trap 'rm -rf "$root"' EXIT
mkdir -p "$root/theos/sdks/iPhoneOS15.6.sdk" "$root/theos/toolchain/ld64/bin" "$root/empty"
touch "$root/theos/sdks/iPhoneOS15.6.sdk/SDKSettings.json"
printf '#!/bin/sh\n' > "$root/theos/toolchain/ld64/bin/ld64"
chmod +x "$root/theos/toolchain/ld64/bin/ld64"

# name | THEOS | SDKROOT | LD64_PREFIX | slices | exit | output ("" = silent; else the text it must hold)
cases=(
  "everything there|$root/theos|||arm64;arm64e|0|"
  "linker from LD64_PREFIX|$root/empty|$root/theos/sdks/iPhoneOS15.6.sdk|$root/theos/toolchain/ld64|arm64;arm64e|0|"
  "no linker, both slices|$root/theos||$root/empty|arm64;arm64e|1|no arm64e linker at $root/empty/bin/ld64"
  "no linker, arm64 only|$root/theos||$root/empty|arm64|0|"
  "no linker, default slices|$root/theos||$root/empty||1|build arm64 only with ARCHS=arm64"
  "no SDK|$root/empty|||arm64|1|no iOS SDK at $root/empty/sdks/iPhoneOS15.6.sdk"
  "neither, on one line|$root/empty|||arm64;arm64e|1|iPhoneOS15.6.sdk; no arm64e linker"
)

failures=0
for row in "${cases[@]}"; do
  IFS='|' read -r name theos sdkroot prefix slices expected_code expected_text <<< "$row"
  output=$(THEOS=$theos SDKROOT=$sdkroot LD64_PREFIX=$prefix bash "$check" ${slices:+"$slices"} 2>&1)
  code=$?
  if [ "$code" != "$expected_code" ] || [[ "$output" != *"$expected_text"* ]] ||
    { [ -z "$expected_text" ] && [ -n "$output" ]; } || [ "$(wc -l <<< "$output")" -gt 1 ]; then
    echo "FAIL $name: exit $code (expected $expected_code), output: $output" >&2
    failures=$((failures + 1))
  fi
done
[ "$failures" -eq 0 ] && echo "device toolchain: ${#cases[@]} cases pass"
exit $((failures > 0))
