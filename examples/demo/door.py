"""A way for a browser on this machine to the page of a collection service that is in a network of its own."""

import contextlib
import os
import socket
import threading

DOOR = "KX_DEMO_DOOR"  # in the environment of the process that plays: the descriptor of the socket that listens
USUAL_PORT = 8080
CHUNK = 65536  # bytes


def door():
    """A socket that listens on this machine's loopback, on the page's usual port if that is free."""
    try:
        return socket.create_server(("127.0.0.1", USUAL_PORT))
    except OSError:
        return socket.create_server(("127.0.0.1", 0))


def inherited_door():
    """The one that was opened outside; sockets stay in the network in which they were made. None if there is none."""
    return socket.socket(fileno=int(os.environ[DOOR])) if DOOR in os.environ else None


def open_door(outside, port):
    """Whoever comes to that socket talks to that port in here, from now until this process ends."""
    threading.Thread(target=_let_in, args=(outside, port), daemon=True).start()


def _let_in(outside, port):
    while True:
        visitor, _ = outside.accept()
        try:
            page = socket.create_connection(("127.0.0.1", port))
        except OSError:
            visitor.close()
            continue
        for source, target in ((visitor, page), (page, visitor)):
            threading.Thread(target=_pass_on, args=(source, target), daemon=True).start()


def _pass_on(source, target):
    with contextlib.suppress(OSError):
        while data := source.recv(CHUNK):
            target.sendall(data)
    for end, way in ((target, socket.SHUT_WR), (source, socket.SHUT_RD)):
        with contextlib.suppress(OSError):
            end.shutdown(way)
