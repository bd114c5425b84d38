"""Shows KXPublisher at work on this machine: a collection service, a host application, and the messages between them.

Started by script/demo. What plays is a process of its own below this one, and all that it starts is below that one: however
this process ends, the kernel sees to it that they do, too.
"""

import argparse
import contextlib
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time

import surroundings
from door import DOOR, door, inherited_door, open_door
from programs import APPLICATION, Collector, Host, ProgramError, ends_with_this_process
from story import plain_story, whole_story
from telling import Teller

INSIDE = "KX_DEMO_FOLDER"  # in the environment of the process that plays: where its files are
ENDING = (signal.SIGTERM, signal.SIGHUP)
CLOSED_PIPE = 128 + signal.SIGPIPE  # exit code


def parse_arguments():
    parser = argparse.ArgumentParser(description="Started by script/demo; see script/demo --help.", allow_abbrev=False)
    parser.add_argument("--seconds", type=int)
    parser.add_argument("--plain", action="store_true")
    parser.add_argument("--open", action="store_true")
    arguments = parser.parse_args()
    if arguments.seconds is None:
        arguments.seconds = 14 if arguments.plain else 23
    return arguments


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


def stay_open(collector, teller):
    """Everything goes on, until this process is told to end."""
    teller.say(f"Everything goes on, and {collector.page} shows it, until Ctrl-C.")
    while collector.process.poll() is None:
        teller.tell_events(collector.events_until(time.monotonic() + 1))
    raise ProgramError("kx-collector has ended")


def play_inside(arguments, folder):
    """The whole of it. True when there was a message."""
    teller = Teller()
    with contextlib.ExitStack() as stack:
        device = None
        if arguments.plain:
            stack.callback(shutil.rmtree, folder, ignore_errors=True)
        else:
            teller.say("An emulated modem, a simulated drive and a network of its own come up for the device ...")
            device = stack.enter_context(surroundings.Surroundings(APPLICATION, folder))
        outside = inherited_door()
        page_port = outside.getsockname()[1] if outside else None
        collector = stack.enter_context(Collector(folder, page_port))
        if outside:
            open_door(outside, page_port)
        teller.say(f"A collection service listens on https://{collector.address}. Look at {collector.page} in a browser.")
        host = stack.enter_context(Host(collector, device and device.environment))
        teller.say("A host application has made the library's one call:")
        teller.say('    kx::KXPublisher::sharedInstanceWithApiToken("demo", "%s");' % collector.address)
        play(plain_story(host) if device is None else whole_story(host, device), arguments.seconds, collector, teller)
        if arguments.open:
            teller.tell_summary()
            stay_open(collector, teller)
        host.quit()
        teller.tell_events(collector.events_until(time.monotonic() + 0.2))
    teller.tell_summary()
    return bool(teller.messages)


def play_below(arguments):
    """Starts the process that plays. Its exit code."""
    command = [sys.executable, __file__, "--seconds", str(arguments.seconds), *(["--open"] if arguments.open else [])]
    environment = dict(os.environ)
    outside = None
    if arguments.plain:
        folder = tempfile.mkdtemp(prefix="kx-demo-")
        # Asked to end, so that it takes its folder along.
        command = ends_with_this_process("TERM", [*command, "--plain"])
    else:
        folder = surroundings.FOLDER
        outside = door()
        environment[DOOR] = str(outside.fileno())
        command = ends_with_this_process("KILL", ["/usr/bin/unshare", *surroundings.namespaces(), *command])
    try:
        return subprocess.call(command, env=dict(environment, **{INSIDE: folder}),
                               pass_fds=[] if outside is None else [outside.fileno()])
    finally:
        if arguments.plain:
            shutil.rmtree(folder, ignore_errors=True)


def end(number, _):
    """Ends the process that plays in order, which a second signal does not disturb."""
    for other in ENDING:
        signal.signal(other, signal.SIG_IGN)
    sys.exit(128 + number)


def main():
    arguments = parse_arguments()
    if INSIDE in os.environ:
        for number in ENDING:
            signal.signal(number, end)
        return 0 if play_inside(arguments, os.environ[INSIDE]) else 1
    if not arguments.plain:
        reason = surroundings.what_is_missing()
        if reason is not None:
            print(f"Only the plain demo, with this machine as it is: {reason}.", flush=True)
            arguments.plain = True
    code = play_below(arguments)
    return code if code >= 0 else 128 - code


def main_to_a_pipe():
    """As a program that ends when nobody reads what it prints."""
    try:
        return main()
    except BrokenPipeError:
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        return CLOSED_PIPE


if __name__ == "__main__":
    try:
        sys.exit(main_to_a_pipe())
    except ProgramError as error:
        sys.exit(f"script/demo: {error}")
    except KeyboardInterrupt:
        sys.exit(130)
