#!/usr/bin/env bash
# GET versions from the service beside nginx serving the same reply bytes as a static file, in one run: the same
# cores, the same worker count, the same wrk load, warm caches; prints both servers' figures and their ratios.
set -euo pipefail
build=${BUILD_DIR:-build/linux}
load=$build/bench/service_load
# QVDOVRIN=path measures another build of the service beside the same nginx, e.g. before and after a change.
cli=${QVDOVRIN:-$build/tools/qvdovrin/qvdovrin}
seconds=${LOAD_SECONDS:-10}
rounds=${BENCH_ROUNDS:-5}
round_seconds=$(((seconds + rounds - 1) / rounds))
threads=${BENCH_THREADS:-$(nproc)}
connections=${BENCH_CONNECTIONS:-32}
for program in "$load" "$cli"; do
  [ -x "$program" ] || { echo "beside_nginx: $program is missing; build the linux preset first" >&2; exit 1; }
done
for tool in nginx wrk; do
  command -v "$tool" >/dev/null || { echo "beside_nginx: $tool is missing; run scripts/bootstrap.sh" >&2; exit 1; }
done

work=$(mktemp -d)
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; wait "$pid" 2>/dev/null || true; done
  rm -rf "$work"
}
trap cleanup EXIT
# nginx's workers run as nobody when started as root; they read the static file through this folder.
chmod 755 "$work"

pin=()
command -v taskset >/dev/null && pin=(taskset -c "0-$((threads > 1 ? threads - 1 : 0))")

free_port() { python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'; }

# Waits until a GET of the URL answers 200.
await() {
  for _ in $(seq 100); do
    curl -sf -o /dev/null "$1" && return 0
    sleep 0.1
  done
  echo "beside_nginx: nothing answers $1" >&2
  exit 1
}

app=100000000
path=/v1/apple_apps/$app/versions
"$load" seed --db "$work/versions.sqlite" --apps 1000 --versions 20 >/dev/null
service_port=$(free_port)
"${pin[@]}" "$cli" serve --listen "127.0.0.1:$service_port" --db "$work/versions.sqlite" --threads "$threads" \
  >"$work/serve.out" 2>&1 &
pids+=($!)
await "http://127.0.0.1:$service_port$path"

# The static copy is the service's own reply body, byte for byte.
mkdir -p "$work/static$(dirname "$path")"
curl -sf -o "$work/static$path" "http://127.0.0.1:$service_port$path"
chmod -R a+rX "$work/static"
nginx_port=$(free_port)
cat >"$work/nginx.conf" <<EOF
worker_processes $threads;
daemon off;
pid $work/nginx.pid;
error_log $work/nginx-error.log;
events { worker_connections 4096; }
http {
  access_log off;
  default_type application/json;
  # As Debian's own nginx.conf has it: the header and the file leave in one segment.
  sendfile on;
  tcp_nopush on;
  tcp_nodelay on;
  open_file_cache max=64 inactive=600s;
  open_file_cache_valid 600s;
  keepalive_requests 100000000;
  server {
    listen 127.0.0.1:$nginx_port;
    root $work/static;
  }
}
EOF
"${pin[@]}" nginx -c "$work/nginx.conf" -p "$work" &
pids+=($!)
await "http://127.0.0.1:$nginx_port$path"
cmp -s <(curl -sf "http://127.0.0.1:$nginx_port$path") "$work/static$path" ||
  { echo "beside_nginx: nginx serves other bytes than the service" >&2; exit 1; }

# One wrk round against a URL; prints "requests-per-second p99-in-milliseconds".
measure() {
  local url=$1 duration=$2 out=$work/round.txt
  "${pin[@]}" wrk -t "$threads" -c "$connections" -d "${duration}s" --latency "$url" >"$out"
  if grep -q "Non-2xx" "$out"; then
    echo "beside_nginx: $url answered other than 200" >&2
    exit 1
  fi
  awk '/^Requests\/sec:/ { rate = $2 }
       $1 == "99%" { v = $2; unit = v; sub(/[0-9.]+/, "", unit); sub(/[a-z]+$/, "", v)
                     if (unit == "us") v /= 1000; else if (unit == "s") v *= 1000; p99 = v }
       END { printf "%.0f %.3f\n", rate, p99 }' "$out"
}

echo "GET $path ($(stat -c %s "$work/static$path") bytes) from the service and from nginx: $threads threads/workers" \
  "each, wrk -t $threads -c $connections, ${rounds} alternating rounds of ${round_seconds}s each," \
  "$(nproc) cores (load average $(cut -d" " -f1-3 /proc/loadavg))"
# A short first round warms both servers' caches; after it the servers take turns, so that whatever else the
# machine does meanwhile falls on both alike.
measure "http://127.0.0.1:$service_port$path" 1 >/dev/null
measure "http://127.0.0.1:$nginx_port$path" 1 >/dev/null
: >"$work/figures.txt"
for round in $(seq "$rounds"); do
  echo "service $(measure "http://127.0.0.1:$service_port$path" "$round_seconds")" >>"$work/figures.txt"
  echo "nginx $(measure "http://127.0.0.1:$nginx_port$path" "$round_seconds")" >>"$work/figures.txt"
done
# Throughput over all rounds; p99 as the median of the rounds' p99s, so one stalled round does not decide it.
awk -v load="$(cut -d" " -f1 /proc/loadavg)" '
  { rate[$1] += $2; n[$1]++; p99[$1, n[$1]] = $3 }
  function median(server,   i, j, t, k, a) {
    k = n[server]; for (i = 1; i <= k; i++) a[i] = p99[server, i]
    for (i = 1; i <= k; i++) for (j = i + 1; j <= k; j++) if (a[j] < a[i]) { t = a[i]; a[i] = a[j]; a[j] = t }
    return k % 2 ? a[(k + 1) / 2] : (a[k / 2] + a[k / 2 + 1]) / 2
  }
  END {
    for (i = 1; i <= n["service"]; i++) rounds = rounds sprintf(" %.1f/%.1f", p99["service", i], p99["nginx", i])
    printf "p99 per round, service/nginx (ms):%s\n", rounds
    s = rate["service"] / n["service"]; g = rate["nginx"] / n["nginx"]
    sp = median("service"); gp = median("nginx")
    printf "service: %d req/s, p99 %.2f ms\n", s, sp
    printf "nginx:   %d req/s, p99 %.2f ms\n", g, gp
    printf "GET versions beside nginx: throughput %.2fx (goal: at least 0.90), p99 %.2fx (goal: at most 1.50); load average %s\n", s / g, sp / gp, load
  }' "$work/figures.txt"
