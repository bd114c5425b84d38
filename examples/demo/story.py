"""What happens in the demo, and when."""

from dataclasses import dataclass
from typing import Callable


@dataclass
class Step:
    at: float  # seconds after the host's start
    telling: str
    act: Callable  # is given the host
    cause: str = ""  # of the message that follows from it


def _command(character):
    return lambda host: host.command(character)


def plain_story():
    """The host application comes and goes."""
    yield Step(0, "It logs in; 5 s after its start it reports, and from then on every 600 s.", lambda host: None,
               cause="5 s after the start")
    at = 7
    while True:
        yield Step(at, "The application goes to the background: it reports at once.", _command("b"),
                   cause="on entering the background")
        yield Step(at + 1, "The application comes back: it reports 5 s later.", _command("f"),
                   cause="5 s after the return to the foreground")
        at += 8
