"""The track of positions on the map."""

import unittest

from page_case import PageCase, message


class MapTest(PageCase):
    def pixel(self, lat, lon):
        """The colour that the map has there, as the canvas has it; None outside of it."""
        return self.browser.run_async("""
            const { x, y } = await import('/world.js');
            const canvas = document.querySelector('#view-map canvas');
            const [centreLat, centreLon] = document.querySelector('#view-map .where').textContent.split(/[ ,·]+/).map(Number);
            const bar = document.querySelector('#view-map');
            const scale = Number(bar.dataset.scale);
            const at = [canvas.width / 2 + (x(given[1]) - x(centreLon)) * scale, canvas.height / 2 + (y(given[0]) - y(centreLat)) * scale].map(Math.round);
            if (at[0] < 0 || at[1] < 0 || at[0] >= canvas.width || at[1] >= canvas.height) return null;
            return [...canvas.getContext('2d').getImageData(at[0], at[1], 1, 1).data].slice(0, 3);""", lat, lon)

    def colour(self, name):
        return self.browser.run_async(
            "const { palette } = await import('/lane.js'); return palette()[given[0]].match(/\\d+/g).slice(0, 3).map(Number)", name)

    def open_map(self):
        self.show("#view=map")
        self.browser.until("return document.querySelector('#view-map').dataset.world === 'drawn'")

    def test_has_land_and_sea_where_they_are(self):
        self.open_map()
        land, sea = self.colour("land"), self.colour("sea")
        self.assertNotEqual(land, sea)
        for name, lat, lon, colour in (("Kansas", 38.3, -98.2, land), ("Algeria", 27.4, 3.3, land), ("Kazakhstan", 48.3, 67.3, land),
                                       ("Australia", -24.3, 134.3, land), ("the Atlantic", 32.3, -42.2, sea), ("the Pacific", 8.4, -141.3, sea),
                                       ("the Caspian Sea", 41.5, 51.3, sea), ("the Mediterranean", 34.5, 18.4, sea), ("the Indian Ocean", -22.3, 78.2, sea)):
            self.assertEqual(self.pixel(lat, lon), colour, name)

    def test_draws_the_track_and_the_circles_of_accuracy(self):
        for number, (lat, lon, accuracy) in enumerate([(52.503, 13.403, 100), (52.523, 13.447, 65), (52.51, 13.48, 1500)]):
            self.collector.add(message(number, lat=lat, lon=lon, horizontalAccuracy=accuracy))
        self.open_map()
        track, land = self.colour("track-1"), self.colour("land")
        self.eventually(lambda: self.pixel(52.523, 13.447) == track)
        between = self.pixel(52.513, 13.425)
        self.assertLess(abs(between[0] - track[0]), abs(between[0] - land[0]), "the line between two positions")
        inside = self.pixel(52.51 + 1000 / 111320, 13.483)
        self.assertNotIn(inside, (land, track))
        self.assertEqual(self.pixel(52.51 + 1900 / 111320, 13.483), land)
        self.assertIn("3, last at 52.51000, 13.48000 ± 1500 m", self.browser.text(".tracks"))
        self.assertIn("3 positions of 1 devices", self.browser.run("return document.querySelector('#view-map canvas').ariaLabel"))

    def test_follows_what_comes_and_what_the_filter_shows(self):
        self.collector.add(message(1, lat=52.5, lon=13.4))
        self.open_map()
        self.collector.add(message(2, device="B" * 36, lat=-33.9, lon=151.2))
        self.browser.until("return document.querySelectorAll('.tracks button').length === 2")
        self.eventually(lambda: self.pixel(-33.9, 151.2) == self.colour("track-2"))
        self.browser.run("const one = document.getElementById('device'); one.value = 'B'.repeat(36); one.dispatchEvent(new Event('change'))")
        self.browser.until("return document.querySelectorAll('.tracks button').length === 1")
        self.assertIsNone(self.pixel(52.5, 13.4))

    def test_says_of_positions_that_are_nowhere_on_earth(self):
        self.collector.add(message(1, lat=500, lon=13.4))
        self.collector.add(message(2, lat=None, lon=None, horizontalAccuracy=None))
        self.open_map()
        self.browser.until("return document.querySelector('.tracks').textContent.includes('1 nowhere on Earth')")
        self.assertIn("No position yet", self.browser.text(".tracks"))

    def test_is_moved_by_keys_and_shows_what_is_chosen(self):
        self.collector.add(message(1, lat=52.50, lon=13.40))
        self.collector.add(message(2, lat=52.51, lon=13.42))
        self.open_map()
        where = self.browser.text("#view-map .where")
        self.browser.run("document.querySelector('#view-map canvas').focus()")
        self.browser.keys("Right", "+")
        self.browser.until("return document.querySelector('#view-map .where').textContent !== arguments[0]", where)
        self.browser.keys("0")
        self.browser.until("return document.querySelector('#view-map .where').textContent === arguments[0]", where)
        self.browser.keys("n")
        self.browser.until("return document.querySelector('#detail h2')?.textContent === 'Message 2'")
        self.browser.keys("b")
        self.browser.until("return document.querySelector('#detail h2')?.textContent === 'Message 1'")


if __name__ == "__main__":
    unittest.main()
