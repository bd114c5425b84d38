"""A server of a stream that says what it is told to say: what a real one says only in the moment in which its nodes fail."""

import base64
import json
import socket
import threading

from nats import fields

STREAM = "KX-MESSAGES"


class FakeServer:
    """`acknowledge` is called with the id of each message that is published, and how often that was before; it returns the
    number that the stream gives it and whether it has the message already. `kept` are the ids that the stream shows, by
    their numbers; a number that is not there gets no answer where `is_silent`."""

    def __init__(self, acknowledge, kept=(), is_silent=False):
        self.acknowledge, self.kept, self.is_silent = acknowledge, dict(kept), is_silent
        self.published, self.asked = [], []
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.url = f"nats://127.0.0.1:{self.listener.getsockname()[1]}"
        self.connections, self.threads = [], []

    def __enter__(self):
        self.start(self.accept)
        return self

    def __exit__(self, *_):
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()
        for connection in self.connections:
            try:
                connection.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass  # gone already
        for thread in self.threads:
            thread.join()

    def start(self, work, *arguments):
        self.threads.append(threading.Thread(target=work, args=arguments))
        self.threads[-1].start()

    def accept(self):
        while True:
            try:
                connection, _ = self.listener.accept()
            except OSError:
                return
            self.connections.append(connection)
            self.start(self.serve_until_it_goes, connection)

    def serve_until_it_goes(self, connection):
        try:
            self.serve(connection)
        except OSError:
            pass

    def serve(self, connection):
        subscriptions = {}  # the beginning of subjects: the number by which the client knows them
        with connection, connection.makefile("rb") as stream:
            connection.sendall(b"INFO " + json.dumps({"server_id": "fake", "version": "2.10.0", "max_payload": 1 << 20,
                                                      "headers": True, "proto": 1}).encode() + b"\r\n")
            for line in stream:
                words = line.decode().split()
                if words[0] == "PING":
                    connection.sendall(b"PONG\r\n")
                elif words[0] == "SUB":
                    subscriptions[words[1].removesuffix("*")] = words[-1]
                elif words[0] in ("PUB", "HPUB"):
                    size = int(words[-1])
                    header = int(words[-2]) if words[0] == "HPUB" else 0
                    data = stream.read(size + 2)[:size]
                    answer = self.answer(words[1], fields(data[:header]), data[header:])
                    if answer is None:
                        continue
                    text = json.dumps(answer).encode()
                    number = next(number for start, number in subscriptions.items() if words[2].startswith(start))
                    connection.sendall(f"MSG {words[2]} {number} {len(text)}\r\n".encode() + text + b"\r\n")

    def answer(self, subject, header, payload):
        if subject == f"$JS.API.STREAM.INFO.{STREAM}":
            return {"type": "io.nats.jetstream.api.v1.stream_info_response", "created": "2022-01-01T00:00:00Z",
                    "config": {"name": STREAM, "subjects": ["kx.messages.>"], "retention": "limits", "discard": "new",
                               "storage": "file", "num_replicas": 3},
                    "state": {"messages": 0}}
        if subject == f"$JS.API.STREAM.MSG.GET.{STREAM}":
            return self.show(json.loads(payload)["seq"])
        key = header["Nats-Msg-Id"]
        number, is_duplicate = self.acknowledge(key, self.published.count(key))
        self.published.append(key)
        return {"stream": STREAM, "seq": number, **({"duplicate": True} if is_duplicate else {})}

    def show(self, number):
        self.asked.append(number)
        if number in self.kept:
            header = base64.b64encode(f"NATS/1.0\r\nNats-Msg-Id: {self.kept[number]}\r\n\r\n".encode()).decode()
            return {"type": "io.nats.jetstream.api.v1.stream_msg_get_response",
                    "message": {"subject": "kx.messages.other", "seq": number, "hdrs": header,
                                "data": base64.b64encode(b"[{}]").decode(), "time": "2022-01-01T00:00:00Z"}}
        if self.is_silent:
            return None
        return {"type": "io.nats.jetstream.api.v1.stream_msg_get_response",
                "error": {"code": 404, "err_code": 10037, "description": "no message found"}}
