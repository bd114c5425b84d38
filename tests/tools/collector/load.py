#!/usr/bin/env python3
"""Sends messages to collectors, as devices do, until its input ends, and writes what became of each.

usage: load.py --ca FILE --out FILE [--threads N] PORT...

A line of JSON for each message goes to the file: its "id" and the "status" of the answer, null if none came. A device logs
in at one of the collectors and sends to another. Whatever takes the same arguments and writes the same lines can stand in
its place (KX_LOAD in the environment of the tests).
"""

import argparse
import gzip
import http.client
import json
import ssl
import sys
import threading
import time
import uuid

LOGIN = "/api_v0_0_0/do_login"
MESSAGE = "/api_v0_0_0/post_msg"
FIELDS = {"Content-Type": "application/json", "Content-Encoding": "gzip", "User-Agent": "load/1.0"}


class Device:
    def __init__(self, arguments, number, write, ended):
        self.ports, self.number, self.write, self.ended = arguments.ports, number, write, ended
        self.trust = ssl.create_default_context(cafile=arguments.ca)
        self.connection, self.turn, self.token = None, number, None

    def post(self, path, document, **fields):
        """The answer, null if there is none; then the next collector's turn has come."""
        try:
            if self.connection is None:
                port = self.ports[self.turn % len(self.ports)]
                self.connection = http.client.HTTPSConnection("localhost", port, context=self.trust, timeout=30)
            self.connection.request("POST", path, gzip.compress(json.dumps(document).encode()), {**FIELDS, **fields})
            answer = self.connection.getresponse()
            answer.read()
            return answer
        except (OSError, http.client.HTTPException):
            self.move_on()
            return None

    def move_on(self):
        if self.connection:
            self.connection.close()
        self.connection = None
        self.turn += 1
        time.sleep(0.02)

    def log_in(self):
        answer = self.post(LOGIN, {"header": {"typ": "JWT", "alg": "HS256"},
                                   "payload": {"aud": ["localhost"], "iss": "localhost", "sub": "demo",
                                               "name": "Linux.com.example.Host"}})
        if answer is not None and answer.status == 200:
            self.token = answer.headers["set-authorization"]
            self.move_on()

    def send(self):
        identifier = str(uuid.uuid4())
        answer = self.post(MESSAGE, [{"sdkName": "KXPublisher iOS", "sdkVer": "v1.0", "ips": ["10.0.0.1"],
                                      "id": identifier, "eventTime": int(time.time()) * 1000, "ifa": str(uuid.uuid4()),
                                      "bundleId": f"com.example.App{self.number}"}],
                           Authorization=f"Bearer {self.token}")
        status = answer.status if answer is not None else None
        self.write({"id": identifier, "status": status})
        if status == 403:
            self.token = None
        if status == 503:
            time.sleep(0.05)

    def run(self):
        while not self.ended.is_set():
            self.send() if self.token else self.log_in()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--ca", required=True)
    parser.add_argument("--out", required=True)
    parser.add_argument("--threads", type=int, default=6)
    parser.add_argument("ports", type=int, nargs="+")
    arguments = parser.parse_args()
    ended, lock = threading.Event(), threading.Lock()
    with open(arguments.out, "w", encoding="utf-8") as out:
        def write(line):
            with lock:
                out.write(json.dumps(line) + "\n")
                out.flush()
        threads = [threading.Thread(target=Device(arguments, number, write, ended).run)
                   for number in range(arguments.threads)]
        for thread in threads:
            thread.start()
        sys.stdin.read()
        ended.set()
        for thread in threads:
            thread.join()


if __name__ == "__main__":
    main()
