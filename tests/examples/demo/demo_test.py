"""What the demo shows: every fact that this device can have, and how it changes on the way."""

import json
import os
import pty
import re
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import urllib.request

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "..")
DEMO = os.path.join(ROOT, "examples", "demo")
sys.path.insert(0, DEMO)

import surroundings  # noqa: E402 (where it is has to be known first)
from programs import Collector  # noqa: E402

SKIPPED = 77  # exit code
CLOSED_PIPE = 128 + signal.SIGPIPE  # exit code
BAD_ARGUMENTS = 2  # exit code

OF_EVERY_DEVICE = ["make", "platform", "osVersion", "name", "ifa", "dnt", "bundleId", "sdkName", "sdkVer", "ips", "id",
                   "eventTime"]
OF_A_WHOLE_DEVICE = OF_EVERY_DEVICE + ["deviceCategory", "model", "languages", "carrierCode", "radioAccessTechnology",
                                       "lat", "lon", "horizontalAccuracy", "altitude", "verticalAccuracy", "country",
                                       "state", "city", "tzOffset", "connectionType", "asn"]


def play(*arguments):
    """The lines that the demo prints."""
    result = subprocess.run([sys.executable, os.path.join(DEMO, "demo.py"), *arguments], capture_output=True, text=True,
                            check=False)
    if result.returncode:
        raise AssertionError(f"exit code {result.returncode}\n{result.stdout}{result.stderr}")
    return result.stdout.splitlines()


def facts_of_message(number, lines):
    """What is printed of a message, by key."""
    start = next(i for i, line in enumerate(lines) if f"-> Message {number}," in line)
    facts = {}
    for line in lines[start + 1:]:
        if not line.startswith("            "):
            break
        key, value = line.split(maxsplit=1)
        facts[key] = value
    return facts


def is_told_in_full(line):
    """Whether a line has the form of its kind, with nothing left empty."""
    return any(re.fullmatch(form, line) for form in (
        r" *\d+\.\d s  [A-Z\d].*[.:;]| *\d+\.\d s +kx::.*;", r" *\d+\.\d s  An .* \.\.\.",
        r" *\d+\.\d s  -> Login: .+\.", r" *\d+\.\d s  -> Message \d+, (on|before|\d+ s after) \w.*\w:",
        r" {12}\w+ +[\"\[\d-].*", r" {12}without \w+: \w.*\w", r" {12}no longer there: \w.*\w", r" {12}and \d+ facts as before"))


class DemoTest(unittest.TestCase):
    def assert_told_in_full(self, lines):
        self.assertEqual([line for line in lines if not is_told_in_full(line)], [])

    def assert_page_can_be_seen(self, *arguments):
        """By a browser of this machine, for as long as nobody ends it."""
        with tempfile.TemporaryDirectory() as folder:
            process, output = start_in_background(folder, "--open", "--seconds", "7", *arguments)
            family = []
            try:
                seen = wait_for_text("until Ctrl-C.", output)
                family = descendants(process)
                self.assertIn("1 login, 1 message", seen)
                page = re.search(r"(http://127\.0\.0\.1:\d+/) in a browser", seen).group(1)
                with urllib.request.urlopen(page + "api/counts", timeout=30) as answer:
                    self.assertEqual(json.load(answer)["messages"], 1)
                with urllib.request.urlopen(page, timeout=30) as answer:
                    self.assertIn(b"page-token", answer.read())
            finally:
                os.kill(process, signal.SIGTERM)
                os.waitpid(process, 0)
                output.close()
            self.assertEqual(those_left(family, 30), [])

    def assert_ends_without_a_trace(self, *arguments):
        """However it ends."""
        for start, end in ((start_in_background, terminate), (start_in_background, kill),
                           (start_in_background, kill_what_plays), (start_on_a_terminal, close_terminal)):
            with self.subTest(end=end.__name__), tempfile.TemporaryDirectory() as folder:
                before = set(os.listdir("/dev/shm"))
                process, output = start(folder, *arguments)
                wait_for_text("-> Login", output)
                family = descendants(process)
                self.assertGreaterEqual(len(family), 4)
                end(family, output)
                os.waitpid(process, 0)
                # Somebody reads on, lest it end for want of that.
                left = those_left(family, 60)
                output.close()
                self.assertEqual(left, [])
                self.assertEqual(os.listdir(folder), [])
                self.assertEqual({"bus", "collector", "nmea"} & (set(os.listdir("/dev/shm")) - before), set())


# ---- Ways to start and to end it

def start_in_background(folder, *arguments):
    """The demo's process, with that folder for temporary files, and what it writes to. No terminal tells it of its end."""
    reader, writer = os.pipe()
    process = os.fork()
    if process == 0:
        os.setsid()
        os.dup2(writer, sys.stdout.fileno())
        become_the_demo(folder, *arguments)
    os.close(writer)
    return process, open(reader, "rb", buffering=0)


def start_on_a_terminal(folder, *arguments):
    """The same, on a terminal of its own."""
    process, terminal = pty.fork()
    if process == 0:
        become_the_demo(folder, *arguments)
    return process, open(terminal, "rb", buffering=0)


def become_the_demo(folder, *arguments):
    os.environ["TMPDIR"] = folder
    os.execv(sys.executable, [sys.executable, os.path.join(DEMO, "demo.py"), *arguments])


def terminate(family, _):
    os.kill(family[0][0], signal.SIGTERM)


def kill(family, _):
    os.kill(family[0][0], signal.SIGKILL)


def kill_what_plays(family, _):
    """The process below the one that was started."""
    os.kill(family[1][0], signal.SIGKILL)


def close_terminal(_, terminal):
    terminal.close()


def wait_for_text(text, output):
    seen = ""
    while text not in seen:
        read = output.read(4096).decode()
        if not read:
            raise AssertionError(f"it ended early: {seen}")
        seen += read
    return seen


def running():
    """The parent of each process that runs, by its number and the time of its start."""
    parents = {}
    for name in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open(f"/proc/{name}/stat", encoding="utf-8", errors="replace") as file:
                state, parent, *fields = file.read().rsplit(")", 1)[1].split()
        except OSError:
            continue  # it has ended
        if state != "Z":
            parents[int(name), fields[17]] = int(parent)
    return parents


def descendants(process):
    """That process and all below it, from the top."""
    parents = running()
    family = [key for key in parents if key[0] == process]
    for member, _ in family:
        family += [key for key, parent in parents.items() if parent == member]
    return family


def those_left(family, seconds):
    """The members that still run after that time at the latest."""
    end = time.monotonic() + seconds
    while left := [key for key in family if key in running()]:
        if time.monotonic() > end:
            break
        time.sleep(0.05)
    return left


class DemoArgumentsTest(unittest.TestCase):
    """Of the script that people start; nothing is installed or built for arguments that are refused."""

    def refusal_of(self, *arguments):
        result = subprocess.run([os.path.join(ROOT, "script", "demo"), *arguments], capture_output=True, text=True,
                                check=False, env={"PATH": "/usr/bin:/bin"})
        self.assertEqual((result.returncode, result.stdout), (BAD_ARGUMENTS, ""))
        return result.stderr

    def test_refuses_a_time_without_a_message(self):
        for seconds in ("6", "0", "-3", "3.5", "1e3", "", "soon", "9999999"):
            self.assertIn("--seconds must be a whole number from 7 to 999999", self.refusal_of("--seconds", seconds))
            self.assertIn("--seconds must be a whole number", self.refusal_of(f"--seconds={seconds}", "--plain"))
        self.assertIn("--seconds needs a number", self.refusal_of("--seconds"))

    def test_refuses_what_it_does_not_know(self):
        self.assertIn("unexpected argument --second", self.refusal_of("--second", "9"))
        self.assertIn("unexpected argument 9", self.refusal_of("--plain", "9"))

    def test_tells_how_it_is_used(self):
        result = subprocess.run([os.path.join(ROOT, "script", "demo"), "--seconds", "3", "--help"], capture_output=True,
                                text=True, check=True)
        self.assertIn("usage: script/demo [--seconds N] [--plain]", result.stdout)
        self.assertEqual(result.stderr, "")


class PlainDemoTest(DemoTest):
    def test_ends_without_a_trace(self):
        self.assert_ends_without_a_trace("--plain")

    def test_sees_a_signal_that_came_as_it_fell_asleep(self):
        """Which is a signal that does not wake it, like one that another thread takes."""
        class Seen(Exception):
            pass

        def see(*_):
            raise Seen

        before = signal.signal(signal.SIGUSR1, see)
        self.addCleanup(signal.signal, signal.SIGUSR1, before)
        with tempfile.TemporaryDirectory() as folder, Collector(folder) as collector:
            thread = threading.Timer(0.5, lambda: signal.pthread_kill(threading.get_ident(), signal.SIGUSR1))
            start = time.monotonic()
            thread.start()
            with self.assertRaises(Seen):
                list(collector.events_until(start + 60))
            self.assertLess(time.monotonic() - start, 30)

    def test_ends_quietly_when_nobody_reads_on(self):
        with tempfile.TemporaryDirectory() as folder:
            command = [sys.executable, os.path.join(DEMO, "demo.py"), "--plain"]
            with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                  env=dict(os.environ, TMPDIR=folder)) as demo:
                demo.stdout.readline()
                demo.stdout.close()
                self.assertEqual(demo.stderr.read(), "")
                self.assertEqual(demo.wait(30), CLOSED_PIPE)
            self.assertEqual(os.listdir(folder), [])

    def test_keeps_the_page_open_when_it_is_told(self):
        self.assert_page_can_be_seen("--plain")

    def test_counts_one_message_as_one(self):
        lines = play("--plain", "--seconds", "7")
        self.assertRegex(lines[-1], r"1 login, 1 message of \d+ bytes, 0 refused\.$")

    def test_shows_this_machine(self):
        lines = play("--plain", "--seconds", "9")
        self.assert_told_in_full(lines)
        facts = facts_of_message(1, lines)
        for key in OF_EVERY_DEVICE:
            self.assertIn(key, facts)
        self.assertTrue(any("-> Message 2, on entering the background" in line for line in lines), lines)
        self.assertIn("1 login, 2 messages", lines[-1])


class WholeDemoTest(DemoTest):
    def test_ends_without_a_trace(self):
        self.assert_ends_without_a_trace()

    def test_keeps_the_page_open_when_it_is_told(self):
        self.assert_page_can_be_seen()

    def test_shows_all_facts_and_how_they_change(self):
        lines = play("--seconds", "24")
        self.assert_told_in_full(lines)
        first = facts_of_message(1, lines)
        for key in OF_A_WHOLE_DEVICE:
            self.assertIn(key, first)
        self.assertEqual(first["carrierCode"], '"262-01"')
        self.assertEqual(first["connectionType"], '"WIFI"')
        self.assertEqual(first["city"], '"Berlin"')
        without_wifi = facts_of_message(2, lines)
        self.assertEqual(without_wifi["connectionType"], '"CELLULAR"')
        self.assertEqual(without_wifi["ips"], "[]")
        self.assertIn("lon", without_wifi)
        self.assertEqual(facts_of_message(3, lines)["carrierCode"], '"310-410"')
        self.assertEqual(
            [line.split(", ", 1)[1] for line in lines if "-> Message" in line],
            ["5 s after the start:", "on entering the background:", "5 s after the return to the foreground:",
             "before the system sleeps:", "5 s after waking:"])
        self.assertIn("1 login, 5 messages", lines[-1])


if __name__ == "__main__":
    reason = surroundings.what_is_missing() if "WholeDemoTest" in sys.argv else None
    if reason is not None:
        print(f"SKIPPED: {reason}")
        sys.exit(SKIPPED)
    unittest.main()
