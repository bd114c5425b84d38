"""What the demo shows: every fact that this device can have, and how it changes on the way."""

import os
import subprocess
import sys
import unittest

DEMO = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "..", "examples", "demo")
SKIPPED = 77  # exit code

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


class PlainDemoTest(unittest.TestCase):
    def test_shows_this_machine(self):
        lines = play("--plain", "--seconds", "9")
        facts = facts_of_message(1, lines)
        for key in OF_EVERY_DEVICE:
            self.assertIn(key, facts)
        self.assertTrue(any("-> Message 2, on entering the background" in line for line in lines), lines)
        self.assertIn("1 login, 2 messages", lines[-1])


class WholeDemoTest(unittest.TestCase):
    def test_shows_all_facts_and_how_they_change(self):
        lines = play("--seconds", "24")
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
        self.assertTrue(any("-> Message 4, before the system sleeps" in line for line in lines), lines)
        self.assertIn("1 login, 5 messages", lines[-1])


if __name__ == "__main__":
    sys.path.insert(0, DEMO)
    import surroundings
    reason = surroundings.what_is_missing() if "WholeDemoTest" in sys.argv else None
    if reason is not None:
        print(f"SKIPPED: {reason}")
        sys.exit(SKIPPED)
    unittest.main()
