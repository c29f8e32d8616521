#!/usr/bin/env bash
# Runs the packages' preinst against stubbed sysctl, uname and sw_vers: only an arm64e device below iOS 14 is stopped.
set -uo pipefail
preinst="$(dirname "$0")/../../resources/packaging/preinst"
stubs=$(mktemp -d "${TMPDIR:-/tmp}/verdigo-preinst.XXXXXX")
trap 'rm -rf "$stubs"' EXIT
refused="needs iOS 14 or later on A12 and newer devices (arm64e)"

# name | hw.cpusubtype | uname -m | sw_vers -productVersion | kern.osproductversion | uname -r | argument | exit |
#   stderr contains ("-": the stub has no answer)
cases=(
  "arm64e on iOS 13|2|iPhone11,8|13.5.1|-|19.5.0|install|1|$refused; this one runs iOS 13.5.1."
  "arm64e on iOS 12|2|iPhone11,2|12.4|-|18.7.0|install|1|runs iOS 12.4."
  "arm64e on iOS 14|2|iPhone12,1|14.0|-|20.0.0|install|0|"
  "arm64e on iOS 16|2|iPhone15,2|16.5|-|22.5.0|upgrade|0|"
  "arm64e subtype with the capability bits, iOS 13|-2147483646|-|13.7|-|-|install|1|$refused"
  "arm64e subtype with the capability bits, iOS 15|-2147483646|-|15.1|-|-|install|0|"
  "arm64 on iOS 11|0|iPhone10,3|11.4|-|17.7.0|install|0|"
  "arm64 v8 subtype on iOS 13|1|-|13.3|-|-|install|0|"
  "arm64 on iOS 16|0|iPhone10,6|16.7.2|-|22.6.0|install|0|"
  "subtype wins over the model|1|iPhone14,2|13.0|-|-|install|0|"
  "no sysctl, A12 phone, iOS 13|-|iPhone11,2|13.2|-|19.2.0|install|1|$refused"
  "no sysctl, A12X tablet, iOS 14|-|iPad8,1|14.4|-|20.4.0|install|0|"
  "no sysctl, A11 phone, iOS 12|-|iPhone10,6|12.1|-|18.2.0|install|0|"
  "unknown model, iOS 12|-|Watch4,1|12.0|-|18.0.0|install|0|"
  "no sw_vers: kern.osproductversion|2|iPhone11,8|-|13.6|19.6.0|install|1|runs iOS 13.6."
  "no sw_vers: kern.osproductversion 14|2|iPhone11,8|-|14.2|20.2.0|install|0|"
  "only the kernel release: Darwin 19 is iOS 13|2|iPhone11,8|-|-|19.6.0|install|1|runs iOS 13."
  "only the kernel release: Darwin 20 is iOS 14|2|iPhone11,8|-|-|20.6.0|install|0|"
  "arm64e, version unknown|2|iPhone11,8|-|-|-|install|0|"
  "sw_vers answers nonsense|2|iPhone11,8|unknown|-|19.0.0|install|1|runs iOS 13."
  "aborted upgrade never stops|2|iPhone11,8|13.5|-|19.5.0|abort-upgrade|0|"
)

# stub NAME ANSWER...: a command printing the answer given for its arguments ("-" answers nothing and fails).
stub() {
  local name=$1
  shift
  {
    echo '#!/bin/sh'
    echo 'case "$*" in'
    while [ $# -gt 0 ]; do
      [ "$2" != - ] && printf "  '%s') echo '%s'; exit 0 ;;\n" "$1" "$2"
      shift 2
    done
    echo 'esac'
    echo 'exit 1'
  } > "$stubs/$name"
  chmod +x "$stubs/$name"
}

failures=0
for row in "${cases[@]}"; do
  IFS='|' read -r name subtype model version product darwin argument expected_code expected_text <<< "$row"
  rm -f "$stubs"/*
  stub sysctl "-n hw.cpusubtype" "$subtype" "-n kern.osproductversion" "$product"
  stub uname "-m" "$model" "-r" "$darwin"
  stub sw_vers "-productVersion" "$version"
  # The absolute sysctl and sw_vers paths the preinst also tries know neither answer off the phone.
  stderr=$(PATH="$stubs:$PATH" sh "$preinst" "$argument" 2>&1 >/dev/null)
  code=$?
  if [ "$code" != "$expected_code" ] || [[ "$stderr" != *"$expected_text"* ]]; then
    echo "FAIL $name: exit $code (expected $expected_code), stderr: $stderr" >&2
    failures=$((failures + 1))
  elif [ -z "$expected_text" ] && [ -n "$stderr" ]; then
    echo "FAIL $name: expected a silent install, got: $stderr" >&2
    failures=$((failures + 1))
  elif [ "$(wc -l <<< "$stderr")" -gt 1 ]; then
    echo "FAIL $name: the refusal is more than one line: $stderr" >&2
    failures=$((failures + 1))
  fi
done
[ "$failures" -eq 0 ] && echo "preinst: ${#cases[@]} cases pass"
exit $((failures > 0))
