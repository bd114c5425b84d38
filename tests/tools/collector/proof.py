"""Collectors side by side on a stream, a load on them, and what has to be true at its end."""

import json
import os
import re
import secrets
import signal
import socket
import subprocess
import tempfile
import time
import urllib.error
import urllib.request
from collections import Counter
from pathlib import Path

from collector import Collector
from nats import PATIENCE, Cluster, eventually

ROOT = Path(__file__).resolve().parents[3]
FLEET = os.environ.get("KX_FLEET_PROGRAM", "kx-fleet")


class StreamCollector(Collector):
    """One whose accepted messages go to that cluster."""

    def __init__(self, cluster, *options, folder=None, keys=None):
        self.cluster = cluster
        self.ports = {"--port": 0, "--operations-port": 0}
        more = ["--token-keys", str(keys)] if keys else []
        super().__init__("--no-page", "--stream", cluster.url, *more, *options, folder=folder)

    def start(self):
        """At the ports that it had before, if it was there before."""
        super().start()
        self.ports = {"--port": self.where["port"], "--operations-port": int(self.where["operations"].rpartition(":")[2])}

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


class Balancer:
    """HAProxy as examples/deploy has it, but for the addresses."""

    def __init__(self, folder, collectors):
        self.socket = socket.create_server(("127.0.0.1", 0))
        text = (ROOT / "examples/deploy/haproxy.cfg").read_text()
        text = text.replace("maxconn 20000", "maxconn 1500")  # which asks for fewer descriptors than may be allowed here
        text, binds = re.subn(r"bind .*", f"bind fd@{self.socket.fileno()}", text)
        text, count = re.subn(r"(?m)^  server .*\n", "", text)
        if binds != 1 or not count:
            raise RuntimeError("haproxy.cfg is another one than was thought")
        for number, collector in enumerate(collectors):
            text += (f"  server collector{number} 127.0.0.1:{collector.ports['--port']} "
                     f"port {collector.ports['--operations-port']}\n")
        file = Path(folder) / "haproxy.cfg"
        file.write_text(text)
        self.log = open(Path(folder) / "haproxy.log", "ab")
        self.process = subprocess.Popen(["haproxy", "-db", "-f", str(file)], pass_fds=[self.socket.fileno()],
                                        stdout=self.log, stderr=self.log)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        self.socket.close()
        self.log.close()

    @property
    def url(self):
        return f"https://localhost:{self.socket.getsockname()[1]}"


class Load:
    """What the devices of so many ordinary days send from the first afternoon on, at so many times their pace, through a balancer,
    until it is ended or the days are over; and what became of each message."""

    def __init__(self, folder, number, collectors, devices=4000, pace=60, days=1, options=("--from", "16:00", "--duration", "1 h")):
        self.results, self.report = Path(folder) / f"results{number}", Path(folder) / f"report{number}.json"
        scenario = Path(folder) / f"scenario{number}.json"
        scenario.write_text(json.dumps({"title": "Ordinary days", "length": f"{days} d"}))  # and by default all else is ordinary
        self.balancer = Balancer(folder, collectors)
        self.process = subprocess.Popen(
            [FLEET, "load", str(scenario), "--service", self.balancer.url, "--ca-file", collectors[0].where["caFile"],
             "--devices", str(devices), "--pace", str(pace), "--results", str(self.results), "--json", str(self.report),
             *options], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.process.kill()
        self.process.communicate()
        self.balancer.__exit__()

    def end(self):
        """In order."""
        self.process.send_signal(signal.SIGTERM)
        self.wait()

    def wait(self):
        """Until it ends by itself; whether it has kept the bounds that it was told."""
        said = "".join(self.process.communicate(timeout=300))
        if self.process.returncode not in (0, 1):
            raise RuntimeError(said)
        return self.process.returncode == 0

    def statuses(self):
        """By the messages' ids; null for no answer."""
        lines = self.results.read_text(encoding="utf-8").split("\n")[:-1] if self.results.exists() else []
        return {result["id"]: result["status"] for result in map(json.loads, lines)}

    def accepted(self):
        return sum(status == 200 for status in self.statuses().values())

    def wait_for_more(self, what, count=200, patience=PATIENCE):
        enough = self.accepted() + count

        def have_come():
            is_over = self.process.poll() is not None
            if self.accepted() < enough and is_over:
                raise RuntimeError(f"{what}: the load is over before")
            return self.accepted() >= enough

        eventually(have_come, what, patience)


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

    def load(self, collectors=None, **how):
        self.loads += 1
        return Load(self.folder, self.loads, self.collectors if collectors is None else collectors, **how)

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
