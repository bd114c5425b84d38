"""The page as kx-collector itself serves it, with requests that a host sends it."""

import json
import pathlib
import subprocess
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))

from collector import MESSAGE, Collector  # pylint: disable=wrong-import-position
from page_case import PageCase  # pylint: disable=wrong-import-position


class ProgramTest(PageCase):
    def setUp(self):
        super().setUp()
        self.program = self.enterContext(Collector())
        self.collector.url = self.program.page.rstrip("/")

    def test_shows_what_a_host_sends(self):
        self.show()
        self.browser.until("return !document.getElementById('welcome').hidden")
        self.assertIn(self.program.get("/api/status")["service"], self.browser.text("#welcome"))
        token = self.program.log_in()
        self.program.send(token, 1, lat=52.52, lon=13.405, horizontalAccuracy=65)
        self.program.send(token, 2, lat=52.53, lon=13.405, horizontalAccuracy=65, city="Berlin")
        self.program.send("another", 3)
        self.await_rows(4, 3, 2, 1)
        self.assertEqual([self.browser.text(f"#row-{number} .c-status") for number in (1, 2, 3, 4)], ["200", "200", "200", "403"])
        self.select(3)
        changes = self.browser.run("return [...document.querySelectorAll('#part tr.changed, #part tr.added')].map((row) => row.dataset.key)")
        self.assertEqual(changes, ["lat", "city"])
        self.browser.click("#part-fields")
        self.assertIn("Bearer " + token, self.browser.texts("#part td"))
        self.browser.keys("2")
        self.browser.until("return document.querySelectorAll('.lane').length === 1")
        self.browser.keys("3")
        self.browser.until("return document.querySelector('.tracks')?.textContent.includes('2, last at 52.53000, 13.40500')")

    def test_shows_a_refusal_with_its_reason_and_bytes(self):
        token = self.program.log_in()
        answer = self.program.post(MESSAGE, b'[{"lat":52.5,"lon":}]', {"Authorization": f"Bearer {token}"})
        self.assertEqual(answer.status, 400)
        self.show()
        self.await_rows(2, 1)
        self.select(2)
        record = self.program.get("/api/requests/2")
        self.assertEqual(self.browser.text(".verdict"), f"400 refused: {record['reason']}")
        self.assertEqual(self.browser.text(".offending mark").split(), record["offending"]["bytes"].split() if " " in record["offending"]["bytes"]
                         else [record["offending"]["bytes"][at:at + 2] for at in range(0, len(record["offending"]["bytes"]), 2)])

    def test_sets_fault_switches_and_clears(self):
        token = self.program.log_in()
        self.show("#view=faults")
        self.browser.until("return document.querySelector('.fault-form')")
        self.browser.type("[name=count]", "1")
        self.browser.run("const one = document.querySelector('.fault-form').elements.endpoint; one.value = 'message'")
        self.browser.click(".fault-form .primary")
        self.browser.until("return document.querySelector('.fault-done')?.textContent === 'acted 0 times of 1'")
        self.assertEqual(self.program.send(token, 1).status, 503)
        self.browser.until("return document.querySelector('.fault-done').textContent === 'acted 1 time of 1'")
        self.assertEqual(self.program.send(token, 2).status, 200)
        self.browser.keys("1")
        self.await_rows(3, 2, 1)
        self.assertIn("503", self.browser.text("#row-2 .c-what"))
        for action in ("delay", "stall", "drop", "expire", "refuse"):
            self.browser.keys("4")
            self.browser.run("const { action } = document.querySelector('.fault-form').elements; action.value = arguments[0];"
                             "action.dispatchEvent(new Event('change'))", action)
            before = len(self.program.get("/api/faults")["faults"])
            self.browser.click(".fault-form .primary")
            self.eventually(lambda: len(self.program.get("/api/faults")["faults"]) > before,  # pylint: disable=cell-var-from-loop
                            lambda: self.browser.text(".error"))
        self.browser.click(".faults-title button")
        self.browser.until("return document.querySelector('.faults').textContent.startsWith('None')")
        self.assertEqual(self.program.get("/api/faults"), {"faults": []})
        self.browser.click("#clear")
        self.browser.click("#clear")
        self.browser.keys("1")
        self.await_rows()
        self.assertEqual(self.program.get("/api/counts")["all"], 0)

    def test_copies_a_curl_command_that_does_it_once_more(self):
        token = self.program.log_in()
        self.program.send(token, 1, city="Zürich's")
        self.show()
        self.await_rows(2, 1)
        command = self.browser.run_async(
            "const { curl } = await import('/curl.js'); const record = await (await fetch('/api/requests/2')).json();"
            "return curl(record, await (await fetch('/api/status')).json())")
        said = subprocess.run(["bash", "-c", command], capture_output=True, text=True, check=True).stdout
        self.assertIn(" 200", said.splitlines()[0])
        self.await_rows(3, 2, 1)
        first, again = (self.program.get(f"/api/requests/{number}") for number in (2, 3))
        for same in ("method", "target", "body", "text"):
            self.assertEqual(again[same], first[same])
        fields = [dict((name.lower(), value) for name, value in one["headerFields"]) for one in (first, again)]
        self.assertEqual({**fields[1], "host": ""}, {**fields[0], "host": ""})

    def test_finds_the_same_as_the_program(self):
        token = self.program.log_in()
        for number in range(1, 6):
            self.program.send(token, number, city="Potsdam" if number % 2 else "Berlin")
        self.show()
        self.browser.type("#search", "Potsdam")
        self.await_rows(6, 4, 2)
        found = self.program.get("/api/requests?text=Potsdam&order=desc")["requests"]
        self.assertEqual([one["id"] for one in found], [6, 4, 2])
        lines = self.browser.run_async("return (await (await fetch(document.getElementById('download').href)).text()).trim().split('\\n')")
        self.assertEqual([json.loads(line)["id"] for line in lines], [2, 4, 6])


if __name__ == "__main__":
    unittest.main()
