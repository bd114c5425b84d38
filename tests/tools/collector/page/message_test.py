"""One request whole."""

import base64
import os
import pathlib
import re
import shlex
import subprocess
import tempfile
import unittest

from page_case import NOW, PageCase, message


class MessageTest(PageCase):
    def table(self):
        """Groups of (key, value, change)."""
        return self.browser.run("""
            return [...document.querySelectorAll('#part table.message tbody')].map((group) => [group.querySelector('.group').textContent,
              [...group.querySelectorAll('[data-key]')].map((row) => [row.dataset.key, row.children[1].textContent, row.children[2].textContent])])""")

    def test_is_a_table_by_groups(self):
        self.collector.add(message(1, dnt=1, tzOffset=-12600, lat=-33.9, own="thing"), time=NOW + 3000)
        self.show()
        self.select(1)
        groups = self.table()
        self.assertEqual([title for title, _ in groups], [
            "Device", "Carrier", "Location", "Connection", "Application", "Library", "Not in the reference"])
        values = {key: value for _, rows in groups for key, value, _ in rows}
        self.assertEqual(values["carrierCode"], "262-01")
        self.assertEqual(values["dnt"], "1 asked not to be tracked")
        self.assertEqual(values["lat"], "-33.9 ° south")
        self.assertEqual(values["tzOffset"], "-12600 UTC−3:30")
        self.assertEqual(values["languages"], '["de-DE","en-GB"]')
        self.assertTrue(values["eventTime"].endswith("2.0 s before it came"), values["eventTime"])
        self.assertEqual(values["own"], "thing")
        self.assertEqual(self.browser.text("#part .changes"), "The device's first message here.")

    def test_has_the_groups_and_keys_of_the_reference(self):
        reference = (pathlib.Path(__file__).resolve().parents[4] / "docs/message-reference.md").read_text()
        every = reference.split("## Every key")[1].split("## Where each platform")[0]
        groups = [re.findall(r"^\| `(\w+)` \|", part, re.MULTILINE) for part in every.split("\n### ")[1:]]
        self.show()
        shown = self.browser.run_async("const { GROUPS } = await import('/message.js'); return GROUPS.map(([, keys]) => keys)")
        self.assertEqual(shown, groups)

    def test_says_what_changed_since_the_device_s_message_before(self):
        self.collector.add(message(1, zip="10115"), time=NOW)
        self.collector.add(message(2, device="B" * 36, connectionType="CELLULAR"), time=NOW + 1000)
        self.collector.add(message(3, connectionType="CELLULAR", city="Berlin"), time=NOW + 600000)
        self.show()
        self.select(3)
        changes = {key: (value, change) for _, rows in self.table() for key, value, change in rows if change}
        self.assertEqual(changes, {"connectionType": ("CELLULARbefore: WIFI", "changed"), "city": ("Berlin", "added"), "zip": ("10115", "removed")})
        self.assertEqual(self.browser.text("#part .changes > span"), "3 of 25 changed since no. 1, 10 min before")
        self.browser.click("#only-changed")
        self.assertEqual([key for _, rows in self.table() for key, _, _ in rows], ["city", "zip", "connectionType"])
        self.browser.click("#part .changes a")
        self.browser.until("return document.querySelector('#detail h2').textContent === 'Message 1'")

    def test_shows_the_raw_text_as_it_was_sent(self):
        self.collector.add(message(1), text='[{"a":1.50,"b":[],"c":"x\\u0041\\"{},:[]","d":123456789012345678901}]')
        self.show()
        self.select(1)
        self.browser.click("#part-raw")
        self.assertEqual(self.browser.text("#part pre"),
                         '[\n  {\n    "a": 1.50,\n    "b": [],\n    "c": "x\\u0041\\"{},:[]",\n    "d": 123456789012345678901\n  }\n]')

    def test_shows_header_fields_sizes_and_times(self):
        record = self.collector.add(message(1), headerFields=[["Host", "127.0.0.1"], ["X-Twice", "one"], ["X-Twice", "two"]],
                                    answer={"status": 200, "headerFields": [["X-Answer", "yes"]]},
                                    microseconds={"receive": 1500, "work": 20, "send": 2500000})
        self.show()
        self.select(1)
        facts = self.browser.text("#detail .facts")
        self.assertIn(f"{record['packedSize']} B packed, {record['unpackedSize']} B unpacked", facts)
        self.assertIn("1.50 ms to receive, 20 µs to check, 2.50 s to answer", facts)
        self.browser.click("#part-fields")
        self.assertEqual(self.browser.texts("#part th, #part td"),
                         ["Host", "127.0.0.1", "X-Twice", "one", "X-Twice", "two", "X-Answer", "yes"])

    def test_shows_the_reason_and_the_offending_bytes(self):
        self.collector.add(text='[{"lat":52,"ü":"\x07"}]', status=400, reason="a control character in a text",
                           offending={"offset": 17, "length": 1, "bytes": "07"})
        self.show()
        self.select(1)
        self.assertEqual(self.browser.text(".verdict"), "400 refused: a control character in a text")
        self.assertEqual(self.browser.text(".offending h3"), "Byte 17 of the text")
        self.assertEqual(self.browser.texts(".offending mark"), [" 07 ", "·"])
        self.assertEqual(self.browser.texts(".offending pre"),
                         [" 5b 7b 22 6c 61 74 22 3a 35 32 2c 22 c3 bc 22 3a 22  07  22 7d 5d ", '[{"lat":52,"··":"·"}]'])

    def test_shows_a_body_that_cannot_be_unpacked(self):
        self.collector.add(text=None, status=400, reason="no gzip", offending={"offset": 2, "length": 1, "bytes": "3f"})
        self.show()
        self.select(1)
        self.browser.click("#part-raw")
        self.assertEqual(self.browser.text("#part pre"), base64.b64encode(b"\x1f\x8b?").decode())
        self.assertEqual(self.browser.text(".offending h3"), "Byte 2 of the body as received")

    def test_marks_what_would_be_unseen(self):
        self.collector.add(message(1, city="Ber\u202enil", asn="a\u2028b\u2066c"), headerFields=[["X-One", "a\u202eb"]])
        self.show()
        self.select(1)
        values = {key: value for _, rows in self.table() for key, value, _ in rows}
        self.assertEqual(values["city"], "Ber\\u202enil")
        self.assertEqual(values["asn"], "a\\u2028b\\u2066c")
        self.browser.click("#part-fields")
        self.assertEqual(self.browser.text("#part td"), "a\\u202eb")

    def test_makes_room_on_a_phone_for_what_is_asked_for(self):
        self.browser.size(360, 720)
        self.addCleanup(self.browser.size, 1280, 800)
        self.collector.add(message(1, lat=52.5, lon=13.4))
        self.show()
        self.await_rows(1)
        for button, name in (("On the map", "map"), ("On the timeline", "timeline")):
            self.select(1)
            self.browser.run("[...document.querySelectorAll('.detail-actions button')]"
                             ".find((one) => one.textContent === arguments[0]).click()", button)
            self.browser.until("return !document.getElementById(`view-${arguments[0]}`).hidden &&"
                               "document.elementFromPoint(180, 500).closest(`#view-${arguments[0]}`)", name)
            self.browser.keys("1")
        self.select(1)
        self.browser.keys("4")
        self.browser.until("return document.elementFromPoint(180, 500).closest('#view-faults')")

    def test_copies_a_curl_command_that_sends_the_same_bytes(self):
        nasty = "it's \"$HOME\" `id` \\x41 \x1b[31m ü7"
        record = self.collector.add(message(1), headerFields=[
            ["Host", "127.0.0.1:8443"], ["Content-Type", "application/json"], ["Content-Encoding", "gzip"],
            ["Authorization", "Bearer 6c1f"], ["X-Nasty", nasty], ["X-Quote", "it's"], ["X-Empty", ""], ["User-Agent", "host"], ["Content-Length", "999"]])
        self.show()
        self.select(1)
        command = self.browser.run_async(
            "const { curl } = await import('/curl.js'); const record = await (await fetch('/api/requests/1')).json();"
            "return curl(record, await (await fetch('/api/status')).json())")
        self.assertRegex(command, r"\A[\x20-\x7e\n]*\Z")
        with tempfile.TemporaryDirectory() as folder:
            stand_in = pathlib.Path(folder, "curl")
            stand_in.write_text(f'#!/bin/bash\ncat >{shlex.quote(folder)}/body\nprintf "%s\\0" "$@"\n')
            stand_in.chmod(0o755)
            ran = subprocess.run(["bash", "-c", command], env={**os.environ, "PATH": f"{folder}:{os.environ['PATH']}"},
                                 capture_output=True, check=True)
            body = pathlib.Path(folder, "body").read_bytes()
        self.assertEqual(body, base64.b64decode(record["body"]))
        arguments = ran.stdout.decode().split("\0")[:-1]
        fields = [value for option, value in zip(arguments, arguments[1:]) if option == "--header"]
        self.assertEqual(fields, ["Content-Type: application/json", "Content-Encoding: gzip", "Authorization: Bearer 6c1f",
                                  f"X-Nasty: {nasty}", "X-Quote: it's", "X-Empty;", "User-Agent: host", "Accept:"])
        self.assertEqual(arguments[-1], "https://127.0.0.1:8443/api_v0_0_0/post_msg")
        self.assertEqual(arguments[arguments.index("--cacert") + 1], "/home/me/.local/state/kx-collector/ca.pem")

    def test_has_what_is_seen_on_the_clipboard(self):
        self.collector.add(message(1))
        self.show()
        self.select(1)
        self.browser.devtools("Browser.grantPermissions", permissions=["clipboardReadWrite", "clipboardSanitizedWrite"])
        self.browser.click(".detail-actions button")
        self.browser.until("return document.querySelector('.detail-actions button').textContent === 'Copied'")
        self.assertTrue(self.browser.run_async("return navigator.clipboard.readText()").startswith("echo '"))


if __name__ == "__main__":
    unittest.main()
