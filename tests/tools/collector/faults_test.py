"""The fault switches: what a client gets, and what is kept of it.

usage: faults_test.py CLASS
"""

import gzip
import http.client
import json
import socket
import ssl
import time
import unittest

from collector import LOGIN, Collector, login_document

DEVICE = "11111111-2222-4333-8444-555555555555"


class FaultsTest(unittest.TestCase):
    def setUp(self):
        self.collector = Collector()
        self.addCleanup(self.collector.__exit__)

    def switch(self, **fault):
        status, _, body = self.collector.ask("/api/faults", "POST", fault, token=True)
        self.assertEqual(status, 201, body)
        return json.loads(body)

    def log_in(self):
        return self.collector.post(LOGIN, json.dumps(login_document()).encode())

    def latest(self):
        return self.collector.get("/api/requests?order=desc&limit=1")["requests"][0]

    def done(self):
        return [fault["done"] for fault in self.collector.get("/api/faults")["faults"]]

    def test_a_status_for_the_next_n(self):
        fault = self.switch(endpoint="login", action="status", status=503, count=2)
        self.assertEqual(fault, {"id": 1, "endpoint": "login", "device": None, "action": "status", "status": 503,
                                 "location": None, "seconds": 0, "count": 2, "done": 0})
        self.assertEqual([self.log_in().status for _ in range(3)], [503, 503, 200])
        self.assertEqual(self.done(), [2])
        faulty = self.collector.get("/api/requests?outcome=bad")["requests"][0]
        self.assertEqual([faulty["status"], faulty["reason"], faulty["fault"]],
                         [503, "told to answer so", "answered 503"])
        self.assertIsNone(self.latest()["fault"])

    def test_a_redirect(self):
        self.switch(action="status", status=307, location="https://localhost:1/elsewhere")
        answer = self.log_in()
        self.assertEqual([answer.status, answer.headers["Location"]], [307, "https://localhost:1/elsewhere"])
        whole = self.collector.get("/api/requests/1")
        self.assertIn(["Location", "https://localhost:1/elsewhere"], whole["answer"]["headerFields"])

    def test_one_device_alone(self):
        token = self.collector.log_in()
        self.switch(device=DEVICE, action="status", status=500)
        self.assertEqual(self.collector.send(token, 1).status, 200)
        self.assertEqual(self.collector.send(token, 2, ifa=DEVICE).status, 500)
        self.assertEqual(self.log_in().status, 200)

    def test_a_delay(self):
        self.switch(endpoint="login", action="delay", seconds=0.4)
        begin = time.monotonic()
        self.assertEqual(self.log_in().status, 200)
        self.assertGreaterEqual(time.monotonic() - begin, 0.4)
        self.assertEqual(self.latest()["fault"], "held the answer back for 0.4 s")

    def test_a_dropped_connection(self):
        self.switch(action="drop", count=1)
        with self.assertRaises((http.client.HTTPException, OSError)):
            self.log_in()
        self.assertEqual(self.latest()["fault"], "dropped the connection")
        self.assertEqual(self.log_in().status, 200)

    def test_an_answer_that_stalls_half_way(self):
        self.switch(action="stall", seconds=0.5, count=1)
        body = gzip.compress(json.dumps(login_document()).encode())
        trust = ssl.create_default_context(cafile=self.collector.where["caFile"])
        plain = socket.create_connection(("localhost", self.collector.where["port"]), timeout=30)
        with trust.wrap_socket(plain, server_hostname="localhost", suppress_ragged_eofs=True) as client:
            client.sendall(f"POST {LOGIN} HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/json\r\n"
                           f"Content-Encoding: gzip\r\nContent-Length: {len(body)}\r\n\r\n".encode() + body)
            received = client.recv(1000)
            begin = time.monotonic()
            while more := client.recv(1000):
                received += more
        self.assertGreaterEqual(time.monotonic() - begin, 0.4)
        self.assertTrue(received.startswith(b"HTTP/1.1 200 OK\r\n"), received)
        self.assertNotIn(b"\r\n\r\n", received)
        self.assertEqual(self.latest()["fault"], "stalled half-way for 0.5 s")

    def test_a_token_expires(self):
        token = self.collector.log_in()
        self.switch(endpoint="message", action="expire", count=1)
        self.assertEqual([self.collector.send(token, 1).status, self.collector.send(token, 1).status], [403, 403])
        self.assertEqual(self.collector.get("/api/requests/2")["fault"], "let the token expire")
        self.assertEqual(self.collector.send(self.collector.log_in(), 1).status, 200)

    def test_a_token_is_refused_and_good_again(self):
        token = self.collector.log_in()
        self.switch(endpoint="message", action="refuse", count=1)
        self.assertEqual([self.collector.send(token, 1).status, self.collector.send(token, 1).status], [403, 200])
        self.assertEqual(self.latest()["warnings"], [])  # what was refused has not come before

    def test_logins_that_lead_nowhere(self):
        self.switch(endpoint="login", action="expire", count=1)
        self.assertEqual(self.collector.send(self.collector.log_in(), 1).status, 403)
        self.switch(endpoint="login", action="refuse", count=1)
        self.assertEqual(self.log_in().status, 403)

    def test_a_refusal_stays_what_it_is(self):
        self.switch(action="status", status=503)
        self.assertEqual(self.collector.post(LOGIN, b"{}").status, 400)
        self.assertEqual(self.done(), [0])

    def test_switching_off(self):
        for status in (500, 501):
            self.switch(action="status", status=status)
        self.assertEqual(self.collector.ask("/api/faults/2", "DELETE", token=True)[0], 204)
        self.assertEqual(self.log_in().status, 500)
        self.assertEqual(self.collector.ask("/api/faults/2", "DELETE", token=True)[0], 404)
        self.assertEqual(self.collector.ask("/api/faults", "DELETE", token=True)[0], 204)
        self.assertEqual(self.collector.get("/api/faults"), {"faults": []})
        self.assertEqual(self.log_in().status, 200)

    def test_what_makes_no_sense(self):
        for fault, reason in ((b"{", "JSON"), ([], "an object"), ({}, "action"), ({"action": "explode"}, "refuse"),
                              ({"action": "status"}, "needs"), ({"action": "status", "status": 199}, "200"),
                              ({"action": "delay"}, "seconds"), ({"action": "delay", "seconds": -1}, "seconds"),
                              ({"action": "drop", "seconds": 1}, "seconds"), ({"action": "drop", "status": 500}, "status"),
                              ({"action": "drop", "count": 0}, "count"), ({"action": "drop", "colour": 1}, "colour"),
                              ({"action": "status", "status": 500, "location": "/"}, "location"),
                              ({"action": "status", "status": 302, "location": "/\r\nX: 1"}, "control"),
                              ({"action": "drop", "endpoint": "login", "device": "x"}, "device")):
            status, _, body = self.collector.ask("/api/faults", "POST", fault, token=True)
            self.assertEqual(status, 400, fault)
            self.assertIn(reason, json.loads(body)["error"])
        self.assertEqual(self.collector.get("/api/faults"), {"faults": []})


class OptionsTest(unittest.TestCase):
    def test_the_switches_of_the_command_line_are_among_them(self):
        with Collector("--login-status", "500:1", "--message-delay", "0.1") as collector:
            faults = collector.get("/api/faults")["faults"]
            self.assertEqual([(fault["endpoint"], fault["action"]) for fault in faults],
                             [("login", "status"), ("message", "delay")])
            self.assertEqual(collector.post(LOGIN, json.dumps(login_document()).encode()).status, 500)
            self.assertEqual(collector.get("/api/faults")["faults"][0]["done"], 1)


if __name__ == "__main__":
    unittest.main()
