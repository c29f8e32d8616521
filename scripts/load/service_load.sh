#!/usr/bin/env bash
# Load test of the version service on loopback: seed 10,000 apps x 20 versions, serve on 2 cores, measure
# GET versions and POST reports for a bounded time and count, then stop everything.
set -euo pipefail
build=${BUILD_DIR:-build/linux}
load=$build/bench/service_load
cli=$build/tools/qvdovrin/qvdovrin
seconds=${LOAD_SECONDS:-10}
for program in "$load" "$cli"; do
  [ -x "$program" ] || { echo "service_load: $program is missing; build the linux preset first" >&2; exit 1; }
done

work=$(mktemp -d)
server_pid=
cleanup() {
  if [ -n "$server_pid" ]; then kill "$server_pid" 2>/dev/null || true; wait "$server_pid" 2>/dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT

pin=()
command -v taskset >/dev/null && pin=(taskset -c 0,1)

"$load" seed --db "$work/versions.sqlite" --apps 10000 --versions 20
"${pin[@]}" "$cli" serve --listen 127.0.0.1:0 --db "$work/versions.sqlite" >"$work/serve.out" 2>&1 &
server_pid=$!
port=
for _ in $(seq 100); do
  port=$(sed -n 's/^serving on http:\/\/127\.0\.0\.1:\([0-9]*\).*/\1/p' "$work/serve.out")
  [ -n "$port" ] && break
  sleep 0.1
done
[ -n "$port" ] || { echo "service_load: the service did not start" >&2; cat "$work/serve.out" >&2; exit 1; }
echo "service on 127.0.0.1:$port, $(nproc) cores (load average $(cut -d" " -f1 /proc/loadavg)), ${seconds}s per phase; target: GET versions >= 20000 req/s with p99 < 5 ms"

"${pin[@]}" "$load" get --port "$port" --apps 10000 --connections 2 --seconds "$seconds" --max-requests 2000000
"${pin[@]}" "$load" post --port "$port" --apps 10000 --connections 4 --seconds "$((seconds / 2 > 0 ? seconds / 2 : 1))" \
  --max-requests 500000
