"""What happens in the demo, and when."""

from dataclasses import dataclass
from typing import Callable


@dataclass
class Step:
    at: float  # seconds after the host's start
    telling: str
    act: Callable = lambda: None
    cause: str = ""  # of the message that follows from it


def _beginning():
    return Step(0, "It logs in; 5 s after its start it reports, and from then on every 600 s.", cause="5 s after the start")


def _visit_to_background(host, at, seconds=1):
    yield Step(at, "The application goes to the background: it reports at once.", lambda: host.command("b"),
               cause="on entering the background")
    yield Step(at + seconds, "The application comes back: it reports 5 s later.", lambda: host.command("f"),
               cause="5 s after the return to the foreground")


def plain_story(host):
    """The host application comes and goes."""
    yield _beginning()
    at = 7
    while True:
        yield from _visit_to_background(host, at)
        at += 8


def whole_story(host, surroundings):
    """The same on a journey: a device that moves, leaves its Wi-Fi, gets another SIM and goes to sleep."""
    yield _beginning()
    yield Step(7, "The device leaves its Wi-Fi: the modem is the only way out now.", surroundings.lose_wifi)
    yield from _visit_to_background(host, 8)
    yield Step(10, "Another SIM, in another kind of network.", lambda: surroundings.change_sim("310410", "umts"))
    yield Step(16, "The device goes to sleep: that is the background, too.", lambda: surroundings.sleep(True),
               cause="before the system sleeps")
    yield Step(17, "The device wakes: it reports 5 s later.", lambda: surroundings.sleep(False),
               cause="5 s after waking")
    at = 24
    while True:
        yield from _visit_to_background(host, at)
        at += 8
