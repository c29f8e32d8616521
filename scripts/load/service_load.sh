#!/usr/bin/env bash
# Load test of the version service on loopback: seed 10,000 apps x 20 versions, serve on 2 cores, and measure
# GET versions plain, with 1,000 idle and 8 slow-header clients held open and while 16 clients post 2,000-version
# reports, POST reports, a compression bomb, the memory 300 idle clients hold after a 1.5 MB reply, and the same
# front answering a constant body; every phase is bounded in time and count.
set -euo pipefail
build=${BUILD_DIR:-build/linux}
load=$build/bench/service_load
cli=$build/tools/qvdovrin/qvdovrin
seconds=${LOAD_SECONDS:-10}
for program in "$load" "$cli"; do
  [ -x "$program" ] || { echo "service_load: $program is missing; build the linux preset first" >&2; exit 1; }
done

work=$(mktemp -d)
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; wait "$pid" 2>/dev/null || true; done
  rm -rf "$work"
}
trap cleanup EXIT

pin=()
command -v taskset >/dev/null && pin=(taskset -c 0,1)

# Starts a server command in the background; sets started_port to the port it announces, started_pid to its pid.
start() {
  local out=$1
  shift
  : >"$out"
  "${pin[@]}" "$@" >"$out" 2>&1 &
  started_pid=$!
  pids+=("$started_pid")
  started_port=
  for _ in $(seq 100); do
    started_port=$(sed -n 's/^serving on http:\/\/127\.0\.0\.1:\([0-9]*\).*/\1/p' "$out")
    [ -n "$started_port" ] && break
    sleep 0.1
  done
  [ -n "$started_port" ] || { echo "service_load: $1 did not start" >&2; cat "$out" >&2; exit 1; }
}

rate() { sed -n 's/.* \([0-9]*\) req\/s.*/\1/p' | tail -1; }

"$load" seed --db "$work/versions.sqlite" --apps 10000 --versions 20
start "$work/serve.out" "$cli" serve --listen 127.0.0.1:0 --db "$work/versions.sqlite" \
  --max-writes-per-minute 0
port=$started_port
service_pid=$started_pid
echo "service on 127.0.0.1:$port, $(nproc) cores (load average $(cut -d" " -f1 /proc/loadavg)), ${seconds}s per phase"
echo "targets: GET versions p99 < 10 ms with 1,000 idle and 8 slow-header clients; a bomb costs < 16 MiB and < 100 ms"

get=(get --apps 10000 --connections 2 --seconds "$seconds" --max-requests 2000000)
"${pin[@]}" "$load" "${get[@]}" --port "$port" | tee "$work/get.txt"
"${pin[@]}" "$load" "${get[@]}" --port "$port" --idle 1000 --slow 8
"${pin[@]}" "$load" post --port "$port" --apps 10000 --connections 4 --seconds "$((seconds / 2 > 0 ? seconds / 2 : 1))" \
  --max-requests 500000
"$load" bomb --port "$port" --pid "$service_pid"
"${pin[@]}" "$load" "${get[@]}" --port "$port" --posters 16 --report-versions 2000 | tee "$work/get-posting.txt"
"$load" idle-memory --port "$port" --pid "$service_pid" --clients 300

start "$work/constant.out" "$load" constant --port 0 --connections 4
constant_port=$started_port
echo "the same front answering a constant body:"
"${pin[@]}" "$load" "${get[@]}" --port "$constant_port" | tee "$work/constant.txt"
service_rate=$(rate <"$work/get.txt")
constant_rate=$(rate <"$work/constant.txt")
posting_rate=$(rate <"$work/get-posting.txt")
awk -v s="$service_rate" -v p="$posting_rate" \
  'BEGIN { if (s > 0) printf "GET versions while 16 clients post 2,000-version reports: %d req/s, %.2f of %d req/s without them (goal: at least 0.50)\n", p, p / s, s }'
awk -v s="$service_rate" -v c="$constant_rate" \
  'BEGIN { if (c > 0) printf "GET versions throughput: service %d req/s, constant body %d req/s, ratio %.2f\n", s, c, s / c }'
