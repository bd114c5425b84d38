"""The example of each language, as a client of kx-collector: its message arrives."""

import os
import shutil
import sys
import tempfile
import time
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
EXAMPLES = os.path.join(HERE, "..", "..", "..", "examples")
sys.path.append(os.path.join(EXAMPLES, "demo"))
from programs import IDENTIFIER, PROGRAMS, Collector, Program  # noqa: E402

# Nothing that they could reach by accident.
ENVIRONMENT = {**os.environ, "DBUS_SESSION_BUS_ADDRESS": "unix:path=/nonexistent/bus", "DISPLAY": "",
               "WAYLAND_DISPLAY": ""}


def arguments(collector):
    return ["T", collector.address, IDENTIFIER, collector.ca_file]


class HostTest:
    command = []
    application = ""

    def test_reports(self):
        with (tempfile.TemporaryDirectory() as folder, Collector(folder) as collector,
              Program(*self.command, *arguments(collector), env=ENVIRONMENT) as host):
            messages = (event["document"][0] for event in collector.events_until(time.monotonic() + 30)
                        if event.get("endpoint") == "message" and event["status"] == 200)
            message = next(messages, None)
            self.assertIsNone(host.process.poll(), "it has ended")
            self.assertIsNotNone(message)
        self.assertEqual(message["bundleId"], self.application)
        self.assertEqual(message["ifa"], IDENTIFIER)


class CHostTest(HostTest, unittest.TestCase):
    command = [os.path.join(PROGRAMS, "kx-c-host")]
    application = "com.example.CHost"


class ValaHostTest(HostTest, unittest.TestCase):
    command = [os.path.join(PROGRAMS, "kx-vala-host")]
    application = "com.example.ValaHost"


class PythonHostTest(HostTest, unittest.TestCase):
    command = [sys.executable, os.path.join(EXAMPLES, "python", "main.py")]
    application = "com.example.PythonHost"


class JavaScriptHostTest(HostTest, unittest.TestCase):
    command = [shutil.which("gjs"), "-m", os.path.join(EXAMPLES, "javascript", "main.js")]
    application = "com.example.JavaScriptHost"


if __name__ == "__main__":
    unittest.main()
