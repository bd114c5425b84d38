"""The files that show how collectors are run side by side: what reads them takes them, and the consumer does what it says."""

import json
import os
import re
import shutil
import signal
import sqlite3
import subprocess
import tempfile
import unittest
from pathlib import Path

from nats import Client, Cluster, eventually

DEPLOY = Path(__file__).resolve().parents[3] / "examples/deploy"
CONSUMER = os.environ["KX_STREAM_TO_SQLITE"]


class FilesTest(unittest.TestCase):
    def check(self, *command, **environment):
        done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False,
                              env={**os.environ, **environment})
        self.assertEqual(done.returncode, 0, done.stdout)
        return done.stdout

    @unittest.skipUnless(shutil.which("systemd-analyze"), "systemd is not there")
    def test_systemd_takes_the_units(self):
        with tempfile.TemporaryDirectory() as folder:
            for unit in DEPLOY.glob("*.service"):
                # The programs are not installed where the units have them.
                text, count = re.subn(r"(?m)^ExecStart=/usr/s?bin/[\w-]+", "ExecStart=/bin/true", unit.read_text())
                self.assertEqual(count, 1, unit.name)
                (Path(folder) / unit.name).write_text(text)
            told = self.check("systemd-analyze", "verify", *map(str, Path(folder).glob("*.service")))
            for unit in DEPLOY.glob("*.service"):
                self.assertNotIn(unit.name, told)

    @unittest.skipUnless(shutil.which("haproxy"), "HAProxy is not there")
    def test_haproxy_takes_the_balancers(self):
        self.check("haproxy", "-c", "-f", str(DEPLOY / "haproxy.cfg"))

    def test_nats_takes_the_nodes(self):
        self.check("nats-server", "-t", "-c", str(DEPLOY / "nats.conf"), NODE_NAME="stream0", COLLECTOR_PASSWORD="a",
                   CONSUMER_PASSWORD="b")

    def test_the_collectors_options_are_there(self):
        known = self.check(os.environ["KX_COLLECTOR_PROGRAM"], "--help")
        for file in ("kx-collector.service", "compose.yaml"):
            text = re.sub(r"\\\n", " ", (DEPLOY / file).read_text())
            for option in re.findall(r"(?<= )--[a-z-]+", text.split("kx-collector --", 1)[1].split("\n\n")[0]):
                self.assertIn(f"{option} ", known, file)

    def test_compose_has_three_of_each(self):
        try:
            import yaml
        except ImportError:
            self.skipTest("PyYAML is not there")
        whole = yaml.safe_load((DEPLOY / "compose.yaml").read_text())
        services = whole["services"]
        for kind in ("stream", "collector"):
            names = [name for name in services if name.startswith(kind)]
            self.assertEqual(len(names), 3)
            for name in names:
                self.assertEqual(services[name]["networks"]["default"]["aliases"], [f"{name}.internal"])
                self.assertIn("command", services[name])
        self.assertEqual(set(whole["secrets"]), set(services["collector0"]["secrets"]))


class ConsumerTest(unittest.TestCase):
    """The stream into a database, each message once."""

    def setUp(self):
        self.cluster = Cluster()
        self.addCleanup(self.cluster.__exit__)
        self.cluster.__enter__()
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.database = Path(temporary.name) / "messages.db"
        with Client(self.cluster.nodes[0].port) as client:
            client.ask("$JS.API.STREAM.CREATE.KX-MESSAGES", {"name": "KX-MESSAGES", "subjects": ["kx.messages.>"],
                                                             "storage": "file", "num_replicas": 1})
        self.sent = 0

    def publish(self, count):
        with Client(self.cluster.nodes[0].port) as client:
            for number in range(self.sent, self.sent + count):
                header = f"NATS/1.0\r\nNats-Msg-Id: id{number}\r\nKx-Received: {number}\r\n\r\n".encode()
                body = header + json.dumps([{"id": f"id{number}"}]).encode()
                client.write(f"HPUB kx.messages.app.a {len(header)} {len(body)}\r\n".encode() + body + b"\r\n")
            client.info()  # by then all of them were read
        self.sent += count

    def start(self):
        consumer = subprocess.Popen([CONSUMER, self.cluster.url, str(self.database)])
        self.addCleanup(consumer.wait)
        self.addCleanup(consumer.kill)
        return consumer

    def rows(self):
        if not self.database.exists():
            return []
        connection = sqlite3.connect(self.database, timeout=30)
        try:
            return connection.execute("SELECT id, received, subject, message FROM messages").fetchall()
        except sqlite3.OperationalError:
            return []  # there is no table yet
        finally:
            connection.close()

    def wait_for_all(self):
        eventually(lambda: len(self.rows()) == self.sent, "all messages in the database")
        self.assertEqual({row[0] for row in self.rows()}, {f"id{number}" for number in range(self.sent)})

    def test_what_is_in_the_stream_gets_into_the_database(self):
        self.publish(1200)
        consumer = self.start()
        self.wait_for_all()
        self.assertIn(("id7", 7, "kx.messages.app.a", '[{"id": "id7"}]'), self.rows())
        self.publish(10)
        self.wait_for_all()
        consumer.send_signal(signal.SIGTERM)
        self.assertEqual(consumer.wait(30), 0)

    def test_killed_ones_neither_lose_nor_repeat(self):
        for count in (3000, 2000, 1000):
            self.publish(count)
            before = len(self.rows())
            consumer = self.start()
            eventually(lambda: len(self.rows()) > before, "a first batch")
            consumer.kill()
            consumer.wait()
        # As if a whole batch had been written and not acknowledged.
        with Client(self.cluster.nodes[0].port) as client:
            client.ask("$JS.API.CONSUMER.DELETE.KX-MESSAGES.stream-to-sqlite")
        self.start()
        self.wait_for_all()

        def all_are_acknowledged():
            with Client(self.cluster.nodes[0].port) as client:
                info = client.ask("$JS.API.CONSUMER.INFO.KX-MESSAGES.stream-to-sqlite")
            return info["ack_floor"]["stream_seq"] == self.sent
        eventually(all_are_acknowledged, "the last acknowledgement")
        self.assertEqual(len(self.rows()), self.sent)

    def test_several_that_begin_at_once_share_the_work(self):
        several = [self.start() for _ in range(8)]
        self.publish(3000)
        self.wait_for_all()
        self.assertEqual({consumer.poll() for consumer in several}, {None})


if __name__ == "__main__":
    unittest.main()
