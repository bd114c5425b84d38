"""What the tests of the live page have in common: a browser with the page, and a collector that it is of."""

import time
import unittest
import urllib.parse
import uuid

from stand_in import StandIn
from webdriver import Browser

NOW = 1795300400000  # ms; a time of requests that is no part of what is tested


def message(number=0, device="6D92078A-8246-4BA4-AE5B-76104861E7DC", bundle="com.example.Host", **facts):
    """A message as a device would send it; None leaves a key out."""
    whole = {
        "deviceCategory": "Phone", "make": "Apple", "model": "iPhone", "platform": "iOS", "osVersion": "iOS 12.4",
        "name": "iPhone14,5", "ifa": device, "dnt": 0, "languages": ["de-DE", "en-GB"], "carrierCode": "262-01",
        "radioAccessTechnology": "LTE", "lat": 52.52, "lon": 13.405, "horizontalAccuracy": 65, "country": "DE",
        "connectionType": "WIFI", "bundleId": bundle, "asn": "Host", "sdkName": "KXPublisher iOS", "sdkVer": "v1.0",
        "ips": ["10.0.0.7"], "id": str(uuid.UUID(int=number + 1)), "eventTime": NOW + 1000 * number, **facts}
    return {key: value for key, value in whole.items() if value is not None}


class PageCase(unittest.TestCase):
    """One browser for all tests of a class, one collector and one fresh page for each. After each one nothing has left
    this machine, no rule of the content security policy was broken, and the console has no error."""

    @classmethod
    def setUpClass(cls):
        cls.browser = Browser()
        cls.addClassCleanup(cls.browser.close)

    def setUp(self):
        self.collector = StandIn()
        self.addCleanup(self.collector.close)
        self.browser.size(1280, 800)
        self.browser.log("performance")
        self.browser.log("browser")

    def tearDown(self):
        asked = [entry["params"]["request"]["url"] for entry in self.browser.log("performance")
                 if entry["method"] == "Network.requestWillBeSent"]
        places = {urllib.parse.urlsplit(url).hostname for url in asked if not url.startswith(("data:", "blob:", "about:"))}
        self.assertEqual(places, {"127.0.0.1"} if asked else set(), "what the page asked for")
        self.assertEqual([entry["message"] for entry in self.browser.log("browser") if entry["level"] == "SEVERE"], [])
        self.browser.open("about:blank")

    def show(self, fragment=""):
        """Opens the page, and waits until it has loaded what there is."""
        self.browser.open("about:blank")
        self.browser.open(f"{self.collector.url}/{fragment}")
        self.browser.until("return performance.getEntriesByName('loaded').length && document.body.dataset.link === 'live'")

    def rows(self):
        """The numbers of the requests in the list, from the top."""
        return [int(number) for number in self.browser.run(
            "return [...document.querySelectorAll('.spacer .row')].filter((row) => !row.hidden)"
            ".sort((one, other) => one.ariaRowIndex - other.ariaRowIndex).map((row) => row.dataset.id)")]

    def await_rows(self, *numbers):
        self.eventually(lambda: self.rows() == list(numbers), lambda: f"the list has {self.rows()}, and not {list(numbers)}")

    def eventually(self, holds, said="it never became so", seconds=60):
        end = time.monotonic() + seconds
        while not holds():
            if time.monotonic() > end:
                self.fail(said() if callable(said) else said)
            time.sleep(0.03)

    def select(self, number):
        """Shows one request whole."""
        self.browser.run("document.getElementById(`row-${arguments[0]}`).click()", number)
        self.browser.until("return document.querySelector('#detail h2')?.textContent.endsWith(` ${arguments[0]}`)"
                           "&& document.querySelector('#part')?.childElementCount > 0", number)
