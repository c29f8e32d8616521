#!/usr/bin/env python3
"""The service as an operator runs it: health, metrics read by promtool, the access log and its rotation, no password
at start-up, and a SIGTERM under load that answers every request under way and resets no connection."""
import json
import os
import re
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time

CLI = sys.argv[1]
failures = []


def check(condition, message):
    if not condition:
        failures.append(message)
        print(f"FAIL: {message}", file=sys.stderr)


def start(folder, *extra):
    process = subprocess.Popen([CLI, "serve", "--listen", "127.0.0.1:0", "--db", os.path.join(folder, "v.sqlite"),
                                *extra], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    first = process.stdout.readline()
    found = re.search(r"serving on http://127\.0\.0\.1:(\d+)/", first)
    if not found:
        process.kill()
        sys.exit(f"the service did not start: {first}{process.stdout.read()}")
    threading.Thread(target=process.stdout.read, daemon=True).start()
    return process, int(found.group(1))


def read_reply(sock, buffer=b""):
    """One whole reply: (status, headers, body, rest). Raises EOFError when the connection ends before any byte of
    it, and ValueError when it ends in the middle."""
    while b"\r\n\r\n" not in buffer:
        chunk = sock.recv(65536)
        if not chunk:
            if buffer:
                raise ValueError("the connection ended inside a header")
            raise EOFError
        buffer += chunk
    head, _, rest = buffer.partition(b"\r\n\r\n")
    lines = head.decode("latin-1").split("\r\n")
    headers = {k.strip().lower(): v.strip() for k, v in (line.split(":", 1) for line in lines[1:])}
    length = int(headers.get("content-length", "0"))
    while len(rest) < length:
        chunk = sock.recv(65536)
        if not chunk:
            raise ValueError("the connection ended inside a body")
        rest += chunk
    return int(lines[0].split()[1]), headers, rest[:length], rest[length:]


def request(port, method, target, body=b"", headers=""):
    with socket.create_connection(("127.0.0.1", port), timeout=10) as sock:
        sock.sendall(f"{method} {target} HTTP/1.1\r\nHost: t\r\nConnection: close\r\n{headers}"
                     f"Content-Length: {len(body)}\r\n\r\n".encode() + body)
        status, _, reply, _ = read_reply(sock)
        return status, reply


def report(app_id, versions):
    return json.dumps({"bundle_id": f"com.example.app{app_id}", "identifier": str(app_id), "title": "App",
                       "versions": [{"display": f"1.{n}", "externalId": str(1000 + n)} for n in range(versions)]}
                      ).encode()


def operator_endpoints(folder):
    log = os.path.join(folder, "access.log")
    process, port = start(folder, "--access-log", log)
    check(request(port, "POST", "/v1/apple_apps/1/versions", report(1, 3),
                  "Content-Type: application/json\r\n")[0] == 200, "a report is taken")
    check(request(port, "GET", "/v1/apple_apps/1/versions")[0] == 200, "versions are read")
    check(request(port, "GET", "/lookup?bundleId=com.private.name&token=hunter2")[0] == 200, "a lookup answers")
    # A rotation renames the file and asks for a new one. A request is logged once its reply is written, a moment
    # after the client has it.
    time.sleep(0.2)
    os.rename(log, log + ".1")
    process.send_signal(signal.SIGHUP)
    time.sleep(0.3)
    check(request(port, "GET", "/healthz")[0] == 200, "healthz answers 200 while the database answers")
    status, metrics = request(port, "GET", "/metrics")
    check(status == 200, "metrics answer 200")
    promtool = subprocess.run(["promtool", "check", "metrics"], input=metrics, capture_output=True)
    check(promtool.returncode == 0, "promtool accepts the metrics: " + promtool.stdout.decode() +
          promtool.stderr.decode())
    check(b'qvdovrin_http_requests_total{route="versions",status="200"} 2' in metrics,
          "metrics count the report and the read")
    os.remove(os.path.join(folder, "v.sqlite"))
    check(request(port, "GET", "/healthz")[0] == 503, "healthz answers 503 once the database file is gone")
    process.send_signal(signal.SIGTERM)
    check(process.wait(timeout=15) == 0, "the service exits 0 on SIGTERM")
    with open(log + ".1", encoding="utf-8") as lines:
        rotated = lines.read()
    with open(log, encoding="utf-8") as lines:
        logged = rotated + lines.read()
    check(rotated.count("\n") == 3, f"the requests before the rotation stay in the renamed file:\n{rotated}")
    check(logged.count("\n") == 6, f"one line per request:\n{logged}")
    check('"GET /lookup HTTP/1.1" 200' in logged, f"the lookup is logged by its path:\n{logged}")
    check("hunter2" not in logged and "private" not in logged, "no query reaches the access log")


def no_password_at_start(folder):
    shown = subprocess.run([CLI, "serve", "--listen", "127.0.0.1:0",
                            "--db", "postgresql://versions:hunter2@/v?host=" + os.path.join(folder, "none")],
                           capture_output=True, text=True, timeout=30)
    check(shown.returncode == 1, "a database that cannot be reached stops the start")
    check("hunter2" not in shown.stdout + shown.stderr, "the password is never printed: " + shown.stderr)


def sigterm_under_load(folder):
    process, port = start(folder, "--max-writes-per-minute", "0")
    check(request(port, "POST", "/v1/apple_apps/1/versions", report(1, 200))[0] == 200, "the seed report is taken")
    outcome = {"complete": 0, "closed_before_reply": 0, "broken": []}
    lock = threading.Lock()
    stop = threading.Event()

    def load():
        while not stop.is_set():
            try:
                sock = socket.create_connection(("127.0.0.1", port), timeout=10)
            except OSError:
                return  # no longer accepting: the service is going away
            try:
                while not stop.is_set():
                    sock.sendall(b"GET /v1/apple_apps/1/versions HTTP/1.1\r\nHost: t\r\n\r\n")
                    status, _, _, _ = read_reply(sock)
                    with lock:
                        outcome["complete"] += 1
            except EOFError:
                with lock:
                    outcome["closed_before_reply"] += 1
            except (ValueError, OSError) as error:
                with lock:
                    outcome["broken"].append(repr(error))
            finally:
                sock.close()

    # A report under way: its header is in, its body arrives only after the signal.
    body = report(2, 50)
    slow = socket.create_connection(("127.0.0.1", port), timeout=15)
    slow.sendall(f"POST /v1/apple_apps/2/versions HTTP/1.1\r\nHost: t\r\nContent-Length: {len(body)}\r\n\r\n".encode()
                 + body[:10])
    threads = [threading.Thread(target=load) for _ in range(8)]
    for thread in threads:
        thread.start()
    time.sleep(1.0)
    signalled = time.monotonic()
    process.send_signal(signal.SIGTERM)
    time.sleep(0.5)
    slow.sendall(body[10:])
    try:
        status, headers, _, _ = read_reply(slow)
        check(status == 200, f"the report under way is answered 200 after the signal, not {status}")
        check(headers.get("connection", "").lower() == "close", "the reply says the connection closes")
    except (EOFError, ValueError, OSError) as error:
        check(False, f"the report under way was dropped: {error!r}")
    slow.close()
    code = process.wait(timeout=15)
    stop.set()
    for thread in threads:
        thread.join()
    check(code == 0, f"the service exits 0 after draining, not {code}")
    check(time.monotonic() - signalled < 11, "the service stops within its grace")
    check(outcome["complete"] > 0, "the load got replies")
    check(not outcome["broken"], f"no connection is reset or cut inside a reply: {outcome['broken'][:5]}")
    print(f"\nSIGTERM under load: {outcome['complete']} replies complete, {outcome['closed_before_reply']} kept-alive "
          f"connections closed between replies, {len(outcome['broken'])} broken")


def main():
    with tempfile.TemporaryDirectory(prefix="qv-operator-") as folder:
        os.mkdir(os.path.join(folder, "a"))
        operator_endpoints(os.path.join(folder, "a"))
        no_password_at_start(folder)
        os.mkdir(os.path.join(folder, "b"))
        sigterm_under_load(os.path.join(folder, "b"))
    if failures:
        sys.exit(f"{len(failures)} check(s) failed")
    print("operator checks passed")


if __name__ == "__main__":
    main()
