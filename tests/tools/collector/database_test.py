"""The requests in a file: over restarts, after a sudden end, and what is no such file.

usage: database_test.py CLASS
"""

import http.client
import random
import resource
import signal
import sqlite3
import subprocess
import tempfile
import threading
import time
import unittest
from pathlib import Path

from collector import PROGRAM, Collector, uuid


def random_text(size):
    return "".join(random.choices("abcdefghijklmnopqrstuvwxyz0123456789", k=size))


class DatabaseTest(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.folder = Path(temporary.name)
        self.file = self.folder / "requests"

    def collector(self, *options):
        return Collector("--database", str(self.file), *options, folder=self.folder)

    def fill(self):
        with self.collector() as collector:
            collector.log_in()


class RestartTest(DatabaseTest):
    def test_requests_stay(self):
        with self.collector() as collector:
            token = collector.log_in()
            collector.send(token, 1, lat=48.1)
            before = [collector.get(f"/api/requests/{id}") for id in (1, 2)]
        with self.collector() as collector:
            after = [collector.get(f"/api/requests/{id}") for id in (1, 2)]
            for one, other in zip(before, after):
                one.pop("microseconds"), other.pop("microseconds")  # the time of the answer comes later
            self.assertEqual(before, after)
            collector.send(collector.log_in(), 1)
            latest = collector.get("/api/requests/4")
            self.assertEqual(latest["previous"], 2)
            self.assertIn("has come before", latest["warnings"][0])

    def test_ids_go_on_when_all_was_forgotten(self):
        with self.collector() as collector:
            collector.log_in()
            collector.ask("/api/requests", "DELETE")
        with self.collector() as collector:
            collector.log_in()
            self.assertEqual([request["id"] for request in collector.get("/api/requests")["requests"]], [2])

    def test_the_newest_are_kept(self):
        for options in (("--database", str(self.file)), ()):
            with Collector("--keep", "3", *options, folder=self.folder) as collector:
                for _ in range(5):
                    collector.log_in()
                self.assertEqual([request["id"] for request in collector.get("/api/requests")["requests"]], [3, 4, 5])

    def test_what_cannot_be_written_is_not_answered(self):
        def limit():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)  # so that writing fails, as on a full disk
            resource.setrlimit(resource.RLIMIT_FSIZE, (3000000, 3000000))

        with Collector("--database", str(self.file), folder=self.folder, prepare=limit) as collector:
            token = collector.log_in()
            answered = set()
            with self.assertRaises((http.client.HTTPException, OSError)):
                for number in range(1, 1000):
                    self.assertEqual(collector.send(token, number, name=random_text(2000)).status, 200)
                    answered.add(uuid(number))
            kept = collector.get("/api/requests?kind=message&limit=1000")["requests"]
            self.assertGreater(len(answered), 10)
            self.assertEqual({request["eventId"] for request in kept}, answered)
            for _ in range(1000):
                reasons = [line["reason"] for line in collector.lines if line["event"] == "connection"]
                if any("full" in reason or "I/O" in reason for reason in reasons):
                    break
                time.sleep(0.01)
            else:
                self.fail(f"nobody is told: {reasons}")
        with self.collector() as collector:
            self.assertEqual(collector.get("/api/counts?kind=message")["good"], len(answered))

    def test_nothing_that_was_answered_is_lost(self):
        answered = []
        collector = self.collector()
        self.addCleanup(collector.stop, signal.SIGKILL)
        token = collector.log_in()

        def send():
            number = 0
            try:
                while True:
                    number += 1
                    if collector.send(token, number).status == 200:
                        answered.append(uuid(number))
            except Exception:  # it was killed
                return

        for _ in range(3):
            answered.clear()
            thread = threading.Thread(target=send)
            thread.start()
            while len(answered) < 50 and thread.is_alive():
                thread.join(0.01)
            collector.process.send_signal(signal.SIGKILL)
            thread.join()
            collector.stop(signal.SIGKILL)
            collector.start()
            kept = set()
            last = 0
            while True:
                page = collector.get(f"/api/requests?kind=message&limit=1000&after={last}")
                kept.update(request["eventId"] for request in page["requests"])
                if not page["more"]:
                    break
                last = page["requests"][-1]["id"]
            self.assertGreaterEqual(len(answered), 50)
            self.assertEqual(set(answered) - kept, set())
            self.assertEqual(sqlite3.connect(self.file).execute("PRAGMA integrity_check").fetchone(), ("ok",))
            token = collector.log_in()


class RefusalTest(DatabaseTest):
    def refused(self, reason):
        before = self.file.read_bytes()
        result = subprocess.run([PROGRAM, "--port", "0", "--page-port", "0", "--directory", str(self.folder),
                                 "--database", str(self.file)], capture_output=True, text=True, timeout=60)
        self.assertEqual([result.returncode, result.stdout], [1, ""])
        self.assertIn(reason, result.stderr)
        self.assertIn(str(self.file), result.stderr)
        self.assertEqual(self.file.read_bytes(), before)

    def test_something_else(self):
        self.file.write_text("Dear diary, today somebody mistook me for a database. " * 10)
        self.refused("not a database of kx-collector")
        self.file.write_text("x")
        self.refused("not a database of kx-collector")

    def test_a_database_of_something_else(self):
        with sqlite3.connect(self.file) as database:
            database.execute("CREATE TABLE diary(day, text)")
        self.refused("not a database of kx-collector")

    def test_another_version(self):
        self.fill()
        database = sqlite3.connect(self.file)
        database.execute("PRAGMA user_version = 2")
        database.execute("PRAGMA wal_checkpoint(TRUNCATE)")
        database.close()
        self.refused("it has version 2, and this program reads version 1")

    def test_a_damaged_one(self):
        self.fill()
        content = bytearray(self.file.read_bytes())
        self.assertGreater(len(content), 8192)
        content[4096:] = b"\xa5" * (len(content) - 4096)
        self.file.write_bytes(content)
        self.refused("damaged")

    def test_one_that_was_cut_off(self):
        self.fill()
        content = self.file.read_bytes()
        self.file.write_bytes(content[:len(content) // 2])
        self.refused("damaged")

    def test_one_that_is_in_use(self):
        with self.collector() as collector:
            collector.log_in()
            self.refused("another collector has it open")
            self.assertEqual(collector.get("/api/counts")["all"], 1)

    def test_one_in_no_folder(self):
        result = subprocess.run([PROGRAM, "--port", "0", "--directory", str(self.folder), "--database",
                                 str(self.folder / "none" / "requests")], capture_output=True, text=True, timeout=60)
        self.assertEqual(result.returncode, 1)
        self.assertIn("No such file or directory", result.stderr)


if __name__ == "__main__":
    unittest.main()
