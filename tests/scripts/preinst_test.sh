#!/usr/bin/env bash
# Runs the packages' preinst against stubbed sysctl and uname answers: arm64 installs, arm64e stops, unknown warns.
set -uo pipefail
preinst="$(dirname "$0")/../../resources/packaging/preinst"
stubs=$(mktemp -d "${TMPDIR:-/tmp}/verdigo-preinst.XXXXXX")
trap 'rm -rf "$stubs"' EXIT

# name | sysctl hw.cpusubtype answer ("-" = no sysctl) | uname -m | preinst argument | exit code | stderr contains
cases=(
  "arm64e by subtype|2|iPhone11,8|install|1|cannot load it yet"
  "arm64e subtype with the capability bits|-2147483646|-|install|1|cannot load it yet"
  "arm64 by subtype|0|iPhone10,3|install|0|"
  "arm64 v8 subtype|1|-|upgrade|0|"
  "subtype wins over the model|1|iPhone14,2|install|0|"
  "no sysctl, A12 phone|-|iPhone11,2|install|1|cannot load it yet"
  "no sysctl, A12X tablet|-|iPad8,1|install|1|cannot load it yet"
  "no sysctl, A11 phone|-|iPhone10,6|install|0|"
  "no sysctl, A10 tablet|-|iPad7,11|install|0|"
  "no sysctl, unknown model|-|Watch4,1|install|0|Warning: could not tell"
  "sysctl answers nonsense|hw.cpusubtype: unknown|x86_64|install|0|Warning: could not tell"
  "aborted upgrade never stops|2|iPhone11,8|abort-upgrade|0|"
)

failures=0
for row in "${cases[@]}"; do
  IFS='|' read -r name subtype model argument expected_code expected_text <<< "$row"
  rm -f "$stubs"/*
  if [ "$subtype" != - ]; then
    printf '#!/bin/sh\n[ "$2" = hw.cpusubtype ] && echo "%s"\n' "$subtype" > "$stubs/sysctl"
  else
    printf '#!/bin/sh\nexit 1\n' > "$stubs/sysctl"
  fi
  printf '#!/bin/sh\necho "%s"\n' "$model" > "$stubs/uname"
  chmod +x "$stubs"/*
  # The absolute sysctl paths the preinst also tries do not know hw.cpusubtype off the phone.
  stderr=$(PATH="$stubs:$PATH" sh "$preinst" "$argument" 2>&1 >/dev/null)
  code=$?
  if [ "$code" != "$expected_code" ] || [[ "$stderr" != *"$expected_text"* ]]; then
    echo "FAIL $name: exit $code (expected $expected_code), stderr: $stderr" >&2
    failures=$((failures + 1))
  elif [ -z "$expected_text" ] && [ -n "$stderr" ]; then
    echo "FAIL $name: expected a silent install, got: $stderr" >&2
    failures=$((failures + 1))
  fi
done
[ "$failures" -eq 0 ] && echo "preinst: ${#cases[@]} cases pass"
exit $((failures > 0))
