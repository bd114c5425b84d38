"""Shows KXPublisher at work on this machine: a collection service, a host application, and the messages between them."""

import argparse
import sys
import time

from programs import Collector, Host, ProgramError
from story import plain_story
from telling import Teller

IDENTIFIER = "6D92078A-8246-4BA4-AE5B-76104861E7DC"  # the advertising identifier of an imagined device


def parse_arguments():
    parser = argparse.ArgumentParser(prog="script/demo", description=__doc__)
    parser.add_argument("--seconds", type=int, default=14, metavar="N",
                        help="how long to play (default: %(default)s; at least 7, to see a first message)")
    arguments = parser.parse_args()
    arguments.seconds = max(arguments.seconds, 7)
    return arguments


def play(story, seconds, host, collector, teller):
    """Does what the story says when it says so, and tells of every request in between."""
    start = time.monotonic()
    for step in story:
        if step.at >= seconds:
            break
        for event in collector.events_until(start + step.at):
            teller.tell_event(event)
        teller.tell_step(step)
        step.act(host)
    for event in collector.events_until(start + seconds):
        teller.tell_event(event)


def main():
    arguments = parse_arguments()
    teller = Teller()
    with Collector() as collector:
        teller.say(f"A collection service listens on https://{collector.address}.")
        with Host(collector, IDENTIFIER) as host:
            teller.say("A host application has made the library's one call:")
            teller.say('    kx::KXPublisher::sharedInstanceWithApiToken("demo", "%s");' % collector.address)
            play(plain_story(), arguments.seconds, host, collector, teller)
            host.quit()
        for event in collector.events_until(time.monotonic() + 0.2):
            teller.tell_event(event)
    teller.tell_summary()
    return 0 if teller.messages else 1


if __name__ == "__main__":
    try:
        sys.exit(main())
    except ProgramError as error:
        sys.exit(f"script/demo: {error}")
    except KeyboardInterrupt:
        sys.exit(130)
