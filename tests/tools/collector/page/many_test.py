"""A hundred thousand requests: soon there, never sluggish, in little memory. Prints the figures.

How long something takes says more of the machine than of the page, so it is held against the same with a thousand requests
in the same run: what a reader does must cost the same, and what looks at all of them at most as many times more.
"""

import pathlib
import statistics
import unittest

from page_case import NOW, PageCase, message

FEW, MANY = 1_000, 100_000
DEVICES = 40
TIMES = 5
# Each is a median of several, and may be a few frames more or less.
SAME = 4
LINEAR = MANY / FEW
BOUNDS = {"first rows": SAME, "select while loading": SAME, "select": SAME, "scroll": SAME, "one more": SAME,
          "filter": LINEAR, "show all": LINEAR, "timeline": LINEAR, "map": LINEAR, "all loaded": LINEAR}


class ManyTest(PageCase):
    def fill(self, count):
        self.collector.requests = []
        self.collector.next_id = 1
        first = self.collector.add(message(0))
        self.collector.requests = []
        for number in range(1, count + 1):
            device = f"{number % DEVICES:08X}-0000-4000-8000-000000000000"
            bad = number % 50 == 0
            self.collector.requests.append({
                **first, "id": number, "time": NOW + number * 15000, "device": device, "status": 400 if bad else 200,
                "outcome": "bad" if bad else "good", "reason": "the body is not JSON text" if bad else None,
                "eventId": f"{number:032x}", "eventTime": NOW + number * 15000,
                "lat": 52.4 + (number % 977) / 9000, "lon": 13.2 + (number % 1399) / 7000})
        self.collector.next_id = count + 1

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

    def load(self):
        """The page, with what there is: times of the first rows, of a click meanwhile, of all."""
        self.browser.open("about:blank")
        self.browser.open(self.collector.url)
        self.browser.until("return performance.getEntriesByName('first').length")
        while_loading = self.timed("document.querySelector('.spacer .row').click()")
        self.browser.until("return performance.getEntriesByName('loaded').length", seconds=120)
        first, loaded = self.browser.run("return ['first', 'loaded'].map((name) => performance.getEntriesByName(name)[0].startTime)")
        return {"first rows": first, "select while loading": while_loading, "all loaded": loaded}

    def measured(self, count, loads=()):
        """Medians in milliseconds, and what is drawn. `loads` are those that have been."""
        self.fill(count)
        taken = {}

        def note(**figures):
            for name, value in figures.items():
                taken.setdefault(name.replace("_", " "), []).append(value)
        for load in loads:
            note(**load)
        for _ in range(3 if count == FEW else 1):
            note(**self.load())
        self.assertEqual(self.browser.text("#count-all"), f"{count:,}")
        self.assertEqual(self.browser.text("#count-bad"), f"{count // 50:,}")
        drawn = []
        for turn in range(TIMES):
            note(select=self.timed("[...document.querySelectorAll('.spacer .row')].filter((row) => !row.hidden)[given[0]].click()", turn))
            for place in (0.5, 0.999, 0.25, 0):
                note(scroll=self.timed("const box = document.querySelector('.rows'); box.scrollTop = box.scrollHeight * given[0]", place))
                self.browser.until("return [...document.querySelectorAll('.spacer .row')].filter((row) => !row.hidden).length > 10")
                drawn.append(self.browser.run("return document.querySelectorAll('.spacer .row').length"))
            note(filter=self.timed("document.querySelector('#outcome input[value=bad]').click()"))
            self.assertEqual(self.rows()[:2], [count, count - 50])
            note(show_all=self.timed("document.getElementById('unfilter').click()"))
            self.assertEqual(self.rows()[:2], [count, count - 1])
            note(timeline=self.timed("document.getElementById('tab-timeline').click()"))
            note(map=self.timed("document.getElementById('tab-map').click()"))
            self.browser.click("#tab-requests")
        for number in range(TIMES):
            # From within the page: what it costs when an event comes.
            self.collector.add(message(number))
            self.browser.until("return document.getElementById('count-all').textContent === arguments[0]", f"{count + number + 1:,}")
            note(one_more=self.timed("document.querySelector('.rows').scrollTop = given[0]", 5000 * (number % 2)))
        figures = {name: statistics.median(values) for name, values in taken.items()}
        return figures, max(drawn), self.browser.run("return document.querySelectorAll('*').length")

    def test_costs_no_more_for_a_hundred_thousand_than_for_a_thousand(self):
        self.fill(0)
        self.load_nothing()
        empty = self.resident()
        self.fill(MANY)
        first = self.load()
        self.check_size(empty)
        few, few_drawn, few_elements = self.measured(FEW)
        many, drawn, elements = self.measured(MANY, [first])
        print(f"\nmilliseconds: {FEW:,} requests, {MANY:,} requests, ratio")
        for name, value in many.items():
            print(f"{name}: {few[name]:.0f}, {value:.0f}, {value / few[name]:.1f}", flush=True)
        # Whatever is there, as many rows are drawn as can be seen.
        self.assertLessEqual(drawn, few_drawn)
        self.assertLessEqual(elements, few_elements + 50)
        for name, value in many.items():
            self.assertLess(value / few[name], BOUNDS[name], name)
        self.check_that_it_goes_on()

    def load_nothing(self):
        self.browser.open(self.collector.url)
        self.browser.until("return performance.getEntriesByName('loaded').length")

    def check_size(self, empty):
        self.browser.run_async("await new Promise((resolve) => setTimeout(resolve, 700)); gc(); gc()")
        scripts = self.browser.run("return performance.memory.usedJSHeapSize / 1e6")
        process = self.resident() - empty
        print(f"MB: {scripts:.0f} of scripts, {process:.0f} more of the whole process", flush=True)
        self.assertLess(scripts, 60)
        self.assertLess(process, 250)

    def check_that_it_goes_on(self):
        self.browser.run("document.querySelector('.rows').focus()")
        self.browser.keys("End")
        self.browser.until("return document.querySelector('#detail h2')?.textContent === 'Message 1'")
        self.browser.keys("Home")
        for number in range(500):
            self.collector.add(message(number))
        last = MANY + TIMES + 500
        self.browser.until("return document.getElementById('count-all').textContent === arguments[0]", f"{last:,}")
        self.browser.run("document.querySelector('.rows').scrollTop = 0")
        self.eventually(lambda: self.rows()[:2] == [last, last - 1], "the newest are not there")


if __name__ == "__main__":
    unittest.main()
