"""As much of NATS as the tests of a stream need: servers of their own, and a client that looks into a stream."""

import base64
import itertools
import json
import os
import random
import signal
import socket
import ssl
import subprocess
import tempfile
import time
from pathlib import Path

PATIENCE = 150  # seconds: a machine full of other tests elects no leader and plans no load quickly


def eventually(condition, what, patience=PATIENCE):
    """Waits until it holds; what it is, for the message when it never does."""
    end = time.monotonic() + patience
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            raise TimeoutError(what)
        time.sleep(0.02)


def fields(header):
    """Those of a message's header."""
    return dict(line.split(": ", 1) for line in header.decode().split("\r\n")[1:] if ": " in line)


class Client:
    """One connection. Its calls wait; what fails raises OSError."""

    def __init__(self, port, user=None, authority=None, timeout=5):
        self.socket = socket.create_connection(("127.0.0.1", port), timeout)
        try:
            while self.socket.recv(1) not in (b"\n", b""):  # what the server says of itself, before TLS
                pass
            if authority:
                self.socket = ssl.create_default_context(cafile=authority).wrap_socket(self.socket,
                                                                                       server_hostname="localhost")
        except OSError:
            self.socket.close()
            raise
        self.stream = self.socket.makefile("rb")
        self.numbers = itertools.count(1)
        self.inbox = f"_INBOX.{os.getpid()}.{id(self)}.{time.monotonic_ns()}"
        self.write(b"CONNECT " + json.dumps({"verbose": False, "pedantic": False, "headers": True,
                                             "no_responders": True, "lang": "test", "version": "1",
                                             **(dict(zip(("user", "pass"), user)) if user else {})}).encode()
                   + b"\r\nPING\r\n")
        self.write(f"SUB {self.inbox}.* 1\r\n".encode())

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stream.close()
        self.socket.close()

    def write(self, data):
        self.socket.sendall(data)

    def next(self):
        """The next message: its reply subject, its subject, its headers and its payload."""
        while True:
            line = self.stream.readline()
            if not line:
                raise ConnectionError("the server has gone")
            words = line.split()
            if words[0] == b"PING":
                self.write(b"PONG\r\n")
            elif words[0] in (b"MSG", b"HMSG"):
                sizes = [int(word) for word in words[-2 if words[0] == b"HMSG" else -1:]]
                fixed = 3 + len(sizes)
                reply = words[3].decode() if len(words) > fixed else ""
                data = self.stream.read(sizes[-1])
                self.stream.read(2)
                header = data[:sizes[0]] if len(sizes) == 2 else b""
                if header.startswith(b"NATS/1.0 5"):
                    raise ConnectionError("nobody answers")
                return reply, words[1].decode(), fields(header), data[len(header):]
            elif words[0] == b"-ERR":
                raise ConnectionError(line.decode())

    def send(self, subject, question=None):
        """The subject of the answer, which comes."""
        data = b"" if question is None else json.dumps(question).encode()
        own = f"{self.inbox}.{next(self.numbers)}"
        self.write(f"PUB {subject} {own} {len(data)}\r\n".encode() + data + b"\r\n")
        return own

    def ask(self, subject, question=None):
        own = self.send(subject, question)
        while True:
            _, answered, _, payload = self.next()
            if answered == own:
                answer = json.loads(payload)
                if "error" in answer:
                    raise OSError(answer["error"]["description"])
                return answer

    def info(self, stream="KX-MESSAGES"):
        """As the node that leads has it. One that has just been started may answer, too, with what it had when it went."""
        info = self.ask(f"$JS.API.STREAM.INFO.{stream}")
        cluster = info.get("cluster", {})
        followers = [node["name"] for node in cluster.get("replicas") or []]
        if followers and cluster.get("leader", followers[0]) in followers:
            raise OSError("a node has answered that does not lead")
        return info

    def messages(self, stream="KX-MESSAGES"):
        """All that the stream has: subject, headers and payload of each. The node that leads is asked for each of them: a
        consumer may be on one that lags behind, which knows no more than it has."""
        state = self.info(stream)["state"]
        sequences = range(state["first_seq"], state["last_seq"] + 1) if state["messages"] else []
        found = []
        for first in range(0, len(sequences), 100):
            asked = [self.send(f"$JS.API.STREAM.MSG.GET.{stream}", {"seq": number})
                     for number in sequences[first:first + 100]]
            answers = {}
            while len(answers) < len(asked):
                _, subject, _, payload = self.next()
                answers[subject] = payload
            found += [stored for own in asked for stored in self.stored(answers[own])]
        return found

    @staticmethod
    def stored(payload):
        """What an answer has: one message, or none where there is none of that number."""
        answer = json.loads(payload)
        if answer.get("error", {}).get("code") == 404:
            return []
        if "error" in answer:
            raise OSError(answer["error"]["description"])
        kept = answer["message"]
        return [(kept["subject"], fields(base64.b64decode(kept.get("hdrs", ""))), base64.b64decode(kept.get("data", "")))]


def free_port():
    """One that stays free while its server is down: the system gives those of connections from 32768 on."""
    while True:
        port = random.randrange(15000, 32000)
        with socket.socket() as probe:
            try:
                probe.bind(("127.0.0.1", port))
                return port
            except OSError:
                pass


class Node:
    """One nats-server, which keeps its ports and its files when it is started again."""

    def __init__(self, number, folder, ports=(), configuration="", user=None,
                 authority=None):
        self.number, self.folder = number, Path(folder)
        self.port = free_port()
        self.cluster_port = ports[number] if ports else None
        self.ports = ports
        self.configuration, self.user, self.authority = configuration, user, authority
        self.folder.mkdir(parents=True, exist_ok=True)
        self.process = None

    def start(self):
        text = [f"server_name: node{self.number}", f'listen: "127.0.0.1:{self.port}"',
                f'jetstream {{ store_dir: "{self.folder}/data" }}', self.configuration]
        if self.ports:
            routes = ", ".join(f'"nats://127.0.0.1:{port}"' for port in self.ports if port != self.cluster_port)
            text.append(f'cluster {{ name: test, listen: "127.0.0.1:{self.cluster_port}", routes: [{routes}] }}')
        (self.folder / "nats.conf").write_text("\n".join(text) + "\n")
        with open(self.folder / "log", "ab") as log:
            self.process = subprocess.Popen(["nats-server", "-c", str(self.folder / "nats.conf")], stdout=log,
                                            stderr=log, stdin=subprocess.DEVNULL)

    def pause(self):
        """It stands still when this returns: a signal alone lets its threads run on for a moment."""
        self.process.send_signal(signal.SIGSTOP)
        tasks = Path(f"/proc/{self.process.pid}/task")
        eventually(lambda: all(self.state(task) == "T" for task in tasks.iterdir()), "a process that stands still")

    @staticmethod
    def state(task):
        return (task / "stat").read_text().rpartition(")")[2].split()[0]

    def go_on(self):
        self.process.send_signal(signal.SIGCONT)

    def kill(self):
        """As a machine that loses its power would end it."""
        if self.process and self.process.poll() is None:
            self.process.kill()  # Not even one that stands still does anything more.
        if self.process:
            self.process.wait()

    def answers(self):
        try:
            with Client(self.port, self.user, self.authority) as client:
                client.ask("$JS.API.INFO")
                return True
        except OSError:
            return False


class Cluster:
    """So many servers with one JetStream."""

    def __init__(self, count=1, folder=None, configuration="", folders=None, user=None,
                 authority=None):
        self.temporary = None if folder else tempfile.TemporaryDirectory()
        self.folder = Path(folder or self.temporary.name)
        self.count, self.folders, self.configuration = count, folders or {}, configuration
        self.user, self.authority = user, authority
        self.nodes = []

    def make_nodes(self):
        ports = [free_port() for _ in range(self.count)] if self.count > 1 else []
        self.nodes = [Node(number, self.folders.get(number, self.folder / f"node{number}"), ports, self.configuration,
                           self.user, self.authority)
                      for number in range(self.count)]

    def __enter__(self):
        try:
            while True:
                self.make_nodes()
                for node in self.nodes:
                    node.start()
                eventually(lambda: self.have_begun() or self.are_hindered(), "JetStream on all nodes")
                if not self.are_hindered():
                    return self
                for node in self.nodes:
                    node.kill()
        except BaseException:
            self.__exit__()
            raise

    def have_begun(self):
        return all(node.answers() for node in self.nodes)

    def are_hindered(self):
        """By somebody who has taken a port since it was found to be free."""
        return any(node.process.poll() is not None for node in self.nodes)

    def __exit__(self, *_):
        for node in self.nodes:
            node.kill()
        if self.temporary:
            self.temporary.cleanup()

    @property
    def url(self):
        """As --stream has it, without a user."""
        return ",".join(f"nats://127.0.0.1:{node.port}" for node in self.nodes)

    def look(self, ask):
        """What `ask` finds with a client of any node that can tell."""
        def attempt():
            for node in self.nodes:
                if node.process.poll() is not None:
                    continue
                try:
                    with Client(node.port, node.user, node.authority) as client:
                        return (ask(client),)
                except OSError:
                    pass
            return None
        return eventually(attempt, "an answer of a node")[0]

    def has_caught_up(self):
        """Whether all nodes are there and have what the one that leads has."""
        cluster = self.look(lambda client: client.info()).get("cluster", {})
        followers = cluster.get("replicas") or []
        return len(followers) == self.count - 1 and all(node["current"] and not node.get("lag") for node in followers)

    def wait_until_all_have_caught_up(self):
        eventually(self.has_caught_up, "all nodes with all messages", 2 * PATIENCE)

    def messages(self):
        return self.look(Client.messages)

    def leaders(self):
        """Each node in turn, while it leads the stream."""
        left = list(self.nodes)
        end = time.monotonic() + 2 * PATIENCE
        while left:
            self.wait_until_all_have_caught_up()
            leader = self.leader()
            if leader in left:
                left.remove(leader)
                yield leader
            elif time.monotonic() > end:
                raise TimeoutError(f"nodes that do not get to lead: {[node.number for node in left]}")
            self.look(lambda client: client.ask("$JS.API.STREAM.LEADER.STEPDOWN.KX-MESSAGES"))

    def leader(self):
        """The node that leads the stream."""
        name = self.look(lambda client: client.info().get("cluster", {}).get("leader") or "node0")
        return self.nodes[int(name.removeprefix("node"))]
