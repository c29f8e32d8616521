#!/usr/bin/env bash
# Runs each libFuzzer target for a bounded time, starting from its seed corpus.
set -euo pipefail
dir=${1:-build/fuzz/tests/fuzz}
seconds=${2:-30}
shopt -s nullglob
corpus_root=tests/fuzz/corpus
for target in "$dir"/*_fuzz; do
  [ -x "$target" ] || continue
  name=$(basename "$target")
  work=$(mktemp -d)
  [ -d "$corpus_root/$name" ] && cp -r "$corpus_root/$name"/. "$work"/ 2>/dev/null || true
  echo "== $name (${seconds}s)"
  "$target" -max_total_time="$seconds" -rss_limit_mb=2048 -max_len=65536 -print_final_stats=1 "$work" 2>&1 | tail -n 12
  rm -rf "$work"
done
