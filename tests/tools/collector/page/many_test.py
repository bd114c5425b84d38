"""A hundred thousand requests: soon there, never sluggish, in little memory. Prints the figures."""

import pathlib
import time
import unittest

from page_case import NOW, PageCase, message

COUNT = 100_000
DEVICES = 40


class ManyTest(PageCase):
    def setUp(self):
        super().setUp()
        first = self.collector.add(message(0))
        self.collector.requests = []
        for number in range(1, COUNT + 1):
            device = f"{number % DEVICES:08X}-0000-4000-8000-000000000000"
            bad = number % 50 == 0
            self.collector.requests.append({
                **first, "id": number, "time": NOW + number * 15000, "device": device, "status": 400 if bad else 200,
                "outcome": "bad" if bad else "good", "reason": "the body is not JSON text" if bad else None,
                "eventId": f"{number:032x}", "eventTime": NOW + number * 15000,
                "lat": 52.4 + (number % 977) / 9000, "lon": 13.2 + (number % 1399) / 7000})
        self.collector.next_id = COUNT + 1

    def timed(self, script, *arguments):
        """How long that keeps the page from anything else, until the next picture is drawn: milliseconds."""
        return self.browser.run_async(
            "const start = performance.now(); (() => { " + script + " })();"
            "await new Promise((resolve) => requestAnimationFrame(() => setTimeout(resolve))); return performance.now() - start;", *arguments)

    def resident(self):
        """Of the processes that pages run in, MB."""
        total = 0
        for process in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                if self.browser.folder in (process / "cmdline").read_text() and "--type=renderer" in (process / "cmdline").read_text():
                    total += int((process / "statm").read_text().split()[1]) * 4096 / 1e6
            except OSError:
                pass  # it has ended
        return total

    def test_stays_quick_and_small(self):
        figures = {}
        empty = self.resident()
        self.browser.open(self.collector.url)
        self.browser.until("return performance.getEntriesByName('first').length")
        figures["first rows"] = self.browser.run("return performance.getEntriesByName('first')[0].startTime")
        # While the rest loads, the page answers.
        figures["select while loading"] = self.timed("document.querySelector('.spacer .row').click()")
        self.browser.until("return performance.getEntriesByName('loaded').length", seconds=120)
        figures["all loaded"] = self.browser.run("return performance.getEntriesByName('loaded')[0].startTime")
        self.assertEqual(self.browser.text("#count-all"), "100,000")
        self.assertEqual(self.browser.text("#count-bad"), "2,000")
        self.browser.run_async("await new Promise((resolve) => setTimeout(resolve, 700)); gc(); gc()")
        figures["memory, scripts"] = self.browser.run("return performance.memory.usedJSHeapSize / 1e6")
        figures["memory, the whole process, more"] = self.resident() - empty
        figures["elements"] = self.browser.run("return document.querySelectorAll('*').length")
        for place in (0.5, 0.999, 0.25, 0):
            took = self.timed("const box = document.querySelector('.rows'); box.scrollTop = box.scrollHeight * given[0]", place)
            figures["scroll"] = max(figures.get("scroll", 0), took)
            self.browser.until("return [...document.querySelectorAll('.spacer .row')].filter((row) => !row.hidden).length > 10")
        self.browser.run("document.querySelector('.rows').focus()")
        self.browser.keys("End")
        self.browser.until("return document.querySelector('#detail h2')?.textContent === 'Message 1'")
        self.browser.keys("Home", "Escape")
        figures["filter"] = self.timed("document.querySelector('#outcome input[value=bad]').click()")
        self.assertEqual(self.rows()[:2], [100_000, 99_950])
        figures["show all"] = self.timed("document.getElementById('unfilter').click()")
        figures["timeline"] = self.timed("document.getElementById('tab-timeline').click()")
        figures["map"] = self.timed("document.getElementById('tab-map').click()")
        self.browser.click("#tab-requests")
        start = time.monotonic()
        for number in range(500):
            self.collector.add(message(number))
        self.browser.until("return document.getElementById('count-all').textContent === '100,500'")
        figures["500 more"] = (time.monotonic() - start) * 1000
        longest = self.timed("document.querySelector('.rows').scrollTop = 5000")
        figures["scroll after"] = longest
        print("\n" + "\n".join(f"{name}: {value:.0f}{' MB' if 'memory' in name else '' if name == 'elements' else ' ms'}"
                               for name, value in figures.items()), flush=True)
        self.assertLess(figures["first rows"], 2000)
        self.assertLess(figures["memory, scripts"], 60)
        self.assertLess(figures["memory, the whole process, more"], 250)
        self.assertLess(figures["elements"], 3000)
        for name in ("select while loading", "scroll", "filter", "show all", "scroll after"):
            self.assertLess(figures[name], 250, name)
        for name in ("timeline", "map"):
            self.assertLess(figures[name], 2000, name)


if __name__ == "__main__":
    unittest.main()
