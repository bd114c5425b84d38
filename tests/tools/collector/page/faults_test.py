"""The fault switches."""

import json
import threading
import unittest

from page_case import PageCase, message


class FaultsTest(PageCase):
    def written(self):
        return [(method, path, json.loads(body) if body else None) for method, path, body in self.collector.asked]

    def set(self, name, value):
        self.browser.run("const one = document.querySelector('.fault-form').elements[arguments[0]]; one.value = arguments[1];"
                         "one.dispatchEvent(new Event('input')); one.dispatchEvent(new Event('change'))", name, value)

    def test_switches_on_and_off(self):
        self.show("#view=faults")
        self.set("status", "307")
        self.set("location", "https://127.0.0.1:1/x")
        self.set("endpoint", "message")
        self.set("count", "2")
        self.browser.click(".fault-form .primary")
        self.browser.until("return document.querySelectorAll('.faults [data-fault]').length > 0")
        self.assertEqual(self.written(), [("POST", "/api/faults", {
            "endpoint": "message", "device": None, "action": "status", "count": 2, "status": 307, "location": "https://127.0.0.1:1/x"})])
        self.assertEqual(self.browser.text(".fault-what"), "Answer with 307 to https://127.0.0.1:1/x · messages")
        self.assertEqual(self.browser.text(".fault-done"), "acted 0 times of 2")
        self.assertEqual(self.browser.text("#faults-count"), "1")
        self.browser.click(".faults button")
        self.browser.until("return document.querySelector('.faults').textContent.startsWith('None')")
        self.assertEqual(self.written()[1], ("DELETE", "/api/faults/1", None))
        self.assertEqual(self.collector.faults, [])

    def test_asks_for_what_the_action_needs(self):
        self.show("#view=faults")
        for action, fields in (("status", ["status"]), ("delay", ["seconds"]), ("stall", ["seconds"]), ("drop", []), ("expire", []), ("refuse", [])):
            self.set("action", action)
            self.assertEqual(self.browser.run("return [...document.querySelectorAll('.fault-form [data-for]')].filter((one) => !one.hidden)"
                                              ".map((one) => one.dataset.for)"), fields, action)
            self.browser.click(".fault-form .primary")
            self.eventually(lambda: self.collector.faults and self.collector.faults[-1]["action"] == action)  # pylint: disable=cell-var-from-loop
        self.assertEqual([sorted(body) for _, _, body in self.written()][1:3],
                         [["action", "count", "device", "endpoint", "seconds"]] * 2)
        self.browser.until("return document.querySelectorAll('.faults li').length === 6")
        self.browser.click(".faults-title button")
        self.browser.until("return document.querySelector('.faults').textContent.startsWith('None')")
        self.assertEqual(self.written()[-1][:2], ("DELETE", "/api/faults"))

    def test_shows_at_once_what_they_did(self):
        self.show("#view=faults")
        self.set("action", "delay")
        self.browser.click(".fault-form .primary")
        self.browser.until("return document.querySelector('.fault-done')?.textContent === 'acted 0 times, until switched off'")
        self.collector.add(message(1), fault="delay: answered 10 s later")
        self.browser.until("return document.querySelector('.fault-done').textContent === 'acted 1 time, until switched off'")
        self.browser.keys("1")
        self.await_rows(1)
        self.assertEqual(self.browser.text("#row-1 .c-what"), "delay: answered 10 s later")
        self.select(1)
        self.assertIn("Fault switch: delay: answered 10 s later", self.browser.text(".verdict"))

    def test_an_answer_that_comes_late_does_not_take_back_what_they_did(self):
        self.show("#view=faults")
        self.collector.late = threading.Event()
        self.set("action", "delay")
        self.browser.click(".fault-form .primary")
        self.eventually(lambda: self.collector.waiting == 1)
        self.collector.add(message(1), fault="delay: answered 10 s later")
        self.browser.until("return document.querySelector('.fault-done')?.textContent === 'acted 1 time, until switched off'")
        self.collector.late.set()
        self.browser.until("return document.getElementById('said').textContent === 'The fault switch is on'")
        self.assertEqual(self.browser.text(".fault-done"), "acted 1 time, until switched off")

    def test_tells_why_one_could_not_be_switched_on(self):
        self.show("#view=faults")
        self.set("endpoint", "login")
        self.set("device", "6D92078A-8246-4BA4-AE5B-76104861E7DC")
        self.browser.click(".fault-form .primary")
        self.browser.until("return document.querySelector('.error').textContent === 'a login does not tell its \"device\"'")
        self.assertEqual(self.collector.faults, [])
        self.refused("400")

    def test_goes_on_with_a_collector_that_was_started_anew(self):
        self.show("#view=faults")
        self.browser.run("document.querySelector('meta[name=page-token]').content = 'of another one'")
        self.browser.click(".fault-form .primary")
        self.browser.until("return document.querySelectorAll('.faults [data-fault]').length > 0")
        self.assertEqual(len(self.collector.faults), 1)
        self.refused("403")

    def refused(self, status):
        """That is what the console tells of, and nothing else."""
        told = [entry["message"] for entry in self.browser.log("browser")]
        self.assertEqual(len(told), 1)
        self.assertIn(status, told[0])


if __name__ == "__main__":
    unittest.main()
