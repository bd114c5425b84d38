"""kx-collector --stream: collectors side by side, on a stream of servers that may fail."""

import gzip
import json
import secrets
import signal
import subprocess
import tempfile
import unittest
import urllib.error
import urllib.request
from collections import Counter
from pathlib import Path

from collector import LOGIN, MESSAGE, Collector, message, uuid
from fake_nats import FakeServer
from nats import Client, Cluster, eventually
from proof import Proof, StreamCollector, write_keys

ROOT = Path(__file__).resolve().parents[3]


class OneNodeTest(unittest.TestCase):
    """What is published, and what is not."""

    @classmethod
    def setUpClass(cls):
        cls.cluster = Cluster()
        cls.addClassCleanup(cls.cluster.__exit__)
        cls.cluster.__enter__()
        cls.number = 0

    def start(self, *options):
        """On a stream of its own."""
        type(self).number += 1
        self.stream, self.subject = f"TEST-{self.number}", f"test{self.number}"
        collector = StreamCollector(self.cluster, "--stream-name", self.stream, "--stream-subject", self.subject,
                                    *options)
        self.addCleanup(collector.__exit__)
        return collector.wait_until_ready()

    def messages(self):
        return self.cluster.look(lambda client: client.messages(self.stream))

    def test_an_accepted_message_is_in_the_stream_with_what_matters(self):
        collector = self.start()
        collector.post(LOGIN, b"{}")  # is refused
        self.assertEqual(collector.statuses(1), [200])
        (subject, headers, payload), = self.messages()
        self.assertEqual(subject, self.subject + ".app.com.example.Host")
        self.assertEqual(json.loads(payload)[0]["id"], "00000000-0000-4000-8000-000000000001")
        self.assertEqual(headers["Nats-Msg-Id"], "00000000-0000-4000-8000-000000000001")
        self.assertRegex(headers["Kx-Client"], r"^127\.0\.0\.1:\d+$")
        self.assertRegex(headers["Kx-Received"], r"^\d{13}$")

    def test_a_message_that_comes_again_is_there_once(self):
        collector = self.start()
        token = collector.log_in()
        self.assertEqual([collector.send(token, 7).status for _ in range(3)], [200, 200, 200])
        self.assertEqual(len(self.messages()), 1)
        self.assertEqual(collector.metric("stream_duplicates_total"), 2)

    def test_what_is_refused_is_not_in_the_stream(self):
        collector = self.start()
        token = collector.log_in()
        self.assertEqual(collector.send("x" + token).status, 403)
        self.assertEqual(collector.send(token, ifa=None).status, 400)
        self.assertEqual(self.messages(), [])
        refused = eventually(lambda: len(collector.events("refused")) == 2 and collector.events("refused"), "lines")
        self.assertEqual([line["status"] for line in refused], [403, 400])
        self.assertNotIn(token, json.dumps(collector.lines))
        self.assertNotIn("6D92078A", json.dumps(collector.lines))

    def test_names_that_mean_something_to_a_stream_are_no_subjects(self):
        collector = self.start()
        token = collector.log_in()
        names = ["*", ">", "a.*", "a..b", ".a", "a.", "", "a b", "a\r\nPUB x", "\u00e4", "x" * 300, None]
        for number, name in enumerate(names, 1):
            self.assertEqual(collector.send(token, number, bundleId=name).status, 200, name)
        self.assertEqual([subject for subject, _, _ in self.messages()], [self.subject + ".other"] * len(names))

    def test_ids_that_are_no_header_are_told_apart_all_the_same(self):
        collector = self.start()
        token = collector.log_in()
        ids = ["a b", "a\r\nx: y", "a\nx: y", "\u00e4", "\u00f6", "x" * 300, "x" * 301, "a b"]
        for name in ids:
            self.assertEqual(collector.send(token, id=name).status, 200, name)
        found = self.messages()
        self.assertEqual([json.loads(payload)[0]["id"] for _, _, payload in found], ids[:-1])
        for _, headers, _ in found:
            self.assertRegex(headers["Nats-Msg-Id"], "^sha256:[0-9a-f]{64}$")

    def test_made_up_applications_share_a_subject_in_the_end(self):
        collector = self.start()
        token = collector.log_in()
        for number in range(1, 1004):
            self.assertEqual(collector.send(token, number, bundleId=f"app{number}").status, 200)
        self.assertEqual(collector.send(token, 2000, bundleId="app1").status, 200)
        subjects = Counter(subject for subject, _, _ in self.messages())
        self.assertEqual(subjects[self.subject + ".other"], 3)
        self.assertEqual(subjects[self.subject + ".app.app1"], 2)
        self.assertEqual(len(subjects), 1001)

    def test_bodies_are_shorter_than_without_a_stream(self):
        collector = self.start()
        answer = collector.send(collector.log_in(), name="x" * 70000)
        self.assertEqual(answer.status, 413)

    def test_metrics_count_what_happens(self):
        collector = self.start()
        collector.statuses(3)
        collector.send("unknown")
        self.assertEqual(collector.metric('requests_total{endpoint="login",status="200"}'), 1)
        self.assertEqual(collector.metric('requests_total{endpoint="message",status="200"}'), 3)
        self.assertEqual(collector.metric('requests_total{endpoint="message",status="403"}'), 1)
        self.assertEqual(collector.metric('stream_messages_total{outcome="acknowledged"}'), 3)
        self.assertEqual(collector.metric('stream_acknowledgement_seconds_bucket{le="+Inf"}'), 3)
        self.assertEqual(collector.metric("stream_acknowledgement_seconds_count"), 3)
        self.assertEqual(collector.metric("stream_ready"), 1)
        self.assertEqual(collector.metric("stream_waiting_messages"), 0)
        eventually(lambda: collector.metric("connections") == 1, "the connection counted")

    def test_operators_ask_for_what_there_is(self):
        collector = self.start()
        self.assertEqual(collector.operations("/healthz"), (200, "it runs\n"))
        self.assertEqual(collector.operations("/readyz"), (200, "it is ready\n"))
        self.assertEqual(collector.operations("/")[0], 404)
        self.assertEqual(collector.operations("/metrics?x=1")[0], 200)
        request = urllib.request.Request(collector.where["operations"] + "/metrics", data=b"x", method="POST")
        with self.assertRaises(urllib.error.HTTPError) as caught:
            urllib.request.urlopen(request, timeout=30)
        caught.exception.close()
        self.assertEqual(caught.exception.code, 405)

    def test_a_stream_that_is_full_refuses_what_is_new(self):
        with Client(self.cluster.nodes[0].port) as client:
            client.ask("$JS.API.STREAM.CREATE.SMALL", {"name": "SMALL", "subjects": ["small.>"], "max_msgs": 3,
                                                       "discard": "new", "storage": "file", "num_replicas": 1})
        with StreamCollector(self.cluster, "--stream-name", "SMALL", "--stream-subject", "small") as collector:
            collector.wait_until_ready()
            self.assertEqual(collector.statuses(5), [200, 200, 200, 503, 503])
            self.assertEqual(collector.metric('stream_messages_total{outcome="failed"}'), 2)
        self.assertEqual(len(self.cluster.look(lambda client: client.messages("SMALL"))), 3)


class FailingNodeTest(unittest.TestCase):
    """One server, which stops and goes."""

    def setUp(self):
        self.cluster = Cluster()
        self.addCleanup(self.cluster.__exit__)
        self.cluster.__enter__()
        self.node = self.cluster.nodes[0]

    def start(self, *options):
        collector = StreamCollector(self.cluster, *options)
        self.addCleanup(collector.__exit__)
        return collector

    def test_a_stream_that_is_away_means_503_at_once_and_comes_back(self):
        collector = self.start().wait_until_ready()
        token = collector.log_in()
        self.assertEqual(collector.statuses(2, token), [200, 200])
        self.node.kill()
        eventually(lambda: not collector.is_ready(), "a collector that is not ready")
        self.assertEqual(collector.operations("/healthz")[0], 200)
        self.assertEqual(collector.statuses(50, token, 10), [503] * 50)
        self.assertIsNotNone(collector.log_in())
        self.node.start()
        collector.wait_until_ready()
        self.assertEqual(collector.statuses(2, token, 100), [200, 200])
        self.assertEqual(len(self.cluster.messages()), 4)
        eventually(lambda: [line["ready"] for line in collector.events("stream")][-3:] == [True, False, True],
                   "what the stream does in the log")

    def test_a_start_without_a_stream_is_a_collector_that_is_not_ready(self):
        self.node.kill()
        collector = self.start()
        self.assertFalse(collector.is_ready())
        self.assertEqual(collector.statuses(1), [503])
        self.node.start()
        collector.wait_until_ready()
        self.assertEqual(collector.statuses(1), [200])

    def test_a_stream_that_stands_still_gets_little(self):
        collector = self.start("--stream-timeout", "3").wait_until_ready()
        token = collector.log_in()
        self.assertEqual(collector.statuses(1, token), [200])
        self.node.pause()
        self.assertEqual(collector.statuses(1, token, 10), [503])  # after 3 s
        eventually(lambda: not collector.is_ready(), "a collector that has noticed")
        self.assertEqual(collector.statuses(200, token, 20), [503] * 200)
        self.assertEqual(collector.metric("stream_waiting_messages"), 0)
        self.node.go_on()
        collector.wait_until_ready()
        self.assertEqual(collector.statuses(1, token, 1000), [200])
        ids = Counter(headers["Nats-Msg-Id"] for _, headers, _ in self.cluster.messages())
        self.assertEqual(set(ids.values()), {1})
        self.assertIn("00000000-0000-4000-8000-000000000001", ids)
        self.assertIn("00000000-0000-4000-8000-000000001000", ids)

    def test_a_terminated_collector_answers_what_it_has_taken(self):
        collector = self.start("--stream-timeout", "20").wait_until_ready()
        token = collector.log_in()
        self.assertEqual(collector.statuses(1, token), [200])
        self.node.pause()
        body = json.dumps([message(2)]).encode()
        collector.connection.request("POST", MESSAGE, gzip.compress(body),
                                     {"Content-Type": "application/json", "Content-Encoding": "gzip",
                                      "Authorization": f"Bearer {token}"})
        eventually(lambda: collector.metric("stream_waiting_messages") == 1, "a message on its way")
        collector.process.send_signal(signal.SIGTERM)
        eventually(lambda: collector.operations("/readyz") == (503, "it is about to end\n"), "no more readiness")
        self.node.go_on()
        answer = collector.connection.getresponse()
        self.assertEqual((answer.status, answer.headers["Connection"]), (200, "close"))
        answer.read()
        self.assertEqual(collector.process.wait(30), 0)
        self.assertEqual(len(self.cluster.messages()), 2)


class DuplicatesTest(unittest.TestCase):
    """A stream that says of a message that it has it already, and may be wrong: it says so of one, too, that it has only begun
    to store, which goes with the node that led."""

    def statuses(self, acknowledge, count=1, **more):
        """Of so many messages, the server and the collector's count of duplicates."""
        with FakeServer(acknowledge, **more) as server, StreamCollector(server, "--stream-timeout", "2") as collector:
            collector.wait_until_ready()
            return collector.statuses(count), server, collector.metric("stream_duplicates_total")

    def test_one_that_the_stream_shows_is_accepted(self):
        statuses, server, duplicates = self.statuses(lambda key, before: (7, True), kept={7: uuid(1)})
        self.assertEqual((statuses, server.published, server.asked, duplicates), ([200], [uuid(1)], [7], 1))

    def test_one_without_a_number_is_published_again_until_the_stream_has_it(self):
        statuses, server, duplicates = self.statuses(lambda key, before: (0, True) if before < 3 else (7, True),
                                                     kept={0: uuid(1), 7: uuid(1)})
        self.assertEqual((statuses, server.published, server.asked, duplicates), ([200], [uuid(1)] * 4, [7], 1))

    def test_one_that_is_stored_after_all_is_no_duplicate(self):
        statuses, server, duplicates = self.statuses(lambda key, before: (before, before == 0))
        self.assertEqual((statuses, server.published, server.asked, duplicates), ([200], [uuid(1)] * 2, [], 0))

    def test_one_that_the_stream_never_shows_is_not_accepted(self):
        for more in ({"kept": {7: uuid(2)}}, {}, {"is_silent": True}):
            statuses, server, duplicates = self.statuses(lambda key, before: (7, True), **more)
            self.assertEqual((statuses, duplicates), ([503], 0), more)
            self.assertEqual(set(server.asked), {7})

    def test_a_stream_that_shows_nothing_holds_nobody_else_up(self):
        statuses, *_ = self.statuses(lambda key, before: (7, key == uuid(1)), count=3, is_silent=True)
        self.assertEqual(statuses, [503, 200, 200])


class UsersTest(unittest.TestCase):
    """A stream that asks who comes, with the permissions of the example."""

    def test_a_collector_may_do_what_it_has_to_by_the_user_in_a_file(self):
        configuration = (ROOT / "examples/deploy/nats.conf").read_text()
        permissions = configuration[configuration.index("authorization {"):]
        for name in ("$COLLECTOR_PASSWORD", "$CONSUMER_PASSWORD"):
            permissions = permissions.replace(name, '"secret"')
        with tempfile.TemporaryDirectory() as folder, \
                Cluster(configuration=permissions, user=("consumer", "secret")) as cluster:
            file = Path(folder) / "stream"
            file.touch(mode=0o600)
            file.write_text(cluster.url.replace("nats://", "nats://collector:secret@") + "\n")
            with Collector("--no-page", "--stream-file", str(file), "--operations-port", "0") as collector:
                token = collector.log_in()
                eventually(lambda: collector.send(token).status == 200, "a message that is accepted")
                self.assertEqual(collector.send(token).status, 200)  # again: the stream is asked for it
                self.assertNotIn("secret", json.dumps(collector.lines) + collector.errors())
            self.assertEqual(len(cluster.messages()), 1)
            file.write_text(cluster.url.replace("nats://", "nats://collector:wrong@") + "\n")
            with Collector("--no-page", "--stream-file", str(file), "--operations-port", "0") as collector:
                eventually(lambda: any(line["event"] == "stream" for line in collector.lines), "a line in the log")
                self.assertEqual(collector.send(collector.log_in(), 2).status, 503)
                self.assertNotIn("wrong", json.dumps(collector.lines) + collector.errors())


class TLSTest(unittest.TestCase):
    """A stream that shows a certificate."""

    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.folder = Path(temporary.name)
        self.certificate, key = self.folder / "certificate.pem", self.folder / "key.pem"
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", "/CN=Test",
                        "-addext", "subjectAltName=DNS:localhost", "-keyout", key, "-out", self.certificate],
                       check=True, capture_output=True)
        self.cluster = Cluster(configuration=f'tls {{ cert_file: "{self.certificate}", key_file: "{key}" }}',
                               authority=self.certificate)
        self.addCleanup(self.cluster.__exit__)
        self.cluster.__enter__()

    def start(self, host, *options):
        collector = Collector("--no-page", "--stream", f"tls://{host}:{self.cluster.nodes[0].port}",
                              "--operations-port", "0", *options)
        self.addCleanup(collector.__exit__)
        return collector

    def test_the_stream_is_trusted_by_the_authority_that_is_named(self):
        collector = self.start("localhost", "--stream-ca", str(self.certificate))
        token = collector.log_in()
        eventually(lambda: collector.send(token).status == 200, "a message that is accepted")

    def test_another_server_is_not_trusted(self):
        for host, options in (("localhost", []), ("127.0.0.1", ["--stream-ca", str(self.certificate)])):
            collector = self.start(host, *options)
            line = eventually(lambda: [line for line in collector.lines if line["event"] == "stream"], "a line")[0]
            self.assertFalse(line["ready"])
            self.assertRegex(line["reason"], "SSL|certificate")


class TokensTest(unittest.TestCase):
    """Tokens of one collector are good at the other."""

    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.keys = Path(temporary.name) / "keys"

    def start(self):
        collector = Collector("--no-page", "--token-keys", str(self.keys))
        self.addCleanup(collector.__exit__)
        return collector

    def test_they_are_good_everywhere_and_keys_change_without_a_refusal(self):
        old, new = secrets.token_hex(32), secrets.token_hex(32)
        write_keys(self.keys, old)
        first, second = self.start(), self.start()
        token = first.log_in()
        self.assertEqual(second.send(token).status, 200)
        write_keys(self.keys, new, old)
        first.process.send_signal(signal.SIGHUP)
        eventually(lambda: second.send(first.log_in()).status == 403, "a key that only one has")
        second.process.send_signal(signal.SIGHUP)
        eventually(lambda: second.send(first.log_in()).status == 200, "a key that both have")
        self.assertEqual(second.send(token).status, 200)
        write_keys(self.keys, new)
        first.process.send_signal(signal.SIGHUP)
        eventually(lambda: first.send(token).status == 403, "a key that is gone")

    def test_keys_that_cannot_be_read_leave_those_that_are_used(self):
        write_keys(self.keys, secrets.token_hex(32))
        collector = self.start()
        token = collector.log_in()
        self.keys.chmod(0o644)
        collector.process.send_signal(signal.SIGHUP)
        eventually(lambda: any("Others than its owner" in line.get("reason", "") for line in collector.lines),
                   "the problem in the log")
        self.assertEqual(collector.send(token).status, 200)

    def test_keys_that_others_may_read_end_the_start(self):
        write_keys(self.keys, secrets.token_hex(32))
        self.keys.chmod(0o640)
        with self.assertRaisesRegex(RuntimeError, "Others than its owner may read or change"):
            self.start()


class ProofTest(unittest.TestCase):
    """Three collectors on three nodes, under load, while one after the other is killed."""

    def test_what_was_answered_2xx_is_in_the_stream_once_and_nothing_else_is(self):
        # Few devices, since all days are planned first; days enough for a machine on which each step takes two minutes.
        with Proof() as proof, proof.load(devices=400, pace=600, days=4) as load:
            load.wait_for_more("messages")
            leader = proof.cluster.leader()
            leader.kill()
            load.wait_for_more("messages without the node that led")
            proof.collectors[0].stop(signal.SIGKILL)
            load.wait_for_more("messages without a collector")
            leader.start()
            load.wait_for_more("messages with all nodes again")
            load.end()
            self.assertEqual(proof.problems(load), [])
            self.assertEqual(set(load.statuses().values()) - {200, 503, None}, set())


if __name__ == "__main__":
    unittest.main()
