#!/usr/bin/env bash
# Runs every benchmark program of a build directory and prints its figures.
set -euo pipefail
dir=${1:-build/linux/bench}
shopt -s nullglob
status=0
for bench in "$dir"/*_bench; do
  [ -x "$bench" ] || continue
  echo "== $(basename "$bench")"
  "$bench" --benchmark_counters_tabular=true || status=1
done
for load in scripts/load/*.sh; do
  echo "== $(basename "$load")"
  "$load" || status=1
done
exit $status
