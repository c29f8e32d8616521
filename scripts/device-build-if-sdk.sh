#!/usr/bin/env bash
# Builds the phone library and both packages when an iOS SDK is present; says so in one line when it is not.
set -euo pipefail
sdk="${SDKROOT:-${THEOS:-$HOME/theos}/sdks/iPhoneOS15.6.sdk}"
if [ ! -d "$sdk" ]; then
  echo "device build skipped: no iOS SDK at $sdk"
  exit 0
fi
make package
