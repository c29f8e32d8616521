#!/usr/bin/env bash
# Says in one line what the phone build lacks for the slices asked (the iOS SDK; ld64 for arm64e); silent when nothing.
# usage: device-toolchain.sh [ARCHS]   (ARCHS: "arm64;arm64e" by default, or "arm64"); exit 1 when something lacks.
# Looks where cmake/ios.toolchain.cmake looks: SDKROOT or THEOS or ~/theos for the SDK, LD64_PREFIX or THEOS or ~/theos
# for the linker.
set -euo pipefail
archs=${1:-arm64;arm64e}
theos=${THEOS:-$HOME/theos}
sdk=${SDKROOT:-$theos/sdks/iPhoneOS15.6.sdk}
ld64=${LD64_PREFIX:-$theos/toolchain/ld64}/bin/ld64

missing=()
[ -f "$sdk/SDKSettings.json" ] || [ -f "$sdk/SDKSettings.plist" ] || missing+=("no iOS SDK at $sdk")
if [[ ";$archs;" == *";arm64e;"* ]] && [ ! -x "$ld64" ]; then
  missing+=("no arm64e linker at $ld64: build it there with build-ld64 as README \"The phone library\" says (or set \
LD64_PREFIX), or build arm64 only with ARCHS=arm64")
fi
[ ${#missing[@]} -eq 0 ] && exit 0
(IFS=';' && echo "${missing[*]}" | sed 's/;/; /g')
exit 1
