"""Each device's reports against the cadence that they should have."""

import time
import unittest

from page_case import PageCase, message

S = 1000  # a second in ms


class CadenceTest(PageCase):
    """What is made of logins and reports, by themselves."""

    def setUp(self):
        super().setUp()
        self.show()

    def course(self, *events, now=None):
        """Events as (seconds, "login" or "report", status); marks as (seconds, state)."""
        given = [{"time": at * S, "id": number + 1, "login": kind == "login", "status": status, "good": status < 300}
                 for number, (at, kind, status) in enumerate(events)]
        self.whole = self.browser.run_async(
            "const { cadence } = await import('/cadence.js'); return cadence(given[0], given[1])",
            given, (now if now is not None else events[-1][0]) * S)
        return [(mark["time"] / S, mark["state"]) for mark in self.whole["marks"]]

    def test_finds_a_device_that_does_all_right(self):
        self.assertEqual(
            self.course((0, "login", 200), (5, "report", 200), (600, "report", 200), (1200.4, "report", 200)),
            [(5, "first"), (600, "regular"), (1200.4, "regular")])
        self.assertEqual(self.whole["due"], 1800 * S)

    def test_takes_a_report_between_for_the_background_and_the_next_for_the_return(self):
        self.assertEqual(
            self.course((0, "login", 200), (5, "report", 200), (90, "report", 200), (4005, "report", 200), (4600, "report", 200)),
            [(5, "first"), (90, "background"), (4005, "return"), (4600, "regular")])

    def test_expects_nothing_in_the_background(self):
        self.assertEqual(self.course((0, "login", 200), (5, "report", 200), (90, "report", 200), now=90000),
                         [(5, "first"), (90, "background")])
        self.assertIsNone(self.whole["due"])

    def test_lets_a_report_come_that_was_due_when_it_entered_the_background(self):
        self.assertEqual(self.course((0, "login", 200), (2, "report", 200), (5, "report", 200), (65, "report", 200)),
                         [(2, "background"), (5, "first"), (65, "return")])

    def test_sees_a_late_report(self):
        self.assertEqual(self.course((0, "login", 200), (8, "report", 200), (612, "report", 200)), [(8, "late"), (612, "late")])
        self.assertEqual([mark["off"] / S for mark in self.whole["marks"]], [3, 12])

    def test_sees_a_missing_report(self):
        self.assertEqual(self.course((0, "login", 200), (5, "report", 200), (1200, "report", 200)),
                         [(5, "first"), (600, "missing"), (1200, "regular")])
        self.assertEqual(self.course((0, "login", 200), (600, "report", 200)), [(5, "missing"), (600, "regular")])

    def test_sees_an_overdue_report(self):
        self.assertEqual(self.course((0, "login", 200), (5, "report", 200), now=602), [(5, "first"), (600, "overdue")])
        self.assertEqual(self.course((0, "login", 200), (5, "report", 200), now=601), [(5, "first")])

    def test_sees_an_unexpected_report(self):
        self.assertEqual(self.course((0, "login", 200), (5, "report", 200), (60, "report", 200), (61, "report", 200)),
                         [(5, "first"), (60, "background"), (61, "unexpected")])

    def test_begins_anew_with_another_start(self):
        self.assertEqual(
            self.course((0, "login", 200), (5, "report", 200), (4000, "login", 200), (4005, "report", 200), (4600, "report", 200)),
            [(5, "first"), (4005, "first"), (4600, "regular")])
        self.assertEqual([login["what"] for login in self.whole["logins"]], ["start", "start"])

    def test_a_refused_token_ends_and_the_cadence_goes_on(self):
        self.assertEqual(
            self.course((0, "login", 200), (5, "report", 200), (600, "report", 403), (600.2, "login", 200), (1200, "report", 200)),
            [(5, "first"), (600, "regular"), (1200, "regular")])
        self.assertEqual(self.whole["tokens"], [{"from": 0, "to": 600000, "refused": True}, {"from": 600200, "to": None, "refused": False}])
        self.assertEqual([mark["refused"] for mark in self.whole["marks"]], [False, True, False])
        self.assertEqual([login["what"] for login in self.whole["logins"]], ["start", "anew, the token was refused"])

    def test_misses_nothing_that_could_not_be_sent_without_a_token(self):
        self.assertEqual(
            self.course((0, "login", 500), (300, "login", 500), (900, "login", 200), (1200, "report", 200)), [(1200, "regular")])
        self.assertEqual([login["what"] for login in self.whole["logins"]], ["start", "once more", "once more"])
        self.assertEqual(self.course((0, "login", 500), now=5000), [])

    def test_a_long_silence_is_one_gap_and_not_a_hundred(self):
        self.assertEqual(
            self.course((0, "login", 200), (5, "report", 200), (86512, "report", 200), (87107, "report", 200)),
            [(5, "first"), (600, "missing"), (86512, "return"), (87107, "regular")])

    def test_tells_whose_a_login_is(self):
        lane = self.browser.run_async("""
            const { lanesOfLogins } = await import('/cadence.js');
            const lane = (...events) => ({ times: Float64Array.from(events, ([time]) => time), events: events.map(([time, status]) => ({ time, status })) });
            const lanes = [lane([5000, 200], [600000, 403]), lane([9000, 200], [609500, 200])];
            return lanesOfLogins([0, 4000, 600200, 604400, 900000], lanes);""")
        self.assertEqual(lane, [0, 1, 0, 1, -1])


class TimelineTest(PageCase):
    def test_shows_what_stands_out_on_each_device_s_line(self):
        now = int(time.time() * S)
        start = now - 2000 * S
        self.collector.add(kind="login", time=start)
        self.collector.add(message(1), time=start + 5 * S)
        self.collector.add(message(2), time=start + 612 * S, status=403, reason="the access token has expired")
        self.collector.add(kind="login", time=start + 612 * S + 300)
        self.collector.add(message(3), time=start + 1800 * S)
        self.collector.add(message(4, device="B" * 36), time=now - 30 * S)
        self.show()
        self.browser.keys("2")
        self.browser.until("return document.querySelectorAll('.lane').length === 2")
        self.assertEqual(self.browser.texts(".lane-label b"), ["6D92078A…", "BBBBBBBB…"])
        summaries = self.browser.texts(".lane-label small")[::-1]
        self.assertRegex(summaries[0], r"^as due, next in 9 min ")
        self.assertRegex(summaries[1], r"^1 late, 1 missing, 1 refused, next in 6 min (40|3\d) s$")
        self.assertEqual(self.browser.run("return [...document.querySelectorAll('.lane-label small')].map((one) => one.className)"), ["out", ""])
        self.assertEqual([text[8:] for text in self.browser.texts(".findings button")],
                         ["6D92078A…a report is missing that was due", "6D92078A…late by 12 s, refused with 403"])
        self.browser.click(".findings li:nth-child(2) button")
        self.browser.until("return document.querySelector('#detail h2')?.textContent === 'Message 3'")

    def test_goes_on_by_itself(self):
        now = int(time.time() * S)
        self.collector.add(kind="login", time=now - 3 * S)
        self.collector.add(message(0), time=now - 900 * S)
        self.show("#view=timeline")
        self.browser.until("return document.querySelector('.lane-label small')?.textContent.startsWith('1 overdue')")
        self.collector.add(message(1), time=now + 2 * S)
        self.browser.until("return document.querySelector('.lane-label small').textContent.startsWith('as due')")

    def test_draws_each_mark(self):
        now = int(time.time() * S)
        self.collector.add(kind="login", time=now - 900 * S)
        self.collector.add(message(1), time=now - 895 * S)
        self.collector.add(message(2), time=now - 300 * S)
        self.show("#view=timeline")
        self.browser.until("return document.querySelectorAll('.lane canvas').length === 1")

        def ink():
            """Where on the line there is more than the line itself, in parts of its width."""
            return self.browser.run("""
                const canvas = document.querySelector('.lane canvas');
                const { width, height } = canvas;
                const pen = canvas.getContext('2d');
                const places = [];
                for (let x = 0; x < width; ++x) {
                  const column = pen.getImageData(x, Math.round(height * 0.42) + 3, 1, 1).data;
                  if (column[3] > 200) places.push(x / width);
                }
                return places;""")
        self.eventually(lambda: len(ink()) > 6)
        # An hour is shown, that ends 144 s from now.
        for at in (900, 895, 300):
            expected = 1 - (144 + at) / 3600
            self.assertTrue(any(abs(place - expected) < 0.006 for place in ink()), (at, expected, ink()))

    def test_goes_from_report_to_report_by_keys(self):
        now = int(time.time() * S)
        for number in range(3):
            self.collector.add(message(number), time=now - (3 - number) * 600 * S)
        self.show("#view=timeline")
        self.browser.until("return document.querySelectorAll('.lane canvas').length === 1")
        self.browser.run("document.querySelector('.lane canvas').focus()")
        for key, number in (("Left", 3), ("Left", 2), ("Left", 1), ("Left", 1), ("Right", 2)):
            self.browser.keys(key)
            self.browser.until("return document.querySelector('#detail h2')?.textContent === `Message ${arguments[0]}`", number)


if __name__ == "__main__":
    unittest.main()
