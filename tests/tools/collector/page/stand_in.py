"""A collector for the tests of its live page: it serves the page's files, and requests that the test makes up.

What it answers is what kx-collector answers; only that nothing but the test sends it anything.
"""

import base64
import gzip
import http.server
import json
import pathlib
import threading
import time
import urllib.parse

PAGE = pathlib.Path(__file__).resolve().parents[4] / "tools/collector/page"
TOKEN = "0123456789abcdef0123456789abcdef"
POLICY = ("default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; base-uri 'none'; "
          "form-action 'none'; frame-ancestors 'none'")
TYPES = {".html": "text/html; charset=utf-8", ".css": "text/css; charset=utf-8", ".js": "text/javascript; charset=utf-8",
         ".svg": "image/svg+xml", ".bin": "application/octet-stream"}
IN_FULL = ("method", "target", "remoteAddress", "headerFields", "text", "body", "offending", "message", "answer")


class StandIn:
    """Listens on a port of its own until it is closed. `requests` are in the order of their ids."""

    def __init__(self):
        self.requests, self.faults, self.listeners = [], [], []
        self.next_id = self.next_fault = 1
        self.changed = threading.Condition()
        self.phone = None  # what the status tells of phones
        self.late = None  # an event that an answer of /api/faults waits for when it is made
        self.waiting = 0  # such answers
        self.asked = []  # what the page wrote: (method, path, body)
        stand_in = self

        class Handler(PageHandler):
            service = stand_in

        self.server = Server(("127.0.0.1", 0), Handler)
        self.url = f"http://127.0.0.1:{self.server.server_port}"
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def close(self):
        with self.changed:
            self.listeners = None
            self.changed.notify_all()
        self.server.shutdown()
        self.server.server_close()

    def add(self, message=None, **facts):
        """A request came; what the facts do not say is as it mostly is. Returns it whole."""
        kind = facts.pop("kind", "message")
        text = facts.pop("text", json.dumps([message], ensure_ascii=False) if message is not None else "{}")
        body = gzip.compress(text.encode("utf-8", "surrogatepass"), 1) if text is not None else b"\x1f\x8b?"
        status = facts.get("status", 200)
        facts.setdefault("outcome", "good" if status < 300 else "bad")
        known = message or {}
        if "headerFields" not in facts:
            facts["headerFields"] = [["Host", "127.0.0.1:8443"], ["Content-Type", "application/json"],
                                     ["Content-Encoding", "gzip"], ["Authorization", "Bearer 6c1f"],
                                     ["Content-Length", str(len(body))]]
        target = "/api_v0_0_0/do_login" if kind == "login" else "/api_v0_0_0/post_msg"
        record = {
            "id": self.next_id, "time": int(time.time() * 1000), "kind": kind, "status": status, "reason": None,
            "device": known.get("ifa"), "bundle": known.get("bundleId"), "packedSize": len(body),
            "unpackedSize": len(text.encode("utf-8", "surrogatepass")) if text is not None else 0, "warnings": [], "fault": None,
            "eventId": known.get("id"), "eventTime": known.get("eventTime"), "lat": known.get("lat"),
            "lon": known.get("lon"), "horizontalAccuracy": known.get("horizontalAccuracy"),
            "microseconds": {"receive": 412, "work": 188, "send": 95},
            "method": "POST", "target": target, "remoteAddress": "127.0.0.1:40312", "text": text,
            "body": base64.b64encode(body).decode(), "offending": None, "message": message,
            "answer": {"status": status, "headerFields": [["Content-Length", "0"]]}, **facts}
        with self.changed:
            record["id"] = self.next_id
            self.next_id += 1
            self.requests.append(record)
            for fault in self.faults:
                if record["fault"] and fault["action"] in record["fault"]:
                    fault["done"] += 1
            self.tell("request", self.summary(record), record["id"])
            if record["fault"]:
                self.tell("faults", {"faults": self.faults})
        return record

    def change(self, record, **facts):
        """More is known of a request that came before; its event has no id."""
        with self.changed:
            record.update(facts)
            self.tell("request", self.summary(record))

    def tell(self, event, data, number=None):
        """To every page that listens; `changed` is held."""
        lines = f"event: {event}\n" + (f"id: {number}\n" if number else "") + f"data: {json.dumps(data)}\n\n"
        for queue in self.listeners or []:
            queue.append(lines.encode())
        self.changed.notify_all()

    @staticmethod
    def summary(record):
        return {key: value for key, value in record.items() if key not in IN_FULL}

    def whole(self, record):
        before = [other["id"] for other in self.requests if other["id"] < record["id"] and record["device"] and
                  other["device"] == record["device"] and other["kind"] == "message"]
        return {**record, "previous": before[-1] if before else None}

    def matching(self, filters):
        found = self.requests
        for key in ("kind", "outcome", "device", "bundle"):
            if filters.get(key):
                found = [record for record in found if record[key] == filters[key]]
        if filters.get("warned") == "true":
            found = [record for record in found if record["warnings"]]
        if filters.get("text"):
            wanted = filters["text"].lower()
            found = [record for record in found
                     if wanted in " ".join(record[key] or "" for key in ("text", "reason", "device", "target")).lower()]
        if "after" in filters:
            found = [record for record in found if record["id"] > int(filters["after"])]
        if "before" in filters:
            found = [record for record in found if record["id"] < int(filters["before"])]
        return found

    def counts(self, filters):
        found = self.matching(filters)
        return {"all": len(found), "good": sum(record["outcome"] == "good" for record in found),
                "bad": sum(record["outcome"] == "bad" for record in found),
                "logins": sum(record["kind"] == "login" for record in found),
                "messages": sum(record["kind"] == "message" for record in found),
                "warned": sum(bool(record["warnings"]) for record in found)}

    def devices(self):
        devices = {}
        for record in self.requests:
            if record["device"]:
                device = devices.setdefault((record["device"], record["bundle"]), {
                    "device": record["device"], "bundle": record["bundle"], "first": record["time"], "messages": 0,
                    "refused": 0})
                device["last"] = record["time"]
                device["messages"] += 1
                device["refused"] += record["outcome"] == "bad"
        return {"devices": list(devices.values())}


class Server(http.server.ThreadingHTTPServer):
    daemon_threads = True

    def handle_error(self, *_):
        """A page that is closed leaves its connections as they are."""


class PageHandler(http.server.BaseHTTPRequestHandler):
    """One connection of the page."""

    protocol_version = "HTTP/1.1"

    def log_message(self, *_):
        pass

    def answer(self, status, content=b"", kind="application/json"):
        self.send_response(status)
        self.send_header("Content-Security-Policy", POLICY)
        self.send_header("X-Content-Type-Options", "nosniff")
        self.send_header("Referrer-Policy", "no-referrer")
        self.send_header("Cache-Control", "no-store")
        if status != 204:
            self.send_header("Content-Type", kind)
            self.send_header("Content-Length", str(len(content)))
        self.end_headers()
        self.wfile.write(content)

    def say(self, value, status=200):
        self.answer(status, json.dumps(value).encode())

    def do_GET(self):  # pylint: disable=invalid-name
        url = urllib.parse.urlsplit(self.path)
        filters = dict(urllib.parse.parse_qsl(url.query))
        service, path = self.service, url.path
        if path == "/api/status":
            self.say({"version": "1.0", "service": "https://127.0.0.1:8443", "started": 1795300000000,
                      "addresses": ["https://192.0.2.7:8443", "https://127.0.0.1:8443"], "phone": service.phone,
                      "caFile": "/home/me/.local/state/kx-collector/ca.pem",
                      "next": ["hostname = \"127.0.0.1:8443\"", "caFile = \"/home/me/.local/state/kx-collector/ca.pem\"",
                               "apiToken = \"any\""]})
        elif path == "/api/counts":
            self.say(service.counts(filters))
        elif path == "/api/requests":
            limit = int(filters.get("limit", 100))
            found = service.matching(filters)
            if filters.get("order") == "desc":
                found = found[::-1]
            self.say({"requests": [service.summary(record) for record in found[:limit]], "more": len(found) > limit})
        elif path.startswith("/api/requests/"):
            record = next((one for one in service.requests if str(one["id"]) == path.rpartition("/")[2]), None)
            if record:
                self.say(service.whole(record))
            else:
                self.say({"error": "there is no such request"}, 404)
        elif path == "/api/devices":
            self.say(service.devices())
        elif path == "/api/download":
            lines = [json.dumps(service.whole(record)) for record in service.matching(filters)]
            self.answer(200, "".join(line + "\n" for line in lines).encode(), "application/x-ndjson")
        elif path == "/api/faults":
            answer = json.loads(json.dumps({"faults": service.faults}))
            if service.late:
                service.waiting += 1
                service.late.wait(60)
            self.say(answer)
        elif path == "/api/events":
            self.events()
        else:
            file = PAGE / (path.lstrip("/") or "index.html")
            if file.parent == PAGE and file.is_file() and file.suffix in TYPES:
                self.answer(200, file.read_bytes().replace(b"page-token\" content=\"", b"page-token\" content=\"" + TOKEN.encode()), TYPES[file.suffix])
            else:
                self.say({"error": "there is no such page"}, 404)

    def events(self):
        queue = []
        with self.service.changed:
            if self.service.listeners is None:
                return
            last = self.headers.get("Last-Event-ID")
            for record in self.service.matching({"after": last}) if last else []:
                queue.append(f"event: request\nid: {record['id']}\n"
                             f"data: {json.dumps(self.service.summary(record))}\n\n".encode())
            self.service.listeners.append(queue)
        self.send_response(200)
        self.send_header("Content-Type", "text/event-stream")
        self.send_header("Cache-Control", "no-store")
        self.end_headers()
        self.close_connection = True
        try:
            while True:
                with self.service.changed:
                    self.service.changed.wait_for(lambda: queue or self.service.listeners is None, 15)
                    if self.service.listeners is None:
                        return
                    content, queue[:] = b"".join(queue), []
                self.wfile.write(content or b": here\n\n")
        except OSError:
            pass
        finally:
            with self.service.changed:
                if self.service.listeners:
                    self.service.listeners.remove(queue)

    def written(self):
        """What the page asks to change: whether it may, and its JSON."""
        content = self.rfile.read(int(self.headers.get("Content-Length") or 0))
        self.service.asked.append((self.command, self.path, content.decode()))
        if self.path.startswith("/api/faults") and self.headers.get("X-Page-Token") != TOKEN:
            self.say({"error": "the field X-Page-Token is missing or wrong"}, 403)
            return None
        return json.loads(content) if content else {}

    def do_POST(self):  # pylint: disable=invalid-name
        wanted = self.written()
        if wanted is None:
            return
        service = self.service
        if wanted.get("device") and wanted["endpoint"] == "login":
            self.say({"error": 'a login does not tell its "device"'}, 400)
            return
        with service.changed:
            fault = {"id": service.next_fault, "endpoint": "any", "device": None, "status": 0, "location": None,
                     "seconds": 0, "count": None, **wanted, "done": 0}
            service.next_fault += 1
            service.faults.append(fault)
            service.tell("faults", {"faults": service.faults})
        self.say(fault, 201)

    def do_DELETE(self):  # pylint: disable=invalid-name
        if self.written() is None:
            return
        service = self.service
        with service.changed:
            if self.path == "/api/requests":
                service.requests = []
                service.tell("reset", {})
            else:
                number = self.path[len("/api/faults"):].strip("/")
                service.faults = [fault for fault in service.faults if number and str(fault["id"]) != number]
                service.tell("faults", {"faults": service.faults})
        self.answer(204)
