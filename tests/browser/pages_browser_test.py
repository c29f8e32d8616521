#!/usr/bin/env python3
"""The service's pages in a real browser: start page, search, an app's versions, with a hostile title shown as text.

Starts the service over a fresh SQLite file, feeds it through its own API, then drives headless Chromium through
chromedriver's WebDriver protocol (python3's standard library only) as a person on a phone would: load the start
page, type a search, follow a result. Keeps a screenshot of each page in the given folder.
"""
import argparse
import base64
import json
import os
import select
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import urllib.error
import urllib.request

HOSTILE_TITLE = 'Notes <script>alert("owned")</script> & Co'
# Every wait is bounded; nothing sleeps to let something happen.
WAIT_SECONDS = 30
# A phone's screen: 390 CSS pixels wide at twice the density.
PHONE_SCREEN = {"width": 390, "height": 844, "pixelRatio": 2}


class Failure(Exception):
    pass


def check(condition, message):
    if not condition:
        raise Failure(message)


def request(method, url, body=None, timeout=WAIT_SECONDS):
    data = None if body is None else json.dumps(body).encode()
    req = urllib.request.Request(url, data=data, method=method, headers={"Content-Type": "application/json"})
    try:
        with urllib.request.urlopen(req, timeout=timeout) as reply:
            return reply.status, json.loads(reply.read() or b"null")
    except urllib.error.HTTPError as error:
        return error.code, json.loads(error.read() or b"null")


def read_line(process, deadline, what):
    """One line of the process's stdout, waiting at most until the deadline."""
    line = b""
    while not line.endswith(b"\n"):
        left = deadline - time.monotonic()
        ready, _, _ = select.select([process.stdout], [], [], max(left, 0))
        if not ready:
            raise Failure(f"{what} said nothing within {WAIT_SECONDS} s")
        chunk = os.read(process.stdout.fileno(), 1)
        if not chunk:
            raise Failure(f"{what} exited with {process.wait()} before it was ready")
        line += chunk
    return line.decode()


def start_service(cli, folder):
    process = subprocess.Popen([cli, "serve", "--listen", "127.0.0.1:0", "--db", os.path.join(folder, "v.sqlite")],
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    deadline = time.monotonic() + WAIT_SECONDS
    while True:
        line = read_line(process, deadline, "the service")
        if line.startswith("serving on "):
            return process, line.split()[2]


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def start_driver(driver):
    """chromedriver on a free port; a port taken between choosing and binding it means one more try."""
    for _ in range(3):
        port = free_port()
        process = subprocess.Popen([driver, f"--port={port}"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        base = f"http://127.0.0.1:{port}"
        deadline = time.monotonic() + WAIT_SECONDS
        while process.poll() is None:
            try:
                status, reply = request("GET", base + "/status", timeout=2)
                if status == 200 and reply["value"].get("ready"):
                    return process, base
            except (urllib.error.URLError, ConnectionError, OSError):
                pass
            if time.monotonic() >= deadline:
                process.kill()
                process.wait()
                raise Failure(f"chromedriver was not ready within {WAIT_SECONDS} s")
            select.select([], [], [], 0.1)  # poll interval for the readiness check, not a synchronisation
    raise Failure(f"chromedriver exited with {process.returncode} three times")


class Browser:
    def __init__(self, driver_url, chromium):
        arguments = ["--headless=new", "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run",
                     "--disable-extensions"]
        if os.geteuid() == 0:
            arguments.append("--no-sandbox")  # Chromium refuses to run as root inside its sandbox
        capabilities = {"capabilities": {"alwaysMatch": {
            "browserName": "chrome", "pageLoadStrategy": "normal",
            "timeouts": {"pageLoad": WAIT_SECONDS * 1000, "script": WAIT_SECONDS * 1000, "implicit": 0},
            "goog:chromeOptions": {"binary": chromium, "args": arguments,
                                   "mobileEmulation": {"deviceMetrics": PHONE_SCREEN}}}}}
        status, reply = request("POST", driver_url + "/session", capabilities, timeout=WAIT_SECONDS * 2)
        check(status == 200, f"no browser session: {reply}")
        self.base = f"{driver_url}/session/{reply['value']['sessionId']}"

    def call(self, method, path, body=None):
        status, reply = request(method, self.base + path, body if body is not None or method != "POST" else {})
        check(status == 200, f"{method} {path}: {reply}")
        return reply["value"]

    def go(self, url):
        self.call("POST", "/url", {"url": url})

    def url(self):
        return self.call("GET", "/url")

    def find(self, selector):
        found = self.call("POST", "/element", {"using": "css selector", "value": selector})
        return next(iter(found.values()))

    def find_all(self, selector):
        found = self.call("POST", "/elements", {"using": "css selector", "value": selector})
        return [next(iter(element.values())) for element in found]

    def text(self, element):
        return self.call("GET", f"/element/{element}/text")

    def type(self, element, text):
        self.call("POST", f"/element/{element}/value", {"text": text})

    def click(self, element):
        self.call("POST", f"/element/{element}/click")

    def run(self, script):
        return self.call("POST", "/execute/sync", {"script": script, "args": []})

    def wait_for_path(self, path):
        deadline = time.monotonic() + WAIT_SECONDS
        while not self.url().split("?")[0].endswith(path):
            check(time.monotonic() < deadline, f"the browser did not reach {path}; it is at {self.url()}")
            select.select([], [], [], 0.05)
        check(self.run("return document.readyState") == "complete", f"{path} did not finish loading")

    def screenshot(self, path):
        with open(path + ".tmp", "wb") as image:
            image.write(base64.b64decode(self.call("GET", "/screenshot")))
        os.replace(path + ".tmp", path)
        print(f"screenshot: {path}")

    def no_alert(self):
        status, _ = request("GET", self.base + "/alert/text")
        return status == 404

    def close(self):
        request("DELETE", self.base)


def feed(service):
    reports = {
        42: {"bundle_id": "com.example.notes", "identifier": "42", "title": HOSTILE_TITLE,
             "versions": [{"display": "2.0", "externalId": 1000}, {"display": "1.2.0", "externalId": 900},
                          {"display": "", "externalId": 800}]},
        7: {"bundle_id": "org.example.maps", "identifier": "7", "title": "Street Maps",
            "versions": [{"display": "5.1", "externalId": 51}]},
    }
    for app_id, report in reports.items():
        status, reply = request("POST", f"{service}v1/apple_apps/{app_id}/versions", report)
        check(status == 200, f"the service refused a report: {status} {reply}")


def browse(browser, service, screenshots):
    browser.go(service)
    browser.wait_for_path("/")
    check(browser.text(browser.find("h1")) == "Known app versions", "the start page has no heading")
    check(browser.text(browser.find("#app-count")) == "2", "the start page does not count 2 apps")
    check(browser.text(browser.find("#version-count")) == "4", "the start page does not count 4 versions")
    recent = [browser.text(link) for link in browser.find_all("#recent a")]
    check(HOSTILE_TITLE in recent, f"the hostile title is not listed as text among the recent apps: {recent}")
    check(browser.run("return getComputedStyle(document.body).maxWidth") != "none", "the stylesheet did not load")
    browser.screenshot(os.path.join(screenshots, "home.png"))

    browser.type(browser.find("#q"), "note")
    browser.click(browser.find("form.search button"))
    browser.wait_for_path("/search")
    check(browser.text(browser.find("#result-count")).startswith("1 app matches"), "the search found no single app")
    results = browser.find_all("#results a")
    check([browser.text(link) for link in results] == [HOSTILE_TITLE], "the result is not the app, shown as text")
    browser.screenshot(os.path.join(screenshots, "search.png"))

    browser.click(results[0])
    browser.wait_for_path("/apps/42")
    check(browser.text(browser.find("#app-title")) == HOSTILE_TITLE, "the app page's title is not the text reported")
    versions = [browser.text(heading) for heading in browser.find_all("#versions h3")]
    check(versions == ["2.0", "1.2.0", "Unknown version"], f"the app page lists {versions}")
    commands = [browser.text(code) for code in browser.find_all("#versions code")]
    check("qvdovrin downgrade 42 --version 900" in commands, f"no downgrade command for 1.2.0 among {commands}")
    check(browser.run("return document.querySelectorAll('script').length") == 0, "a script element is in the page")
    check(browser.no_alert(), "an alert is open: the title ran as a script")
    wide = browser.run("return document.documentElement.scrollWidth > window.innerWidth")
    check(not wide, "the app page is wider than a phone's screen")
    browser.screenshot(os.path.join(screenshots, "app.png"))


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--cli", required=True, help="the qvdovrin program")
    parser.add_argument("--screenshots", required=True, help="folder for the screenshots")
    arguments = parser.parse_args()
    chromium = shutil.which("chromium")
    driver = shutil.which("chromedriver")
    if chromium is None or driver is None:
        print("browser test: chromium and chromedriver are missing; scripts/bootstrap.sh installs them",
              file=sys.stderr)
        return 1
    os.makedirs(arguments.screenshots, exist_ok=True)
    service_process = driver_process = browser = None
    with tempfile.TemporaryDirectory(prefix="qv-browser-") as folder:
        try:
            service_process, service = start_service(arguments.cli, folder)
            feed(service)
            driver_process, driver_url = start_driver(driver)
            browser = Browser(driver_url, chromium)
            browse(browser, service, arguments.screenshots)
            print("browser test: start page, search and app page are right in Chromium")
            return 0
        except Failure as failure:
            print(f"browser test: {failure}", file=sys.stderr)
            return 1
        finally:
            if browser is not None:
                browser.close()
            for process in (driver_process, service_process):
                if process is not None and process.poll() is None:
                    process.send_signal(signal.SIGTERM)
                    try:
                        process.wait(timeout=WAIT_SECONDS)
                    except subprocess.TimeoutExpired:
                        process.kill()
                        process.wait()


if __name__ == "__main__":
    sys.exit(main())
