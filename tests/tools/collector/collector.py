"""A collector for one test, and a host of its own: all that the tests from outside need."""

import gzip
import http.client
import json
import os
import signal
import ssl
import subprocess
import tempfile
import threading
import time
import urllib.error
import urllib.request
from pathlib import Path

LOGIN = "/api_v0_0_0/do_login"
MESSAGE = "/api_v0_0_0/post_msg"
PATIENCE = 30  # seconds
PROGRAM = os.environ.get("KX_COLLECTOR_PROGRAM", "kx-collector")


def uuid(number):
    return f"00000000-0000-4000-8000-{number:012d}"


def login_document():
    return {"header": {"typ": "JWT", "alg": "HS256"},
            "payload": {"aud": ["localhost"], "iss": "localhost", "sub": "demo", "name": "Linux.com.example.Host"}}


class Collector:
    """kx-collector on free ports, and requests to both of them."""

    ports = {"--port": 0}  # free ones, where they are 0

    def __init__(self, *options, folder=None, prepare=None):
        self.prepare = prepare  # is called in the new process, before the program begins
        self.temporary = None if folder else tempfile.TemporaryDirectory()
        self.folder = Path(folder or self.temporary.name)
        self.options = options
        self.connection = None
        self.start()

    def start(self):
        page = [] if "--no-page" in self.options or "--page-port" in self.options else ["--page-port", "0"]
        self.log = open(self.folder / "log", "wb+")
        ports = [str(word) for port in self.ports.items() for word in port]
        self.process = subprocess.Popen([PROGRAM, "--json", *ports, "--directory", str(self.folder), *page,
                                         *self.options], stdout=subprocess.PIPE, stderr=self.log,
                                        preexec_fn=self.prepare)
        first = self.process.stdout.readline()
        if not first:
            self.process.stdout.close()
            self.process.wait()
            problem = self.errors()
            self.log.close()
            if self.temporary:
                self.temporary.cleanup()
            raise RuntimeError(problem)
        self.where = json.loads(first)
        self.lines = []
        self.reader = threading.Thread(target=self.read)
        self.reader.start()
        self.page = self.where.get("page")

    def read(self):
        for line in self.process.stdout:
            self.lines.append(json.loads(line))

    def errors(self):
        self.log.seek(0)
        return self.log.read().decode()

    def stop(self, how=signal.SIGTERM):
        if self.connection:
            self.connection.close()
            self.connection = None
        if self.process.poll() is None:
            self.process.send_signal(how)
        self.process.wait(PATIENCE)
        self.reader.join()
        self.process.stdout.close()
        self.log.close()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()
        if self.temporary:
            self.temporary.cleanup()

    # ---- The service

    def post(self, path, body, fields=None, packed=True):
        """The answer to one request, on a connection that is kept."""
        if self.connection is None:
            trust = ssl.create_default_context(cafile=self.where["caFile"])
            self.connection = http.client.HTTPSConnection("localhost", self.where["port"], context=trust,
                                                          timeout=PATIENCE)
        fields = {"Content-Type": "application/json", "Content-Encoding": "gzip", **(fields or {})}
        try:
            self.connection.request("POST", path, gzip.compress(body) if packed else body, fields)
            answer = self.connection.getresponse()
            answer.text = answer.read().decode()
            return answer
        except Exception:
            self.connection.close()
            raise

    def log_in(self):
        return self.post(LOGIN, json.dumps(login_document()).encode()).headers["set-authorization"]

    def send(self, token, number=1, **values):
        """A message with that number in its id; a value of None takes its key away."""
        return self.post(MESSAGE, json.dumps([message(number, **values)]).encode(),
                         {"Authorization": f"Bearer {token}"})

    # ---- The page's server

    def ask(self, path, method="GET", body=None, token=False, **fields):
        """The status, the header and the body."""
        headers = {name.replace("_", "-"): value for name, value in fields.items()}
        if token:
            headers["X-Page-Token"] = self.where["pageToken"]
        data = None if body is None else (body if isinstance(body, bytes) else json.dumps(body).encode())
        request = urllib.request.Request(self.page + path, data=data, method=method, headers=headers)
        try:
            with urllib.request.urlopen(request, timeout=PATIENCE) as answer:
                return answer.status, answer.headers, answer.read()
        except urllib.error.HTTPError as error:
            with error:
                return error.code, error.headers, error.read()

    def get(self, path):
        """What a path has in JSON."""
        status, _, body = self.ask(path)
        if status != 200:
            raise RuntimeError(f"{path}: {status}: {body.decode()}")
        return json.loads(body)


def message(number=1, **values):
    whole = {"sdkName": "KXPublisher iOS", "sdkVer": "v1.0", "ips": ["10.0.0.1"], "id": uuid(number),
             "eventTime": int(time.time()) * 1000, "ifa": "6D92078A-8246-4BA4-AE5B-76104861E7DC",
             "bundleId": "com.example.Host", **values}
    return {key: value for key, value in whole.items() if value is not None}
