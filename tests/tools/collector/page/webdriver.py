"""A headless Chromium, driven by Debian's chromedriver over the WebDriver protocol."""

import base64
import json
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import time
import urllib.error
import urllib.request

ELEMENT = "element-6066-11e4-a52e-4f735466cecf"
KEYS = {"Escape": "\ue00c", "Enter": "\ue007", "Tab": "\ue004", "Down": "\ue015", "Up": "\ue013", "Left": "\ue012",
        "Right": "\ue014", "Home": "\ue011", "End": "\ue010"}


# chromedriver takes a free port of IPv4, and gives up where another program has that one of IPv6.
STARTS = 10


class Browser:
    """One window. What went over its network and to its console is kept, for whoever asks."""

    def __init__(self, width=1280, height=800):
        self.folder = tempfile.mkdtemp(prefix="chromium-")
        self.driver, self.base = self._started_driver()
        # With nothing to ask for and nothing to send of its own, so that what the log holds is the page's.
        arguments = ["--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--disable-gpu", "--no-first-run",
                     "--disable-background-networking", "--disable-component-update", "--disable-sync", "--disable-extensions",
                     "--disable-default-apps", "--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE 127.0.0.1",
                     "--enable-precise-memory-info", "--js-flags=--expose-gc", f"--user-data-dir={self.folder}/profile"]
        session = self.ask("POST", "/session", {"capabilities": {"alwaysMatch": {
            "browserName": "chrome",
            "goog:loggingPrefs": {"performance": "ALL", "browser": "ALL"},
            "timeouts": {"script": 120_000, "pageLoad": 120_000},  # ms; a script may be slow where the machine is
            "goog:chromeOptions": {"args": arguments}}}})
        self.session = f"/session/{session['sessionId']}"
        self.size(width, height)

    def _started_driver(self):
        """A chromedriver, and where it listens."""
        for _ in range(STARTS):
            driver = subprocess.Popen([shutil.which("chromedriver") or "chromedriver", "--port=0"], stdout=subprocess.PIPE,
                                      stderr=subprocess.DEVNULL, text=True, env={**os.environ, "HOME": self.folder})
            for line in driver.stdout:
                if found := re.search(r"successfully on port (\d+)", line):
                    return driver, f"http://127.0.0.1:{found[1]}"
            driver.wait()
            driver.stdout.close()
        raise RuntimeError("chromedriver does not start")

    def close(self):
        try:
            self.ask("DELETE", self.session)
        except (OSError, RuntimeError):
            pass
        self.driver.terminate()
        self.driver.wait(10)
        self.driver.stdout.close()
        shutil.rmtree(self.folder, ignore_errors=True)

    def ask(self, method, path, body=None):
        content = json.dumps(body or {}).encode() if method == "POST" else None
        request = urllib.request.Request(self.base + path, content, {"Content-Type": "application/json"}, method=method)
        try:
            with urllib.request.urlopen(request, timeout=180) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            raise RuntimeError(json.load(error)["value"]["message"]) from None

    def do(self, path, body=None):
        return self.ask("POST", f"{self.session}/{path}", body)

    def devtools(self, command, **parameters):
        return self.do("goog/cdp/execute", {"cmd": command, "params": parameters})

    def size(self, width, height):
        """Of the page itself; windows cannot be as narrow as phones."""
        self.devtools("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=False)

    def media(self, **features):
        self.devtools("Emulation.setEmulatedMedia", features=[
            {"name": name.replace("_", "-"), "value": value} for name, value in features.items()])

    def open(self, url):
        self.do("url", {"url": url})

    def run(self, script, *arguments):
        """The script is a function's body."""
        return self.do("execute/sync", {"script": script, "args": list(arguments)})

    def run_async(self, script, *arguments):
        """The script is the body of an async function."""
        result = self.do("execute/async", {
            "script": f"const done = arguments[arguments.length - 1]; const given = [...arguments].slice(0, -1);"
                      f"(async (...given) => {{ {script} }})(...given).then((value) => done({{ value }}), "
                      "(error) => done({ error: String(error.stack ?? error) }));", "args": list(arguments)})
        if "error" in result:
            raise RuntimeError(result["error"])
        return result.get("value")

    def find(self, selector):
        return self.do("element", {"using": "css selector", "value": selector})[ELEMENT]

    def click(self, selector):
        self.do(f"element/{self.find(selector)}/click")

    def type(self, selector, text):
        self.do(f"element/{self.find(selector)}/value", {"text": text})

    def keys(self, *keys):
        """Presses one after the other, wherever the focus is."""
        actions = []
        for key in keys:
            value = KEYS.get(key, key)
            actions += [{"type": "keyDown", "value": value}, {"type": "keyUp", "value": value}]
        self.do("actions", {"actions": [{"type": "key", "id": "keyboard", "actions": actions}]})

    def text(self, selector):
        return self.run("return document.querySelector(arguments[0])?.textContent ?? null", selector)

    def texts(self, selector):
        return self.run("return [...document.querySelectorAll(arguments[0])].map((one) => one.textContent)", selector)

    def until(self, script, *arguments, seconds=60):
        """Waits until the script returns something that is true, and returns it."""
        end = time.monotonic() + seconds
        while True:
            value = self.run(script, *arguments)
            if value:
                return value
            if time.monotonic() > end:
                raise AssertionError(f"in {seconds} s it was never so: {script} {arguments or ''}")
            time.sleep(0.03)

    def log(self, kind):
        """What is new in the log, "performance" or "browser"."""
        entries = self.do("se/log", {"type": kind})
        return [json.loads(entry["message"])["message"] for entry in entries] if kind == "performance" else entries

    def picture(self, file):
        pathlib.Path(file).write_bytes(base64.b64decode(self.ask("GET", f"{self.session}/screenshot")))
