"""What Valgrind and strace count."""

import collections
import glob
import os
import re

from hosts import Curl, Host, MeasuringError, need, run

MEASURED = ("EntryCall", "Report", "Background", "Assembling", "Serialising", "Compressing", "AddressesAlone", "ZlibAlone")
# Calls that may take until somebody else does something.
WAITING = {"poll", "ppoll", "select", "pselect6", "epoll_wait", "epoll_pwait", "nanosleep", "clock_nanosleep", "wait4", "waitid",
           "accept", "accept4", "fsync", "fdatasync", "flock"}
OF_SOCKETS = {"recvfrom", "recvmsg", "connect", "sendmsg", "sendto"}


def instructions_in(text):
    """Of a file of callgrind's."""
    total = re.search(r"^(?:totals|summary): (\d+)", text, re.M)
    if total is None or int(total[1]) == 0:
        raise MeasuringError("callgrind has counted nothing")
    return int(total[1])


def count_instructions(server, folder):
    """The instructions of each of the host's measured functions on its own thread, and what the host has counted itself. Of
    what was done twice the second time counts: the first has something to set up."""
    file = os.path.join(folder, "callgrind")
    valgrind = [need("valgrind"), "--tool=callgrind", "--fair-sched=yes", "--toggle-collect=measured*", f"--callgrind-out-file={file}"]
    valgrind += [f"--dump-after=measured{name}()" for name in MEASURED]
    with Host(server, under=valgrind) as host:
        counts = host.start()
        host.wait_until_reporting()
        for _ in range(2):
            counts.update(host.ask("report"))
            counts.update(host.ask("work"))
        host.ask("background")
        host.quit()
    for name in sorted(glob.glob(file + ".*"), key=lambda name: int(name.rpartition(".")[2])):
        with open(name, encoding="utf-8", errors="replace") as dump:
            text = dump.read()
        if match := re.search(r"^desc: Trigger: --dump-after=measured(\w+)\(\)", text, re.M):
            counts[match[1]] = instructions_in(text)
    missing = set(MEASURED) - counts.keys()
    if missing:
        raise MeasuringError(f"callgrind has not seen {', '.join(sorted(missing))}")
    return counts


def count_whole_report(server, folder, make, *command):
    """The instructions of a whole report, of all its threads: of one like all but the first. `make`: Host or Curl."""
    file = os.path.join(folder, f"whole-{make.__name__}-{'-'.join(command)}")
    with make(server, under=[need("valgrind"), "--tool=callgrind", "--fair-sched=yes", f"--callgrind-out-file={file}"]) as program:
        def report():
            arrived = server.counts()["messages"]
            program.ask(*command)
            program.wait_until("a report", lambda: server.counts()["messages"] > arrived)
            program.wait_until_idle()

        def taken_by(call):
            run("callgrind_control", "--zero", program.pid)
            call()
            run("callgrind_control", "--dump", program.pid)
            last = max(glob.glob(file + ".*"), key=lambda name: int(name.rpartition(".")[2]))
            with open(last, encoding="utf-8", errors="replace") as dump:
                return instructions_in(dump.read())
        program.start()
        if make is Host:
            program.wait_until_reporting()
        report()
        return taken_by(report) - taken_by(lambda: program.ask("empty"))  # the caches, which it empties first


def calls_that_wait(calls):
    """Those of them, as strace prints them, that may wait for others."""
    waiting, ready = [], set()  # the latter: descriptors that never wait, or for the kernel alone
    for call in calls:
        name, _, arguments = call.partition("(")
        descriptor = re.match(r"\d+", arguments)
        if made := re.search(r"\) = (\d+)$", call):
            if name == "socket" and ("AF_NETLINK" in arguments or "SOCK_NONBLOCK" in arguments):
                ready.add(made[1])
            elif name in ("socket", "openat", "eventfd2"):
                ready.discard(made[1])
        if name in WAITING or name == "futex" and "FUTEX_WAIT" in arguments:
            waiting.append(call)
        elif name in OF_SOCKETS and "DONTWAIT" not in arguments and (descriptor is None or descriptor[0] not in ready):
            waiting.append(call)
    return waiting


def calls_between_marks(lines, mark):
    """The main thread's, as strace prints them, between the marks of that name; the main thread is the one that sets them."""
    inside, thread, calls = False, None, []
    for line in lines:
        number, _, call = line.strip().partition(" ")
        call = call.strip()
        if f'"/nonexistent/begin {mark}"' in call:
            inside, thread, calls = True, number, []
        elif f'"/nonexistent/end {mark}"' in call and number == thread:
            return calls
        elif inside and number == thread and re.match(r"\w+\(", call) and "CLOCK_THREAD_CPUTIME_ID" not in call:
            calls.append(call)  # neither a signal, nor the rest of a call, nor our own look at the clock
    raise MeasuringError(f"strace has not seen {mark}" if not inside else f"strace has not seen the end of {mark}")


def threads_started_after(lines, mark):
    """By any thread, from the last mark of that name on."""
    begin = max((number for number, line in enumerate(lines) if f'"/nonexistent/begin {mark}"' in line), default=None)
    if begin is None:
        raise MeasuringError(f"strace has not seen {mark}")
    return sum(re.match(r"\d+ +clone3?\(", line) is not None for line in lines[begin:])


System = collections.namedtuple("System", "calls waiting threads")


def count_system_calls(server, folder):
    """Those of the entry call, and the threads that a report starts when the library has come to rest."""
    file = os.path.join(folder, "strace")
    with Host(server, under=[need("strace"), "--follow-forks", f"--output={file}"]) as host:
        host.start()
        host.wait_until_reporting()
        host.wait_until_idle()
        accepted = host.accepted()
        host.ask("report")
        host.wait_until_accepted(accepted + 1)
        host.wait_until_idle()
        host.quit()
    with open(file, encoding="utf-8", errors="replace") as output:
        lines = output.readlines()
    calls = calls_between_marks(lines, "entry-call")
    return System(calls, calls_that_wait(calls), threads_started_after(lines, "report"))
