"""How the demo tells what happens."""

import collections
import json
import time


ALWAYS_ABSENT = {
    "userAgent": "the host has no WebKitGTK loaded, which would tell it",
    "zip": "the table of places has no postal codes",
}


def _text(value):
    return json.dumps(value, ensure_ascii=False)


def _count(number, noun):
    return f"{number} {noun}" if number == 1 else f"{number} {noun}s"


class Teller:
    """Prints what happens, with the seconds since the start; a message in full first, and then what is new in it."""

    def __init__(self):
        self.start = time.monotonic()
        self.causes = collections.deque()  # of the messages that are still to come, each of which takes one
        self.messages = []
        self.logins = 0
        self.refusals = 0

    def say(self, text):
        print(f"{time.monotonic() - self.start:6.1f} s  {text}", flush=True)

    def tell_step(self, step):
        self.say(step.telling)
        if step.cause:
            self.causes.append(step.cause)

    def tell_events(self, events):
        for event in events:
            self._tell_event(event)

    def _tell_event(self, event):
        if event["event"] != "request":
            return
        if event["status"] != 200:
            self.refusals += 1
            if event.get("endpoint") == "message":
                self._take_cause()  # for a message is sent once
            self.say(f"-> {event.get('endpoint', 'an unknown path')}: the service answered {event['status']}")
        elif event["endpoint"] == "login":
            self.logins += 1
            self.say("-> Login: the service gave an access token.")
        else:
            self._tell_message(event["document"][0])

    def _take_cause(self):
        return self.causes.popleft() if self.causes else "unexpected"

    def _tell_message(self, message):
        self.messages.append(message)
        self.say(f"-> Message {len(self.messages)}, {self._take_cause()}:")
        if len(self.messages) == 1:
            self._tell_facts(message.items())
            for key, reason in ALWAYS_ABSENT.items():
                if key not in message:
                    print(f"            without {key}: {reason}", flush=True)
            return
        before = self.messages[-2]
        changed = [(key, value) for key, value in message.items() if before.get(key) != value]
        self._tell_facts(changed)
        gone = [key for key in before if key not in message]
        if gone:
            print(f"            no longer there: {', '.join(gone)}")
        print(f"            and {len(message) - len(changed)} facts as before", flush=True)

    @staticmethod
    def _tell_facts(facts):
        for key, value in facts:
            print(f"            {key:21} {_text(value)}")

    def tell_summary(self):
        sizes = [len(json.dumps([message], separators=(",", ":"), ensure_ascii=False).encode())
                 for message in self.messages]
        size = f"{min(sizes)} to {max(sizes)} bytes" if len(set(sizes)) > 1 else f"{sizes[0]} bytes" if sizes else ""
        self.say(f"{_count(self.logins, 'login')}, {_count(len(sizes), 'message')}{size and ' of ' + size}, "
                 f"{self.refusals} refused.")
