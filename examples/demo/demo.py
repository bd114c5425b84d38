"""Shows KXPublisher at work on this machine: a collection service, a host application, and the messages between them."""

import argparse
import contextlib
import os
import sys
import time

import surroundings
from programs import APPLICATION, Collector, Host, ProgramError
from story import plain_story, whole_story
from telling import Teller

INSIDE = "KX_DEMO_INSIDE_ITS_NAMESPACES"  # in the environment


def parse_arguments():
    parser = argparse.ArgumentParser(prog="script/demo", description=__doc__)
    parser.add_argument("--seconds", type=int, metavar="N",
                        help="how long to play: at least 7, to see a first message (default: 23, plain 14)")
    parser.add_argument("--plain", action="store_true",
                        help="play with this machine as it is, without a modem, a drive and a network of its own")
    arguments = parser.parse_args()
    if arguments.seconds is None:
        arguments.seconds = 14 if arguments.plain else 23
    arguments.seconds = max(arguments.seconds, 7)
    return arguments


def enter_namespaces():
    """Goes on as a program inside the demo's own namespaces."""
    os.environ[INSIDE] = "1"
    os.execv("/usr/bin/unshare", ["unshare", *surroundings.namespaces(), sys.executable, *sys.argv])


def play(story, seconds, collector, teller):
    """Does what the story says when it says so, and tells of every request in between."""
    start = time.monotonic()
    for step in story:
        if step.at >= seconds:
            break
        teller.tell_events(collector.events_until(start + step.at))
        teller.tell_step(step)
        step.act()
    teller.tell_events(collector.events_until(start + seconds))


def main():
    arguments = parse_arguments()
    if not arguments.plain and INSIDE not in os.environ:
        reason = surroundings.what_is_missing()
        if reason is None:
            enter_namespaces()
        print(f"Only the plain demo, with this machine as it is: {reason}.")
        arguments.plain = True

    teller = Teller()
    with contextlib.ExitStack() as stack:
        device = None
        if not arguments.plain:
            teller.say("An emulated modem, a simulated drive and a network of its own come up for the device ...")
            device = stack.enter_context(surroundings.Surroundings(APPLICATION))
        collector = stack.enter_context(Collector())
        teller.say(f"A collection service listens on https://{collector.address}.")
        host = stack.enter_context(Host(collector, device and device.environment))
        teller.say("A host application has made the library's one call:")
        teller.say('    kx::KXPublisher::sharedInstanceWithApiToken("demo", "%s");' % collector.address)
        play(plain_story(host) if device is None else whole_story(host, device), arguments.seconds, collector, teller)
        host.quit()
        teller.tell_events(collector.events_until(time.monotonic() + 0.2))
    teller.tell_summary()
    return 0 if teller.messages else 1


if __name__ == "__main__":
    try:
        sys.exit(main())
    except ProgramError as error:
        sys.exit(f"script/demo: {error}")
    except KeyboardInterrupt:
        sys.exit(130)
