"""Collectors side by side on a stream, a load on them, and what has to be true at its end."""

import json
import os
import secrets
import subprocess
import sys
import tempfile
import time
import urllib.error
import urllib.request
from collections import Counter
from pathlib import Path

from collector import Collector
from nats import Cluster, eventually

LOAD = os.environ.get("KX_LOAD", str(Path(__file__).parent / "load.py"))


class StreamCollector(Collector):
    """One whose accepted messages go to that cluster."""

    def __init__(self, cluster, *options, folder=None, keys=None):
        self.cluster = cluster
        more = ["--token-keys", str(keys)] if keys else []
        super().__init__("--no-page", "--stream", cluster.url, "--operations-port", "0", *more, *options, folder=folder)

    def operations(self, path):
        """The status and the text."""
        try:
            with urllib.request.urlopen(self.where["operations"] + path, timeout=30) as answer:
                return answer.status, answer.read().decode()
        except urllib.error.HTTPError as error:
            with error:
                return error.code, error.read().decode()

    def is_ready(self):
        return self.operations("/readyz")[0] == 200

    def wait_until_ready(self):
        eventually(self.is_ready, "a collector that is ready")
        return self

    def metric(self, name):
        for line in self.operations("/metrics")[1].splitlines():
            if line.rsplit(" ", 1)[0] == "kx_collector_" + name:
                return float(line.rsplit(" ", 1)[1])
        return None

    def statuses(self, count, token=None, first=1):
        """Of so many messages, one after the other."""
        token = token or self.log_in()
        return [self.send(token, number).status for number in range(first, first + count)]

    def events(self, name):
        return [line for line in self.lines if line["event"] == name]


def write_keys(file, *keys):
    file.touch(mode=0o600)
    file.write_text("\n".join(keys) + "\n")


class Load:
    """A program that sends messages, and what became of each: the one that is beside this file tells how it is asked."""

    def __init__(self, out, ca, ports, threads=6):
        self.out = Path(out)
        self.process = subprocess.Popen([*([sys.executable] if LOAD.endswith(".py") else []), LOAD, "--ca", str(ca), "--out",
                                         str(out), "--threads", str(threads), *map(str, ports)], stdin=subprocess.PIPE)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()
        self.process.stdin.close()

    def end(self):
        self.process.stdin.close()
        if self.process.wait(120) != 0:
            raise RuntimeError("the load has failed")

    def statuses(self):
        """By the messages' ids; null for no answer."""
        lines = self.out.read_text(encoding="utf-8").split("\n")[:-1] if self.out.exists() else []
        return {result["id"]: result["status"] for result in map(json.loads, lines)}

    def accepted(self):
        return sum(status == 200 for status in self.statuses().values())

    def wait_for_more(self, what, count=200):
        enough = self.accepted() + count
        eventually(lambda: self.accepted() >= enough, what)


class Proof:
    """Three nodes and so many collectors with the same keys."""

    def __init__(self, count=3, folders=None):
        self.count = count
        self.temporary = tempfile.TemporaryDirectory()
        self.folder = Path(self.temporary.name)
        self.keys = self.folder / "keys"
        self.cluster = Cluster(3, folders=folders)
        self.collectors, self.loads = [], 0

    def __enter__(self):
        write_keys(self.keys, secrets.token_hex(32))
        self.cluster.__enter__()
        try:
            for _ in range(self.count):
                self.add_collector()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        for collector in self.collectors:
            collector.stop()
        self.cluster.__exit__()
        self.temporary.cleanup()

    def add_collector(self):
        collector = StreamCollector(self.cluster, "--stream-replicas", "3", folder=self.folder, keys=self.keys)
        self.collectors.append(collector)
        return collector.wait_until_ready()

    def load(self, collectors=None, threads=6):
        self.loads += 1
        of = self.collectors if collectors is None else collectors
        return Load(self.folder / f"results{self.loads}", of[0].where["caFile"],
                    [collector.where["port"] for collector in of], threads)

    def problems(self, *loads):
        """What is wrong with the stream after all loads, when all its nodes have what they are to have; empty if nothing is."""
        self.cluster.wait_until_all_have_caught_up()
        end = time.monotonic() + 10  # A node that has just begun to lead needs a moment for the last ones that it has.
        while (found := self.differences(*loads)) and time.monotonic() < end:
            time.sleep(0.2)
        return found

    def differences(self, *loads):
        """What is wrong with the stream now."""
        stream = Counter(json.loads(payload)[0]["id"] for _, _, payload in self.cluster.messages())
        statuses = {}
        for load in loads:
            statuses.update(load.statuses())
        found = [f"{key} is there {count} times" for key, count in stream.items() if count != 1]
        found += [f"{key} was accepted and is not there" for key, status in statuses.items()
                  if status == 200 and key not in stream]
        # One that was not acknowledged may be there; one that was refused, or never sent, may not.
        found += [f"{key} is there: {statuses.get(key, 'never sent')}" for key in stream
                  if statuses.get(key, "never sent") not in (200, 503, None)]
        return found
