"""The list of requests: what comes, and what of it is shown."""

import json
import unittest
import urllib.request

from page_case import PageCase, message


class LiveTest(PageCase):
    def test_shows_what_there_is_and_what_comes_the_newest_first(self):
        self.collector.add(kind="login")
        self.collector.add(message(1))
        self.show()
        self.await_rows(2, 1)
        self.collector.add(message(2), status=403, reason="the access token has expired")
        self.await_rows(3, 2, 1)
        self.assertIn("the access token has expired", self.browser.text("#row-3 .c-what"))
        self.assertEqual(self.browser.text("#row-3 .c-status"), "403")
        self.assertEqual(self.browser.texts("#outcome b"), ["3", "2", "1", "0"])
        self.assertEqual(self.browser.text("#live-text"), "Live")

    def test_shows_what_is_known_only_later(self):
        login = self.collector.add(kind="login")
        self.collector.add(message(1))
        self.show()
        self.select(1)
        self.collector.change(login, warnings=["no message followed"])
        self.browser.until("return document.querySelector('#row-1 .c-what').textContent === 'no message followed'")
        self.browser.until("return document.querySelector('.verdict .warning')?.textContent === 'Warning: no message followed'")
        self.assertEqual(self.browser.texts("#outcome b"), ["2", "2", "0", "1"])
        self.assertEqual(self.rows(), [2, 1])
        other = self.collector.add(kind="login")
        self.browser.run("document.querySelector('#outcome input[value=warned]').click()")
        self.await_rows(1)
        self.collector.change(other, warnings=["no message followed"])
        self.await_rows(3, 1)

    def test_tells_what_to_do_while_nothing_has_come(self):
        self.show()
        self.browser.until("return !document.getElementById('welcome').hidden")
        self.assertIn('caFile = "/home/me/.local/state/kx-collector/ca.pem"', self.browser.text("#welcome pre"))
        self.collector.add(message())
        self.browser.until("return document.getElementById('welcome').hidden")
        self.await_rows(1)

    def lose(self, meanwhile):
        """Breaks the connection, and lets it come back after that."""
        with self.collector.changed:
            self.collector.listeners = None
            self.collector.changed.notify_all()
        self.browser.until("return document.body.dataset.link === 'lost'")
        meanwhile()
        with self.collector.changed:
            self.collector.listeners = []
        self.browser.until("return document.body.dataset.link === 'live'")

    def test_misses_nothing_when_the_connection_breaks(self):
        self.collector.add(message(1))
        self.show()
        self.await_rows(1)
        self.lose(lambda: self.collector.add(message(2)))
        self.await_rows(2, 1)
        self.lose(lambda: self.collector.add(message(3)))
        self.await_rows(3, 2, 1)

    def test_forgets_what_was_forgotten_while_the_connection_was_broken(self):
        self.collector.add(message(1))
        self.collector.add(message(2))
        self.show()
        self.await_rows(2, 1)

        def anew():
            self.collector.requests = []
            self.collector.add(message(3))
        self.lose(anew)
        self.await_rows(3)
        self.assertEqual(self.browser.text("#count-all"), "1")

    def test_filters_by_outcome_kind_device_and_application(self):
        self.collector.add(kind="login")
        self.collector.add(message(1, device="A" * 36, bundle="com.example.One"))
        self.collector.add(message(2, device="B" * 36, bundle="com.example.Two"), status=400, reason="no")
        self.collector.add(message(3, device="B" * 36, bundle="com.example.Two"), warnings=["the id has been seen before"])
        self.show()
        for selector, shown in (("#outcome input[value=bad]", [3]), ("#outcome input[value=warned]", [4]),
                                ("#outcome input[value=good]", [4, 2, 1]), ("#outcome input[value='']", [4, 3, 2, 1])):
            self.browser.run("document.querySelector(arguments[0]).click()", selector)
            self.await_rows(*shown)
        for name, value, shown in (("kind", "login", [1]), ("kind", "", [4, 3, 2, 1]), ("device", "B" * 36, [4, 3]),
                                   ("device", "", [4, 3, 2, 1]), ("bundle", "com.example.One", [2])):
            self.browser.until("return [...document.getElementById(arguments[0]).options].some((one) => one.value === arguments[1])", name, value)
            self.browser.run("const one = document.getElementById(arguments[0]); one.value = arguments[1];"
                             "one.dispatchEvent(new Event('change'))", name, value)
            self.await_rows(*shown)
        self.collector.add(message(4, device="B" * 36, bundle="com.example.Two"))
        self.collector.add(message(5, device="A" * 36, bundle="com.example.One"))
        self.await_rows(6, 2)
        self.browser.click("#unfilter")
        self.await_rows(6, 5, 4, 3, 2, 1)

    def test_shows_devices_and_applications_side_by_side(self):
        self.collector.add(message(1, device="A" * 36, bundle="com.example.One"))
        self.collector.add(message(2, device="B" * 36, bundle="com.example.Two"), status=400, reason="no")
        self.collector.add(message(3, device="B" * 36, bundle="com.example.Two"))
        self.show()
        self.browser.until("return document.querySelectorAll('#devices button').length === 2")
        self.assertEqual(self.browser.texts("#devices h3"), ["com.example.One", "com.example.Two"])
        self.assertEqual(self.browser.texts("#devices .numbers"), ["1 message", "2 messages, 1 refused"])
        self.browser.click("#devices section:nth-of-type(1) button")
        self.await_rows(1)
        self.browser.click("#devices section:nth-of-type(1) button")
        self.await_rows(3, 2, 1)

    def test_searches_in_whole_texts_and_in_what_comes_later(self):
        self.collector.add(message(1, city="Potsdam"))
        self.collector.add(message(2, city="Berlin"))
        self.show()
        self.browser.type("#search", "potsdam")
        self.await_rows(1)
        self.collector.add(message(3, city="Berlin"))
        self.collector.add(message(4, city="Potsdam"))
        self.await_rows(4, 1)
        self.collector.add(message(5, city="Potsdam"))
        self.await_rows(5, 4, 1)
        self.browser.keys("Escape")
        self.await_rows(5, 4, 3, 2, 1)

    def test_holds_still_while_it_is_paused(self):
        self.collector.add(message(1))
        self.show()
        self.await_rows(1)
        self.browser.click("#pause")
        self.collector.add(message(2))
        self.browser.until("return document.getElementById('live-text').textContent === 'Paused, 1 new'")
        self.assertEqual(self.rows(), [1])
        self.browser.click("#pause")
        self.await_rows(2, 1)

    def test_forgets_everything_when_asked_twice(self):
        self.collector.add(message(1))
        self.show()
        self.await_rows(1)
        self.browser.click("#clear")
        self.assertEqual(self.browser.text("#clear"), "Forget all 1?")
        self.assertEqual(len(self.collector.requests), 1)
        self.browser.click("#clear")
        self.await_rows()
        self.assertEqual(self.collector.requests, [])
        self.collector.add(message(2))
        self.await_rows(2)
        self.assertEqual(self.browser.texts("#outcome b"), ["1", "1", "0", "0"])

    def test_hands_out_what_the_filter_shows_as_json_lines(self):
        self.collector.add(message(1))
        self.collector.add(message(2), status=400, reason="no")
        self.show()
        self.browser.run("document.querySelector('#outcome input[value=bad]').click()")
        self.await_rows(2)
        link = self.browser.run("return [document.getElementById('download').href, document.getElementById('download').download]")
        self.assertEqual(link[1], "requests.jsonl")
        with urllib.request.urlopen(link[0]) as answer:
            lines = [json.loads(line) for line in answer]
        self.assertEqual([line["id"] for line in lines], [2])

    def test_keeps_its_place_while_newer_ones_come(self):
        for number in range(200):
            self.collector.add(message(number))
        self.show()
        self.browser.run("document.querySelector('.rows').scrollTop = 2000")
        before = self.browser.run("return document.querySelector('.rows').scrollTop")
        for number in range(3):
            self.collector.add(message(200 + number))
        self.browser.until("return document.querySelector('.newer').textContent === '3 newer ↑'")
        self.assertEqual(self.browser.run("return document.querySelector('.rows').scrollTop"), before + 3 * 28)
        self.browser.click(".newer")
        self.browser.until("return document.querySelector('.rows').scrollTop === 0")
        self.assertEqual(self.rows()[0], 203)

    def test_comes_back_as_it_was_after_a_reload(self):
        self.collector.add(message(1))
        self.collector.add(message(2), status=400, reason="no")
        self.show()
        self.browser.run("document.querySelector('#outcome input[value=bad]').click()")
        self.await_rows(2)
        self.select(2)
        self.browser.do("refresh")
        self.await_rows(2)
        self.browser.until("return document.querySelector('#detail h2')?.textContent === 'Message 2'")


if __name__ == "__main__":
    unittest.main()
