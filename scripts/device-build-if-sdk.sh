#!/usr/bin/env bash
# Builds the fat phone library and both packages when the iOS SDK and the arm64e linker are here; else says in one
# line what is missing.
set -euo pipefail
cd "$(dirname "$0")/.."
if ! missing=$(scripts/device-toolchain.sh "arm64;arm64e"); then
  echo "device build skipped: $missing"
  exit 0
fi
make package
