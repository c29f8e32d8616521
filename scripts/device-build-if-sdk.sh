#!/usr/bin/env bash
# Builds the fat phone library, both packages and the package source when the iOS SDK and the arm64e linker are here,
# and has apt read that source; else says in one line what is missing.
set -euo pipefail
cd "$(dirname "$0")/.."
if ! missing=$(scripts/device-toolchain.sh "arm64;arm64e"); then
  echo "device build skipped: $missing"
  exit 0
fi
# CI's packages only prove the build and are never installed; the reserved .invalid name can reach nothing, and keeps
# the check that a library without QV_ALLOW_LOOPBACK holds no loopback address in force.
make package QV_API_BASE_URL=https://ci-check.invalid/
# The package source from those packages, read by apt through the service (the linux build made by make test).
make repo QV_API_BASE_URL=https://ci-check.invalid/
ctest --test-dir build/linux -R '^Service\.PackageSourceApt$' --output-on-failure
