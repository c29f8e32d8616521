#!/usr/bin/env bash
# Runs the tests of a coverage build and prints the line coverage of src/ and server/ (the phone adapters excluded).
set -euo pipefail
build=${1:-build/coverage}
profiles=$(mktemp -d)
trap 'rm -rf "$profiles"' EXIT
# Some tests run the tool as an unprivileged user, which must be able to write its profile too.
chmod 1777 "$profiles"
# Every process the tests start (the command-line tool too) writes its own profile.
LLVM_PROFILE_FILE="$profiles/%p-%m.profraw" ctest --test-dir "$build" -j 2 --timeout 600 >"$profiles/ctest.log" 2>&1 ||
  { tail -20 "$profiles/ctest.log"; echo "coverage: tests failed" >&2; exit 1; }
llvm-profdata-14 merge -sparse "$profiles"/*.profraw -o "$profiles/merged.profdata"
objects=("$build/tests/qv_tests" -object "$build/tools/qvdovrin/qvdovrin")
ignore='/(tests|tools|bench|third_party)/|/src/darwin/|^/usr/'
llvm-cov-14 report "${objects[@]}" -instr-profile="$profiles/merged.profdata" -ignore-filename-regex="$ignore" 2>/dev/null |
  tee "$profiles/report.txt" | tail -1 |
  awk '{ printf "coverage: %s of %s lines of src/ and server/ run by the tests (%s)\n", $8 - $9, $8, $10 }'
for part in src server; do
  other=$([ "$part" = src ] && echo server || echo src)
  llvm-cov-14 report "${objects[@]}" -instr-profile="$profiles/merged.profdata" -ignore-filename-regex="$ignore|/$other/" 2>/dev/null |
    tail -1 | awk -v part="$part" '{ printf "  %-7s %s lines, %s covered\n", part "/", $8, $10 }'
done
