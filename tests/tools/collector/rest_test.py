"""The page's server as the tests of hosts use it: requests, waiting, events, and who may ask.

usage: rest_test.py CLASS
"""

import base64
import http.client
import json
import socket
import tempfile
import threading
import time
import unittest

from collector import LOGIN, MESSAGE, Collector, uuid

OTHER_DEVICE = "11111111-2222-4333-8444-555555555555"
SECURITY = {
    "Content-Security-Policy": "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; "
                               "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'",
    "X-Content-Type-Options": "nosniff",
    "Referrer-Policy": "no-referrer",
    "Cache-Control": "no-store",
}


class RestTest(unittest.TestCase):
    options = ()

    def setUp(self):
        self.collector = Collector(*self.options)
        self.addCleanup(self.collector.__exit__)

    def get(self, path):
        return self.collector.get(path)

    def refused(self, path, status, method="GET", **more):
        answered, fields, body = self.collector.ask(path, method, **more)
        self.assertEqual(answered, status, body)
        self.assertEqual(fields["Content-Type"], "application/json")
        return json.loads(body)["error"]


class RequestsTest(RestTest):
    def setUp(self):
        super().setUp()
        self.token = self.collector.log_in()
        self.collector.send(self.token, 1, lat=48.1, lon=11.5, horizontalAccuracy=5)
        self.collector.send(self.token, 2, ifa=OTHER_DEVICE, bundleId="com.example.Other")
        self.collector.send(self.token, 3, lat="north")
        self.collector.post("/nowhere", b"{}")

    def ids(self, query):
        return [request["id"] for request in self.get(f"/api/requests?{query}")["requests"]]

    def test_counts(self):
        self.assertEqual(self.get("/api/counts"),
                         {"all": 5, "good": 3, "bad": 2, "logins": 1, "messages": 3, "warned": 0})
        self.assertEqual(self.get(f"/api/counts?device={OTHER_DEVICE}"),
                         {"all": 1, "good": 1, "bad": 0, "logins": 0, "messages": 1, "warned": 0})

    def test_filters(self):
        self.assertEqual(self.ids(""), [1, 2, 3, 4, 5])
        self.assertEqual(self.ids("order=desc"), [5, 4, 3, 2, 1])
        self.assertEqual(self.ids("kind=login"), [1])
        self.assertEqual(self.ids("kind=other"), [5])
        self.assertEqual(self.ids("kind=message&outcome=good"), [2, 3])
        self.assertEqual(self.ids("outcome=bad"), [4, 5])
        self.assertEqual(self.ids("bundle=com.example.Other"), [3])
        self.assertEqual(self.ids("text=NORTH"), [4])
        self.assertEqual(self.ids("text=nowhere"), [5])
        self.assertEqual(self.ids("text=com.example.%4fther"), [3])
        self.assertEqual(self.ids("after=2&before=5"), [3, 4])
        self.assertEqual(self.ids("warned=true"), [])
        self.assertEqual(self.ids("warned=false&kind="), [1, 2, 3, 4, 5])

    def test_paging(self):
        first = self.get("/api/requests?limit=2")
        self.assertEqual([[request["id"] for request in first["requests"]], first["more"]], [[1, 2], True])
        rest = self.get("/api/requests?limit=3&after=2")
        self.assertEqual([[request["id"] for request in rest["requests"]], rest["more"]], [[3, 4, 5], False])

    def test_summary(self):
        summary = self.get("/api/requests?after=1&limit=1")["requests"][0]
        self.assertLess(abs(summary.pop("time") / 1000 - time.time()), 60)
        self.assertLess(abs(summary.pop("eventTime") / 1000 - time.time()), 60)
        self.assertGreater(summary.pop("packedSize"), 100)
        self.assertGreater(summary.pop("unpackedSize"), 200)
        self.assertGreater(summary.pop("microseconds")["work"], 0)
        self.assertEqual(summary, {
            "id": 2, "kind": "message", "outcome": "good", "status": 200, "reason": None,
            "device": "6D92078A-8246-4BA4-AE5B-76104861E7DC", "bundle": "com.example.Host", "warnings": [],
            "fault": None, "eventId": uuid(1), "lat": 48.1, "lon": 11.5, "horizontalAccuracy": 5})

    def test_whole(self):
        whole = self.get("/api/requests/2")
        self.assertEqual(whole["method"], "POST")
        self.assertEqual(whole["target"], MESSAGE)
        self.assertIn(["Authorization", f"Bearer {self.token}"], whole["headerFields"])
        self.assertTrue(whole["remoteAddress"].startswith("127.0.0.1:"))
        self.assertEqual(json.loads(whole["text"]), [whole["message"]])
        self.assertEqual(whole["message"]["id"], uuid(1))
        self.assertEqual(len(base64.b64decode(whole["body"])), whole["packedSize"])
        self.assertEqual(whole["answer"]["status"], 200)
        self.assertEqual([whole["offending"], whole["previous"]], [None, None])
        self.assertEqual(self.get("/api/requests/4")["previous"], 2)
        login = self.get("/api/requests/1")
        self.assertEqual(login["answer"]["headerFields"], [["set-authorization", self.token]])
        self.assertIsNone(login["message"])

    def test_time_of_the_answer_comes_later(self):
        for _ in range(1000):
            if self.get("/api/requests/2")["microseconds"]["send"] > 0:
                return
            time.sleep(0.01)
        self.fail("the time was never told")

    def test_what_is_wrong_is_shown_by_its_bytes(self):
        whole = self.get("/api/requests/4")
        self.assertEqual(whole["reason"], '"lat" must be a number and is "north"')
        offending = whole["offending"]
        self.assertEqual(bytes.fromhex(offending["bytes"]), b'"north"')
        at = offending["offset"]
        self.assertEqual(whole["text"].encode()[at:at + offending["length"]], b'"north"')

    def test_devices(self):
        devices = self.get("/api/devices")["devices"]
        self.assertEqual([[device["device"][:8], device["bundle"], device["messages"], device["refused"]]
                          for device in devices],
                         [["6D92078A", "com.example.Host", 2, 1], ["11111111", "com.example.Other", 1, 0]])
        self.assertLessEqual(devices[0]["first"], devices[0]["last"])

    def test_download(self):
        status, fields, body = self.collector.ask("/api/download?kind=message")
        self.assertEqual([status, fields["Content-Type"]], [200, "application/x-ndjson"])
        lines = [json.loads(line) for line in body.splitlines()]
        self.assertEqual(lines, [self.get(f"/api/requests/{id}") for id in (2, 3, 4)])

    def test_reset_forgets_and_counts_on(self):
        self.assertEqual(self.collector.ask("/api/requests", "DELETE")[0], 204)
        self.assertEqual(self.get("/api/counts")["all"], 0)
        self.assertEqual(self.refused("/api/requests/2", 404), "there is no request 2, or no more")
        self.collector.log_in()
        self.assertEqual(self.ids(""), [6])

    def test_mistakes_are_told(self):
        self.assertIn("unknown", self.refused("/api/requests?limitt=1", 400))
        self.assertIn("from 1 to 1000", self.refused("/api/requests?limit=1001", 400))
        self.assertIn("from 1 to 1000", self.refused("/api/requests?limit=-1", 400))
        self.assertIn("more than once", self.refused("/api/requests?limit=1&limit=2", 400))
        self.assertIn('"good"', self.refused("/api/counts?outcome=fine", 400))
        self.assertIn("%", self.refused("/api/counts?text=%4", 400))
        self.assertIn("/api/nothing", self.refused("/api/nothing", 404))
        self.refused("/api/requests/0", 404)
        self.refused("/api/requests/99999999999999999999999", 404)
        self.assertEqual(self.collector.ask("/api/requests", "POST", {})[1]["Allow"], "GET, DELETE")
        self.refused("/api/counts", 405, "PUT", body={})
        self.refused("/", 405, "DELETE")

    def test_any_bytes_can_be_shown(self):
        self.collector.post(LOGIN, b"\xff\xfe\x00", packed=False)
        whole = self.get("/api/requests/6")
        self.assertEqual(base64.b64decode(whole["body"]), b"\xff\xfe\x00")


class WaitTest(RestTest):
    def wait(self, query):
        answer = {}

        def ask():
            begin = time.monotonic()
            answer.update(self.get(f"/api/wait?{query}"))
            answer["seconds"] = time.monotonic() - begin

        thread = threading.Thread(target=ask)
        thread.start()
        return thread, answer

    def test_it_is_met_by_what_is_there(self):
        self.collector.log_in()
        answer = self.get("/api/wait?kind=login&timeout=0")
        self.assertTrue(answer["met"])
        self.assertEqual([request["id"] for request in answer["requests"]], [1])

    def test_it_is_met_as_soon_as_enough_have_come(self):
        thread, answer = self.wait("kind=message&outcome=good&count=2&timeout=30")
        token = self.collector.log_in()
        self.collector.send(token, 1)
        self.collector.send(token, 2, lat="north")
        time.sleep(0.3)
        self.assertTrue(thread.is_alive())
        self.collector.send(token, 3)
        thread.join()
        self.assertTrue(answer["met"])
        self.assertEqual([request["id"] for request in answer["requests"]], [2, 4])
        self.assertLess(answer["seconds"], 20)

    def test_the_time_may_be_over(self):
        self.collector.log_in()
        thread, answer = self.wait("count=2&timeout=1")
        thread.join()
        self.assertFalse(answer["met"])
        self.assertEqual(len(answer["requests"]), 1)
        self.assertGreaterEqual(answer["seconds"], 0.9)

    def test_what_was_forgotten_does_not_count(self):
        self.collector.log_in()
        thread, answer = self.wait("count=2&timeout=30")
        time.sleep(0.3)
        self.collector.ask("/api/requests", "DELETE")
        self.collector.log_in()
        time.sleep(0.3)
        self.assertTrue(thread.is_alive())
        self.collector.log_in()
        thread.join()
        self.assertEqual([request["id"] for request in answer["requests"]], [2, 3])


class EventsTest(RestTest):
    def listen(self, last=None):
        """Events as they come: name, id and data."""
        connection = http.client.HTTPConnection("127.0.0.1", int(self.collector.page.rsplit(":", 1)[1]), timeout=30)
        self.addCleanup(connection.close)
        connection.request("GET", "/api/events", headers={"Last-Event-ID": str(last)} if last is not None else {})
        answer = connection.getresponse()
        self.assertEqual(answer.headers["Content-Type"], "text/event-stream")
        return self.events(answer)

    @staticmethod
    def events(answer):
        event = {}
        while line := answer.readline().decode():
            if line == "\n":
                if event:
                    yield event.get("event"), event.get("id"), json.loads(event["data"])
                event = {}
            elif not line.startswith(":"):
                name, _, value = line.rstrip("\n").partition(": ")
                event[name] = value

    def test_requests_come_as_they_happen(self):
        self.collector.log_in()
        events = self.listen()
        self.assertEqual(next(events), ("faults", None, {"faults": []}))
        self.collector.log_in()
        name, last, summary = next(events)
        self.assertEqual([name, last, summary["id"], summary["kind"]], ["request", "2", 2, "login"])
        self.assertEqual(set(summary), set(self.get("/api/requests/2")) & set(summary))

    def test_they_go_on_where_they_were(self):
        for _ in range(3):
            self.collector.log_in()
        events = self.listen(last=1)
        next(events)
        self.assertEqual([next(events)[1], next(events)[1]], ["2", "3"])

    def test_a_reader_of_an_earlier_collector_begins_anew(self):
        self.collector.log_in()
        events = self.listen(last=1000)
        self.assertEqual(next(events)[0], "reset")
        next(events)
        self.assertEqual(next(events)[1], "1")

    def test_all_is_forgotten(self):
        events = self.listen()
        next(events)
        self.collector.ask("/api/requests", "DELETE")
        self.assertEqual(next(events)[0], "reset")

    def test_faults_are_told(self):
        events = self.listen()
        next(events)
        self.collector.ask("/api/faults", "POST", {"action": "drop", "count": 1}, token=True)
        name, _, data = next(events)
        self.assertEqual([name, data["faults"][0]["done"]], ["faults", 0])

    def test_a_slow_reader_holds_up_nobody(self):
        slow = socket.create_connection(("127.0.0.1", int(self.collector.page.rsplit(":", 1)[1])))
        self.addCleanup(slow.close)
        slow.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1024)
        host = self.collector.page.split("//")[1]
        slow.sendall(f"GET /api/events HTTP/1.1\r\nHost: {host}\r\n\r\n".encode())
        for _ in range(500):
            self.assertEqual(self.collector.post(LOGIN, b"x" * 100, packed=False).status, 400)
        self.assertEqual(self.get("/api/counts")["all"], 500)


class PasswordTest(unittest.TestCase):
    def asks_for(self, password, collector):
        def authorization(text):
            return "Basic " + base64.b64encode(text.encode()).decode()

        for path in ("/", "/api/status", "/page.js", "/ca.pem", "/api/events"):
            status, fields, _ = collector.ask(path)
            self.assertEqual([status, fields["WWW-Authenticate"]],
                             [401, 'Basic realm="kx-collector", charset="UTF-8"'], path)
        for wrong in (f"{password}x", "", password[:-1]):
            self.assertEqual(collector.ask("/api/status", Authorization=authorization(f"me:{wrong}"))[0], 401)
        self.assertEqual(collector.ask("/api/status", Authorization=authorization(f"me:{password}"))[0], 200)

    def test_on_every_address_one_is_made(self):
        with Collector("--page-address", "0.0.0.0") as collector:
            self.asks_for(collector.where["pagePassword"], collector)

    def test_one_of_ones_own(self):
        with tempfile.NamedTemporaryFile("w") as file:
            file.write("open sesame\n")
            file.flush()
            with Collector("--page-password-file", file.name) as collector:
                self.assertNotIn("pagePassword", collector.where)
                self.asks_for("open sesame", collector)

    def test_on_loopback_there_is_none(self):
        with Collector() as collector:
            self.assertNotIn("pagePassword", collector.where)


class PortTest(unittest.TestCase):
    def test_a_port_in_use(self):
        with Collector() as first:
            port = first.page.rsplit(":", 1)[1]
            with self.assertRaisesRegex(RuntimeError, "--page-port"):
                Collector("--page-port", port)

    def test_without_a_page(self):
        with Collector("--no-page") as collector:
            self.assertNotIn("page", collector.where)
            self.assertTrue(collector.log_in())


class AccessTest(RestTest):
    def test_every_answer_is_strict(self):
        for path in ("/", "/api/status", "/nothing", "/api/wait?timeout=0", "/api/download"):
            _, fields, _ = self.collector.ask(path)
            for name, value in SECURITY.items():
                self.assertEqual(fields.get_all(name), [value], path)
            self.assertIsNone(fields["Access-Control-Allow-Origin"])

    def test_other_hosts_are_refused(self):
        port = self.collector.page.rsplit(":", 1)[1]
        for host in (f"127.0.0.1:{port}", f"localhost:{port}", f"LOCALHOST:{port}", f"[::1]:{port}"):
            self.assertEqual(self.collector.ask("/api/status", Host=host)[0], 200, host)
        for host in ("localhost", f"example.com:{port}", "127.0.0.1:1", f"localhost.example.com:{port}", ""):
            self.assertIn("Host", self.refused("/api/status", 403, Host=host), host)
            self.refused("/", 403, Host=host)

    def test_other_origins_are_refused(self):
        port = self.collector.page.rsplit(":", 1)[1]
        for path in ("/api/status", "/", "/api/events"):
            for origin in ("http://example.com", "null", f"https://127.0.0.1:{port}", "http://127.0.0.1:1",
                           f"http://127.0.0.1:{port}.example.com", ""):
                self.assertIn("other web sites", self.refused(path, 403, Origin=origin), origin)
        self.assertEqual(self.collector.ask("/api/status", Origin=f"http://127.0.0.1:{port}")[0], 200)
        self.refused("/api/requests", 403, "DELETE", Origin="http://example.com")

    def test_the_page_knows_its_token_and_switches_need_it(self):
        _, fields, page = self.collector.ask("/")
        self.assertEqual(fields["Content-Type"], "text/html; charset=utf-8")
        token = self.collector.where["pageToken"]
        self.assertIn(f'<meta name="page-token" content="{token}">', page.decode())
        fault = {"action": "drop"}
        for method, path, body in (("POST", "/api/faults", fault), ("DELETE", "/api/faults", None),
                                   ("DELETE", "/api/faults/1", None)):
            self.assertIn("X-Page-Token", self.refused(path, 403, method, body=body))
            self.assertIn("X-Page-Token", self.refused(path, 403, method, body=body, X_Page_Token=token[:-1] + "x"))
        self.assertEqual(self.collector.ask("/api/faults", "POST", fault, X_Page_Token=token)[0], 201)

    def test_too_much_is_refused(self):
        self.assertIn("too long", self.refused("/api/faults", 413, "POST", body=b"x" * 70000, token=True))

    def test_head_has_no_body(self):
        status, fields, body = self.collector.ask("/api/status", "HEAD")
        self.assertEqual([status, body], [200, b""])
        self.assertGreater(int(fields["Content-Length"]), 10)

    def test_status_and_authority(self):
        status = self.get("/api/status")
        where = self.collector.where
        self.assertEqual([status["service"], status["caFile"]], [where["url"], where["caFile"]])
        self.assertTrue(any(where["caFile"] in line for line in status["next"]))
        with open(where["caFile"], "rb") as file:
            authority = file.read()
        _, fields, body = self.collector.ask("/ca.pem")
        self.assertEqual([fields["Content-Type"], body], ["application/x-x509-ca-cert", authority])
        _, fields, body = self.collector.ask("/ca.mobileconfig")
        self.assertEqual(fields["Content-Type"], "application/x-apple-aspen-config")
        import plistlib
        import ssl
        profile = plistlib.loads(body)
        content = profile["PayloadContent"][0]
        self.assertEqual(content["PayloadType"], "com.apple.security.root")
        self.assertEqual(content["PayloadContent"], ssl.PEM_cert_to_DER_cert(authority.decode()))


if __name__ == "__main__":
    unittest.main()
