"""How a phone finds the collector: on a network of the test's own, in which this machine is 192.0.2.7."""

import os
import pathlib
import socket
import ssl
import subprocess
import sys
import unittest
import urllib.request

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))

from collector import Collector  # pylint: disable=wrong-import-position
from page_case import PageCase  # pylint: disable=wrong-import-position

INSIDE = "KX_TEST_INSIDE_ITS_NETWORK"
ADDRESS = "192.0.2.7"


def make_network():
    """Does not change any more once it is there, which would end what the browser is loading (ERR_NETWORK_CHANGED): so without
    addresses that the kernel makes itself, a second or two later."""
    for words in ("link set lo up", "link add phone type veth peer name far", "link set far addrgenmode none",
                  "link set phone addrgenmode none", f"address add {ADDRESS}/24 dev phone", "link set far up", "link set phone up",
                  "route add default dev phone"):
        subprocess.run(["ip", *words.split()], check=True)


def decoded(picture):
    """What a reader of QR codes finds in a picture."""
    return subprocess.run(["zbarimg", "--quiet", "--raw", "-Sdisable", "-Sqrcode.enable", picture], check=True, capture_output=True,
                          text=True, env={**os.environ, "DBUS_SESSION_BUS_ADDRESS": "disabled:"}).stdout.strip()


class PhoneTest(PageCase):
    def start(self, *options):
        self.program = self.enterContext(Collector(*options))
        self.collector.url = self.program.page.rstrip("/")
        return self.program.get("/api/status")

    def test_the_address_in_the_code_is_one_that_a_phone_can_call(self):
        status = self.start("--address", "0.0.0.0")
        base = f"https://{ADDRESS}:{self.program.where['port']}"
        self.assertEqual(status["phone"]["page"], base + "/ca")
        self.assertEqual(status["addresses"], [base, f"https://127.0.0.1:{self.program.where['port']}"])
        trust = ssl.create_default_context(cafile=status["caFile"])

        def fetch(path):
            with urllib.request.urlopen(base + path, context=trust, timeout=30) as answer:
                return answer.headers["Content-Type"], answer.read().decode()
        kind, page = fetch("/ca")
        self.assertEqual(kind, "text/html; charset=utf-8")
        for part in ('href="/ca.pem"', 'href="/ca.mobileconfig"', status["phone"]["fingerprint"]):
            self.assertIn(part, page)
        self.assertEqual(fetch("/ca.pem"), ("application/x-x509-ca-cert", pathlib.Path(status["caFile"]).read_text(encoding="ascii")))
        self.assertEqual(fetch("/ca.mobileconfig")[0], "application/x-apple-aspen-config")
        # The live page stays where it is.
        port = int(self.program.page.rpartition(":")[2].rstrip("/"))
        with socket.socket() as phone:
            self.assertNotEqual(phone.connect_ex((ADDRESS, port)), 0)

    def test_the_page_shows_the_code_and_both_downloads(self):
        status = self.start("--address", "0.0.0.0")
        self.show()
        self.browser.until("return !document.getElementById('welcome').hidden && document.querySelector('#welcome .qr')")
        self.browser.click("#phone-open")
        for width in (320, 1280):
            self.browser.size(width, 800)
            beyond = self.browser.run("const box = document.getElementById('phone'); return [box.scrollWidth > box.clientWidth,"
                                      "...[...box.querySelectorAll('*')].filter((one) => one.getBoundingClientRect().right > innerWidth)"
                                      ".map((one) => one.tagName)]")
            self.assertEqual(beyond, [False], width)
            picture = os.path.join(self.browser.folder, "picture.png")
            self.browser.picture(picture)
            self.assertEqual(decoded(picture), status["phone"]["page"])
        for theme in ("dark", "light"):
            self.browser.run("document.documentElement.dataset.theme = arguments[0]", theme)
            self.browser.picture(picture)
            self.assertEqual(decoded(picture), status["phone"]["page"], theme)
        self.assertEqual(self.browser.text("#phone .fingerprint"), status["phone"]["fingerprint"])
        for address in status["addresses"]:
            self.assertIn(address, self.browser.texts("#phone code"))
        for link, kind in (("/ca.pem", "application/x-x509-ca-cert"), ("/ca.mobileconfig", "application/x-apple-aspen-config")):
            self.assertEqual(self.browser.run_async(
                f"const answer = await fetch(document.querySelector('#phone a[href=\"{link}\"]').href); return answer.headers.get('Content-Type')"), kind)
        self.assertEqual(self.browser.run("return document.querySelector('#phone .qr').getAttribute('aria-label')"),
                         "QR code of " + status["phone"]["page"])
        self.browser.keys("Escape")
        self.browser.until("return !document.getElementById('phone').open")

    def test_shows_nothing_of_it_where_no_phone_can_call(self):
        status = self.start()
        self.assertIsNone(status["phone"])
        self.show()
        self.browser.until("return !document.getElementById('welcome').hidden")
        self.assertEqual(self.browser.run("return [document.querySelectorAll('.qr').length, document.getElementById('phone-open').hidden]"),
                         [0, True])
        self.assertNotIn("null", self.browser.text("#welcome"))

    def test_shows_nothing_of_it_where_the_certificate_is_one_of_the_user_s_own(self):
        with Collector() as other:
            folder = pathlib.Path(other.folder)
            subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-noenc", "-subj",
                            "/CN=localhost", "-keyout", folder / "own.key", "-out", folder / "own.pem"], check=True, capture_output=True)
            status = self.start("--address", "0.0.0.0", "--certificate", str(folder / "own.pem"), "--key", str(folder / "own.key"))
        self.assertIsNone(status["phone"])


if __name__ == "__main__":
    if INSIDE not in os.environ:
        os.execvpe("unshare", ["unshare", "--map-root-user", "--net", sys.executable, *sys.argv], {**os.environ, INSIDE: "1"})
    make_network()
    unittest.main()
