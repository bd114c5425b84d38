"""Whoever comes by keyboard, by screen reader, on a phone, at night."""

import unittest

from page_case import NOW, PageCase, message
from stand_in import POLICY

VIEWS = ("requests", "timeline", "map", "faults")


class AccessTest(PageCase):
    def setUp(self):
        super().setUp()
        self.collector.add(kind="login")
        self.collector.add(message(1), time=NOW)
        self.collector.add(message(2, device="W" * 60, bundle="com." + "example" * 12), status=400, reason="zq " * 60,
                           warnings=["w" * 300], fault="f" * 200)

    def test_fits_every_width(self):
        self.show()
        self.await_rows(3, 2, 1)
        for width in (320, 375, 700, 701, 860, 861, 1024, 1180, 1181, 1280, 1399, 1400, 2560):
            self.browser.size(width, 700)
            for view in VIEWS:
                self.browser.run("document.getElementById(`tab-${arguments[0]}`).click()", view)
                for detail in (False, True):
                    self.browser.run("document.body.dispatchEvent(new KeyboardEvent('keydown', { key: 'Escape', bubbles: true }));"
                                     if not detail else "document.getElementById('row-3').click()")
                    if detail:
                        self.browser.until("return document.querySelector('#detail h2')")
                    beyond = self.browser.run("""
                        const wide = document.documentElement.clientWidth;
                        const beyond = [...document.querySelectorAll('header *, #filters *, .tools *, .legend *, .fault-form *, .map-tools *, .tracks *, #detail *')]
                          .filter((one) => !one.closest('pre, .unseen, option, datalist') && one.getBoundingClientRect().right > wide + 1);
                        const rows = document.querySelector(".rows");
                        const scrolls = [rows, ...document.querySelectorAll('main > section, .findings, .lanes, #detail, #devices')]
                          .some((one) => one.scrollWidth > one.clientWidth);
                        const titles = [...document.querySelectorAll('.row.head > span')].filter((one) => one.checkVisibility());
                        const lines = new Set(titles.map((one) => one.getBoundingClientRect().top));
                        return [document.documentElement.scrollWidth > wide || scrolls || lines.size > 1, ...beyond.map((one) => one.tagName + one.className)];""")
                    self.assertEqual(beyond, [False], (width, view, detail))

    def test_has_a_name_for_everything_that_can_be_used(self):
        self.show()
        self.await_rows(3, 2, 1)
        roles = set()
        for view in VIEWS:
            self.browser.run("document.getElementById(`tab-${arguments[0]}`).click()", view)
            self.browser.run("document.getElementById('row-2').click()")
            self.browser.until("return document.querySelector('#part table')")
            for node in self.browser.devtools("Accessibility.getFullAXTree")["nodes"]:
                if node.get("ignored"):
                    continue
                role, name = node["role"].get("value"), (node.get("name") or {}).get("value", "")
                roles.add(role)
                if role in ("button", "link", "textbox", "searchbox", "combobox", "radio", "checkbox", "tab", "tabpanel", "tablist", "grid",
                            "img", "image", "complementary", "search", "spinbutton", "form", "dialog", "table", "group"):
                    self.assertTrue(name.strip(), f"a {role} in {view} has no name: {node}")
        self.assertLessEqual({"heading", "main", "banner", "search", "tablist", "tab", "tabpanel", "grid", "row", "gridcell", "columnheader",
                              "table", "rowheader", "complementary", "status"}, roles)

    def test_says_which_row_is_chosen(self):
        self.show()
        self.await_rows(3, 2, 1)
        self.browser.run("document.querySelector('.rows').focus()")
        self.browser.keys("Down", "Down")
        self.browser.until("return document.querySelector('#detail h2')?.textContent === 'Message 2'")
        self.assertEqual(self.browser.run("const box = document.querySelector('.rows'); return [box.getAttribute('aria-activedescendant'),"
                                          "document.getElementById('row-2').ariaSelected, box.ariaRowCount, document.getElementById('row-2').ariaRowIndex]"),
                         ["row-2", "true", "4", "3"])

    def test_needs_no_mouse(self):
        self.show()
        self.await_rows(3, 2, 1)
        self.browser.keys("j", "j")
        self.browser.until("return document.querySelector('#detail h2')?.textContent === 'Message 2'")
        self.browser.keys("Escape")
        self.browser.until("return document.getElementById('detail').hidden")
        self.browser.keys("/", "z", "q")
        self.assertEqual(self.browser.run("return [document.activeElement.id, document.activeElement.value]"), ["search", "zq"])
        self.await_rows(3)
        self.browser.keys("Escape", "Escape")
        self.await_rows(3, 2, 1)
        for number, view in enumerate(VIEWS, 1):
            self.browser.keys(str(number))
            self.assertEqual(self.browser.run("return [document.body.dataset.view, document.activeElement.id]"), [view, f"tab-{view}"])
        self.browser.keys("Right")
        self.assertEqual(self.browser.run("return document.activeElement.id"), "tab-requests")
        self.browser.keys("p")
        self.assertEqual(self.browser.text("#live-text"), "Paused")
        self.browser.keys("p", "?")
        self.browser.until("return document.getElementById('help').open")
        self.browser.keys("Escape")
        self.browser.until("return !document.getElementById('help').open")

    def test_tab_reaches_everything_and_shows_where_it_is(self):
        self.show()
        self.await_rows(3, 2, 1)
        self.select(2)
        self.browser.run("document.activeElement.blur()")
        reached = []
        for _ in range(60):
            self.browser.keys("Tab")
            one = self.browser.run("const one = document.activeElement; return [one.id || one.className || one.textContent,"
                                   "one === document.body || getComputedStyle(one).outlineStyle !== 'none' || one.matches('[name=outcome]')]")
            self.assertTrue(one[1], f"{one[0]} does not show that it has the focus")
            if one[0] in reached[:1]:
                break
            reached.append(one[0])
        for name in ("tab-requests", "pause", "clear", "download", "theme", "keys", "search", "kind", "device", "bundle", "rows", "close",
                     "Copy as curl", "On the map", "part-message", "part"):
            self.assertIn(name, reached)

    def test_is_dark_and_light_and_keeps_what_was_chosen(self):
        self.show()
        ground = "return getComputedStyle(document.body).backgroundColor"
        self.browser.media(prefers_color_scheme="light")
        light = self.browser.run(ground)
        self.browser.media(prefers_color_scheme="dark")
        dark = self.browser.run(ground)
        self.assertNotEqual(light, dark)
        self.browser.click("#theme")
        self.browser.click("#theme")
        self.assertEqual(self.browser.text("#theme"), "Light")
        self.assertEqual(self.browser.run(ground), light)
        self.show()
        self.assertEqual(self.browser.run(ground), light)

    def test_can_be_read_in_both(self):
        """Every text has at least 4.5 times the contrast that none has."""
        self.show()
        self.await_rows(3, 2, 1)
        self.select(3)
        for scheme in ("light", "dark"):
            self.browser.media(prefers_color_scheme=scheme, prefers_reduced_motion="reduce")
            weak = self.browser.run("""
                const parse = (colour) => { const [r, g, b, a = 1] = colour.match(/[\\d.]+/g).map(Number); return { r, g, b, a }; };
                const light = ({ r, g, b }) => { const [x, y, z] = [r, g, b].map((one) => one / 255).map((one) => one <= 0.03928 ? one / 12.92 : ((one + 0.055) / 1.055) ** 2.4);
                  return 0.2126 * x + 0.7152 * y + 0.0722 * z; };
                const ground = (one) => { for (; one; one = one.parentElement) { const colour = parse(getComputedStyle(one).backgroundColor); if (colour.a === 1) return colour; } return parse('rgb(255,255,255)'); };
                const weak = [];
                const walker = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
                while (walker.nextNode()) {
                  const one = walker.currentNode.parentElement;
                  if (!walker.currentNode.data.trim() || !one.checkVisibility() || one.closest('.unseen, :disabled, noscript, option')) continue;
                  const [front, back] = [light(parse(getComputedStyle(one).color)), light(ground(one))];
                  const contrast = (Math.max(front, back) + 0.05) / (Math.min(front, back) + 0.05);
                  if (contrast < 4.5) weak.push([walker.currentNode.data.slice(0, 30), one.className, contrast]);
                }
                return weak;""")
            self.assertEqual(weak, [], scheme)

    def test_moves_nothing_for_whom_motion_is_too_much(self):
        self.browser.media(prefers_reduced_motion="reduce")
        self.show()
        moving = self.browser.run("return [...document.querySelectorAll('*')].filter((one) => { const style = getComputedStyle(one);"
                                  "return style.transitionDuration !== '0s' || style.animationName !== 'none'; }).length")
        self.assertEqual(moving, 0)

    def test_is_under_the_policy(self):
        """The page works with nothing but files of its own; were a rule broken, the console would say so."""
        self.show()
        self.assertIn("default-src 'none'", POLICY)
        self.assertEqual(self.browser.run_async("return (await fetch('/')).headers.get('Content-Security-Policy')"), POLICY)
        self.assertEqual(self.browser.run("return document.querySelectorAll('[style]:not(.spacer, .spacer .row, .wire i, canvas), style, script:not([src])').length"), 0)


if __name__ == "__main__":
    unittest.main()
