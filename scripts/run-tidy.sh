#!/usr/bin/env bash
# Runs clang-tidy over the project's sources and tests (fakes and support helpers included) with the build's
# compile database, and ends with the number of findings per file.
# usage: run-tidy.sh [BUILD_DIR] [sources|tests|all]   (default: build/linux all)
set -euo pipefail
build=${1:-build/linux}
scope=${2:-all}
patterns=()
case "$scope" in
  sources) patterns=('src/*.cpp' 'tools/*.cpp' 'server/*.cpp') ;;
  tests) patterns=('tests/*.cpp') ;;
  all) patterns=('src/*.cpp' 'tools/*.cpp' 'server/*.cpp' 'tests/*.cpp') ;;
  *)
    echo "usage: run-tidy.sh [BUILD_DIR] [sources|tests|all]" >&2
    exit 2
    ;;
esac
# The phone sources are not in a Linux compile database.
mapfile -t files < <(git ls-files --cached --others --exclude-standard "${patterns[@]}" | grep -v '^src/darwin/')
[ ${#files[@]} -eq 0 ] && exit 0
out=$(mktemp)
trap 'rm -f "$out"' EXIT
status=0
printf '%s\n' "${files[@]}" | xargs -P 2 -n 4 clang-tidy -p "$build" --quiet --extra-arg=-Wno-unknown-warning-option \
  --warnings-as-errors='*' > "$out" 2>&1 || status=$?
grep -v -E '^[0-9]+ warnings? (and [0-9]+ errors? )?generated\.$|^Suppressed [0-9]+ warnings|^Use -header-filter|^Use -system-headers' "$out" || true
if [ "$status" -ne 0 ]; then
  # One finding per distinct location and check: a header included by several files is counted once.
  echo "tidy: findings per file" >&2
  grep -oE "^[^ :]+:[0-9]+:[0-9]+: (warning|error): .*\[[a-z0-9.,-]+\]$" "$out" |
    sed -E 's/: (warning|error): .*\[/ [/' | sort -u |
    awk '{ split($1, at, ":"); file = at[1]; sub("^" ENVIRON["PWD"] "/", "", file); count[file]++ }
         END { for (file in count) printf "%5d  %s\n", count[file], file }' | sort -k2 >&2
  echo "tidy: findings above" >&2
  exit 1
fi
echo "tidy: ${#files[@]} files clean"
