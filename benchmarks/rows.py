"""What script/bench measures, row by row. Times are processor times, of sides that take turns, so that both have the same share
of a busy machine's worst; a ratio is the median of those of neighbours. Counts are the same however busy the machine is."""

import concurrent.futures
import contextlib
import os
import statistics
import threading
import time

import counting
from figures import Figure
from hosts import BUILD, Curl, Host, MeasuringError, Program, Server, figures_in, message_bus, run

ROWS = {}
KIB = 1024


def row(function):
    """One that can be named on the command line."""
    ROWS[function.__name__.replace("_", "-")] = function
    return function


def once(function):
    """A measurement that several rows take their figures from; asked for by threads."""
    name = "_" + function.__name__

    def result(bench):
        with bench.lock:
            future = bench.measured.get(name)
            first = future is None
            if first:
                future = bench.measured[name] = concurrent.futures.Future()
        if first:
            try:
                future.set_result(function(bench))
            except BaseException as error:  # whoever waits for it hears of it, too
                future.set_exception(error)
        return future.result()
    return property(result)


class Bench:
    """What the rows share. `times`: whether times are measured, and not counts alone."""

    def __init__(self, folder, times=True, rounds=9, idle_seconds=60, messages=10_000):
        self.folder, self.times, self.rounds, self.idle_seconds, self.messages = folder, times, rounds, idle_seconds, messages
        self.lock, self.measured = threading.Lock(), {}
        self.programs = contextlib.ExitStack()
        self.waiting = []  # hosts whose second timer's report is waited for

    def __enter__(self):
        self.server = self.programs.enter_context(Server(self.folder))
        return self

    def __exit__(self, *_):
        self.programs.close()

    def begin_waiting(self):
        """For the next timer's report, ten minutes later."""
        server = self.programs.enter_context(Server(self.folder_for("for-later")))
        self.waiting = [self.programs.enter_context(Host(server)) for _ in range(5)]
        for host in self.waiting:
            host.start()
        self.begun = time.monotonic()
        for host in self.waiting:
            host.wait_until_reporting()
            host.wait_until_idle()
        server.resumed = server.counts()["resumed"]

    def folder_for(self, name):
        path = os.path.join(self.folder, name)
        os.mkdir(path)
        return path

    def count_ahead(self):
        """Side by side, for they wait most of the time."""
        with concurrent.futures.ThreadPoolExecutor() as pool:
            asked = [pool.submit(lambda name=name: getattr(self, name)) for name in ("instructions", "whole_reports", "system_calls", "life")]
            for future in asked:
                future.result()

    @once
    def instructions(self):
        with Server(self.folder_for("for-instructions")) as server:
            return counting.count_instructions(server, self.folder)

    @once
    def whole_reports(self):
        """The instructions of curl's by hand and of the library's: "fresh", and "resumed"."""
        counts = {}
        for how, options in (("fresh", ["forgetful"]), ("resumed", [])):
            folder = self.folder_for(f"for-whole-{how}")
            with Server(folder, *options) as server:
                counts[how] = [counting.count_whole_report(server, folder, Curl, "report", how, "one"),
                               counting.count_whole_report(server, folder, Host, "report")]
        return counts

    @once
    def system_calls(self):
        with Server(self.folder_for("for-system-calls")) as server:
            return counting.count_system_calls(server, self.folder)

    @once
    def life(self):
        """Of a host that reports twice, and rests in between."""
        with Server(self.folder_for("for-life")) as server, Host(server) as host:
            before = host.ask("memory")
            host.start()
            host.wait_until_reporting()
            host.wait_until_idle()
            after = host.ask("memory")
            descriptors, resting = host.descriptors(), len(host.threads())
            first = server.counts()
            woken, busy = host.wake_ups(), host.processor_time()
            time.sleep(self.idle_seconds)
            woken, busy = host.wake_ups() - woken, host.processor_time() - busy
            accepted = host.accepted()
            host.ask("report")
            host.wait_until_accepted(accepted + 1)
            second = server.counts()
            return {"total": after["anonymous"], "growth": after["anonymous"] - before["anonymous"],
                    "heap": (after["heap"] - before["heap"]) / KIB, "woken": woken, "busy": busy,
                    "descriptors": descriptors, "threads": resting,
                    "header": second["header"], "resumed": second["resumed"] - first["resumed"],
                    "connections": second["connections"] - first["connections"]}

    @once
    def curls_report(self):
        with Server(self.folder_for("for-curl")) as server, Curl(server) as curl:
            before = curl.ask("memory")
            curl.start()
            curl.ask("report", "fresh", "one")
            after = curl.ask("memory")
            return {"total": after["anonymous"], "growth": after["anonymous"] - before["anonymous"],
                    "heap": (after["heap"] - before["heap"]) / KIB, "header": server.counts()["header"]}

    @once
    def opening(self):
        """What opening libcurl takes, by hand: the library does for its first report, curl's host is linked with it."""
        taken = figures_in(run(BUILD / "bin/kx-benchmark-bare", "open", "libcurl.so.4").splitlines())
        return {"growth": taken["anonymous"], "heap": taken["heap"] / KIB}

    @once
    def starts(self):
        """Of (bare, linked) by turns, what each has at main."""
        rounds = 5 * self.rounds if self.times else 9
        return [tuple(figures_in(run(BUILD / "bin" / f"kx-benchmark-{which}").splitlines()) for which in ("bare", "linked"))
                for _ in range(rounds)]


def ratio(pairs):
    """(floor, ours) whose ratio is the median of the ratios, for the table."""
    floor = statistics.median(floor for floor, _ in pairs)
    return floor, floor * statistics.median(ours / floor for floor, ours in pairs)


# ---- The rows, in the order of the table

@row
def burst(bench):
    hosts, pairs = [], []
    for _ in range(3 if bench.times else 1):
        with Host(bench.server) as host, Curl(bench.server) as curl:
            host.start()
            curl.start()
            host.wait_until_reporting()
            before, most, done = bench.server.counts()["connections"], [], threading.Event()

            def watch(host=host, most=most, done=done):
                while not done.wait(0.01):
                    most.append(host.descriptors())
            watching = threading.Thread(target=watch)
            watching.start()
            host.forget_most_memory()
            try:
                ours = host.ask("burst", bench.messages)
            finally:
                done.set()
                watching.join()
            hosts.append({**ours, "connections": bench.server.counts()["connections"] - before + 1,  # with the first report's
                          "descriptors": max(most), "memory": host.most_memory() / KIB})
            pairs.append((curl.ask("burst", bench.messages)["rate"], ours["rate"]))
    of = f"of {bench.messages:,} messages at once"
    if bench.times:
        floor, ours = ratio(pairs)
        yield Figure("burst.rate", f"{of}: a second; curl's, on 4 connections", ours, "", floor, "ratio", 0.9, at_least=True)
    yield Figure("burst.lost", f"{of}: lost", max(host["lost"] for host in hosts), limit=0, recorded=True)
    yield Figure("burst.connections", f"{of}: connections", max(host["connections"] for host in hosts), limit=8, recorded=True)
    yield Figure("burst.descriptors", f"{of}: descriptors of the whole process", max(host["descriptors"] for host in hosts),
                 limit=16, recorded=True)
    if bench.times:
        yield Figure("burst.memory", f"{of}: memory of the whole process", max(host["memory"] for host in hosts), "MiB", limit=48)


def whole_report(host, *command):
    """The processor time of one report in milliseconds, until everything of it is over."""
    arrived = host.server.counts()["messages"]
    begun = host.ask(*command)["processor"]
    host.wait_until("a report", lambda: host.server.counts()["messages"] > arrived)
    host.wait_until_idle()
    return (host.processor_time() - begun) / 1000


@row
def tls(bench):
    """A report on a new connection, on cold caches, by its whole process; curl's by hand beside it."""
    if bench.times:
        sides = {}
        with contextlib.ExitStack() as programs:
            forgetful = programs.enter_context(Server(bench.folder, "forgetful"))
            for how, server in (("fresh", forgetful), ("resumed", bench.server)):
                sides[how] = programs.enter_context(Curl(server)), programs.enter_context(Host(server)), []
            for how, (curl, host, _) in sides.items():
                curl.start()
                whole_report(curl, "report", how, "one")  # from which there is a session to resume
                host.start()
            for _, host, _ in sides.values():
                host.wait_until_reporting()
                host.wait_until_idle()
            for _ in range(bench.rounds):
                for how, (curl, host, pairs) in sides.items():
                    pairs.append((whole_report(curl, "report", how, "one"), whole_report(host, "report"),
                                  whole_report(curl, "report", how, "three")))
        for how, what, limit in (("fresh", "a whole report, cold, on a new connection; curl by hand", 1.15),
                                 ("resumed", "the same where TLS is resumed", 1.25)):
            floor, ours = ratio([(alone, ours) for alone, ours, _ in sides[how][2]])
            yield Figure(f"tls.{how}", what, ours, "ms", floor, "ratio", limit)
            floor, ours = ratio([(threads, ours) for _, ours, threads in sides[how][2]])
            yield Figure(f"tls.{how}-threads", "the same, where curl by hand takes as many threads", ours, "ms", floor, "ratio")
    for how, what in (("fresh", "a whole report's instructions, of all threads; curl by hand"), ("resumed", "the same where TLS is resumed")):
        floor, ours = bench.whole_reports[how]
        yield Figure(f"tls.{how}-instructions", what, ours, "", floor, "ratio", recorded=True)
    life = bench.life
    yield Figure("tls.full-handshakes", "a later report's handshakes that resume nothing", life["connections"] - life["resumed"],
                 limit=0, recorded=True)


@row
def entry(bench):
    """The entry call, on the caller's thread, and what the main loop does right after it."""
    if bench.times:
        times, floors, alone, loops = [], [], [], {"without": [], "with": []}
        folder = bench.folder_for("bus")
        with message_bus(folder) as environment:
            for _ in range(2 * bench.rounds):
                for how, env in (("without", None), ("with", environment)):
                    with Host(bench.server, env=env) as host:
                        first = host.start()
                        if how == "without":
                            times.append(first["entry-call"])
                        time.sleep(1)
                        loops[how].append(host.ask("loop")["loop"])
                        host.ask("addresses")  # the first one of a process takes more
                        floors.append(host.ask("addresses")["addresses"])
                with Host(bench.server) as host:
                    alone.append(host.ask("calls")["calls"])
        # The budgets, 100, 150 and 300 us, are of a machine on which the list of addresses takes 46.
        floor = statistics.median(floors)
        yield Figure("entry.time", "the entry call on the caller's thread; the system's list of addresses", statistics.median(times),
                     "us", floor, "ratio", 2.17)
        yield Figure("entry.by-hand", "to listen to the network and to start a thread, by hand", statistics.median(alone), "us", floor,
                     "ratio")
        yield Figure("entry.loop", "the main loop's first second after it", statistics.median(loops["without"]), "us", floor, "ratio",
                     3.26)
        yield Figure("entry.loop-with-bus", "the same with a message bus", statistics.median(loops["with"]), "us", floor, "ratio",
                     6.52)
    counts = bench.instructions
    yield Figure("entry.instructions", "the entry call: instructions", counts["EntryCall"], recorded=True)
    yield Figure("entry.allocations", "the entry call: allocations", counts["entry-call-allocations"], recorded=True)
    yield Figure("entry.system-calls", "the entry call: system calls", len(bench.system_calls.calls), limit=20, recorded=True)
    yield Figure("entry.waiting", "the entry call: system calls that can wait", len(bench.system_calls.waiting), limit=0,
                 recorded=True)


def loop_of_commands(host):
    """What the commands before and after something that is measured by "loop" take of the loop themselves."""
    time.sleep(0.3)
    host.ask("empty")
    time.sleep(0.3)
    return host.ask("loop")["loop"]


@row
def report(bench):
    """What a report takes of the thread that asks for it, on cold caches; the system's list of addresses is its floor."""
    if bench.times:
        pairs, timers, by_hand, backgrounds, commands = [], [], [], [], []
        for _ in range(max(2, bench.rounds // 2)):
            with Host(bench.server) as host:
                host.start()
                time.sleep(3)
                host.ask("empty")
                time.sleep(4)  # the first report is due five seconds after the start
                timers.append(host.ask("loop")["loop"])
                host.wait_until_reporting()
                for _ in range(5):
                    time.sleep(0.3)
                    pairs.append((host.ask("addresses")["addresses"], host.ask("report")["report"]))
                    backgrounds.append(host.ask("background")["background"])
                    host.ask("foreground")
                    commands.append(loop_of_commands(host))
                    host.ask("timer")
                    host.ask("empty")
                    time.sleep(1.3)
                    by_hand.append(host.ask("loop")["loop"])
        floor, ours = ratio(pairs)
        yield Figure("report.caller", "a report on the caller's thread; the system's list of addresses", ours, "us", floor, "ratio",
                     1.3)
        timer = statistics.median(timers) - statistics.median(commands)
        yield Figure("report.timer", "the first timer's report with its loop", timer, "us", floor, "ratio", 1.74)
        yield Figure("report.timer-by-hand", "a timer of GLib's that asks for the list, with its loop",
                     statistics.median(by_hand) - statistics.median(commands), "us", floor, "ratio")
        yield Figure("report.background", "a report on entering the background", statistics.median(backgrounds), "us", floor,
                     "ratio", 1.3)
    counts = bench.instructions
    yield Figure("report.instructions", "a report on the caller's thread: instructions", counts["Report"], recorded=True)
    yield Figure("report.allocations", "a report on the caller's thread: allocations", counts["report-allocations"],
                 recorded=True)


@row
def work(bench):
    """A report's own steps, in instructions, beside zlib and the system's list of addresses alone."""
    counts = bench.instructions
    floor = counts["AddressesAlone"] + counts["ZlibAlone"]
    steps = ("Assembling", "Serialising", "Compressing")
    ours = sum(counts[step] for step in steps)
    yield Figure("work.ratio", "a report's own work in instructions; zlib and getifaddrs alone", ours, "", floor, "ratio", 1.2)
    for step in steps:
        alone = {"Assembling": "AddressesAlone", "Compressing": "ZlibAlone"}.get(step)
        yield Figure(f"work.{step.lower()}", f"of these: {step.lower()}", counts[step], floor=counts[alone] if alone else None,
                     by="ratio" if alone else "count")
    # Not the ratio: what memset takes of zlib's is by the processor's features twice as much or half.
    yield Figure("work.own", "its instructions beyond these two", ours, "", floor, "over", recorded=True)
    yield Figure("work.allocations", "its allocations", counts["work-allocations"], recorded=True)


@row
def start(bench):
    """From exec to main, of a host that has GIO, with the library and without."""
    def median(side, what):
        return statistics.median(pair[side][what] for pair in bench.starts)
    if bench.times:
        floor, ours = ratio([(bare["microseconds"] / 1000, linked["microseconds"] / 1000) for bare, linked in bench.starts])
        yield Figure("start.time", "from exec to main; a host with GIO alone", ours, "ms", floor, "ratio", 1.58)
    yield Figure("start.libraries", "libraries at main", median(1, "libraries"), "", median(0, "libraries"), "over", 4,
                 recorded=True)
    yield Figure("start.memory", "memory of its own at main", median(1, "anonymous"), "KiB", median(0, "anonymous"), "over", 150,
                 recorded=True)


@row
def threads(bench):
    yield Figure("report.threads", "threads started for one report", bench.system_calls.threads, "", 1, limit=3, recorded=True)


@row
def idle(bench):
    life = bench.life
    yield Figure("idle.time", f"idle, {bench.idle_seconds} s: processor time", life["busy"], "us", 0, limit=0)
    yield Figure("idle.wake-ups", "idle: wake-ups", life["woken"], "", 0, limit=0, recorded=True)
    yield Figure("idle.threads", "idle: threads of the whole process", life["threads"], "", 1, recorded=True)
    yield Figure("idle.descriptors", "idle: descriptors of the whole process", life["descriptors"], recorded=True)


@row
def memory(bench):
    life, curl, opening = bench.life, bench.curls_report, bench.opening
    yield Figure("memory.growth", "anonymous memory that the first report adds; curl opened and used by hand", life["growth"], "KiB",
                 curl["growth"] + opening["growth"], "over", 280, recorded=True)
    yield Figure("memory.total", "all anonymous memory after it; curl linked and used by hand", life["total"], "KiB", curl["total"],
                 "over")
    yield Figure("memory.heap", "live heap that it adds; curl opened and used by hand", life["heap"], "KiB",
                 curl["heap"] + opening["heap"], "over", 80, recorded=True)


@row
def size(bench):
    library = os.path.join(bench.folder, "stripped.so")
    run("strip", "-o", library, BUILD / "lib/libKXPublisher.so")
    text, data = map(int, run("size", "--format=berkeley", library).splitlines()[1].split()[:2])
    names = [line for line in run("nm", "--dynamic", "--defined-only", library).splitlines() if " A " not in line]
    yield Figure("size.library", "the shared library, stripped: text and data", (text + data) / KIB, "KiB", limit=290, recorded=True)
    yield Figure("size.exports", "names that it exports", len(names), recorded=True)


@row
def header(bench):
    yield Figure("header.bytes", "request header, with a token of 64 bytes; curl by hand", bench.life["header"], "bytes",
                 bench.curls_report["header"], limit=230, recorded=True)


@row
def year(bench):
    if not bench.times:
        return
    for how, what in (("drop", "a simulated year"), ("keep", "the same with all its requests kept")):
        times = [figures_in(run(BUILD / "bin/kx-benchmark-year", how).splitlines())["seconds"] for _ in range(3)]
        yield Figure(f"year.{how}", what, statistics.median(times), "s", limit=1.5)


@row
def later(bench):
    """What the next timer's reports take, ten minutes after the first, and whether they still resume TLS. They have been waited
    for since script/bench began."""
    if not bench.waiting:
        return
    time.sleep(max(0, bench.begun + 595 - time.monotonic()))
    for host in bench.waiting:
        host.ask("empty")
    time.sleep(max(0, bench.begun + 615 - time.monotonic()))
    times = [host.ask("loop")["loop"] for host in bench.waiting]
    server = bench.waiting[0].server
    resumed = server.counts()["resumed"] - server.resumed
    pairs = []
    for host, taken in zip(bench.waiting, times):
        if host.accepted() < 2:
            raise MeasuringError("the second timer's report has not come in ten minutes")
        pairs.append((host.ask("addresses")["addresses"], taken - loop_of_commands(host)))
    floor, ours = ratio(pairs)
    yield Figure("report.later", "a timer's report with its loop, ten minutes later; the list of addresses", ours, "us", floor,
                 "ratio", 1.74)
    yield Figure("tls.later", "ten minutes after a report: handshakes that resume TLS", resumed, limit=1, at_least=True)
