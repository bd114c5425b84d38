"""The programs that script/bench measures, and the device that they run on: a network namespace with interfaces of its own, no
message bus, and an environment that is the same everywhere."""

import contextlib
import os
import pathlib
import re
import shutil
import signal
import subprocess
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = pathlib.Path(os.environ.get("KX_BENCHMARKS", ROOT / "build/bench"))
PATIENCE = 120  # seconds until something has to have happened, however busy the machine
TOKEN = "t" * 64
THREADS_OF_GLIB = ("gmain", "gdbus", "pool-spawner")  # which sleep for the life of the process
BUS = "unix:path=/nonexistent/bus"


class MeasuringError(Exception):
    pass


def environment(**changes):
    return {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/nonexistent", "LANG": "C.UTF-8", "TZ": "UTC",
            "XDG_DATA_DIRS": "/usr/share", "DBUS_SYSTEM_BUS_ADDRESS": BUS, "DBUS_SESSION_BUS_ADDRESS": BUS, **changes}


def need(tool):
    if shutil.which(tool, path=environment()["PATH"]) is None:
        raise MeasuringError(f"{tool} is missing: script/bootstrap bench installs it")
    return tool


def run(*command, **options):
    """What it printed."""
    command = [str(word) for word in command]
    result = subprocess.run(command, capture_output=True, text=True, check=False, env=environment(), **options)
    if result.returncode:
        raise MeasuringError(f"{' '.join(command)}: exit code {result.returncode}\n{result.stderr.strip()}")
    return result.stdout


def figures_in(lines):
    """Of lines "name value"."""
    figures = {}
    for line in lines:
        match = re.fullmatch(r"([\w-]+) (-?[\d.]+)", line.strip())
        if match is None:
            raise MeasuringError(f"a benchmark's program has printed: {line.strip()}")
        figures[match[1]] = float(match[2])
    return figures


def make_network():
    """In a network namespace that has nothing yet: the loopback interface, and a Wi-Fi interface with the default route."""
    for arguments in ("link set lo up", "link add en0 type veth peer en0-peer", "link set en0-peer up", "link set en0 up",
                      "address add 192.0.2.20/24 dev en0", "route add default via 192.0.2.1 dev en0"):
        run("ip", *arguments.split())


class Program(contextlib.AbstractContextManager):
    """One that obeys commands on its standard input."""

    def __init__(self, name, *arguments, under=(), env=None):
        self.name = name
        self.errors = tempfile.TemporaryFile("w+")
        self.process = subprocess.Popen(
            [*map(str, under), BUILD / "bin" / name, *map(str, arguments)], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            stderr=self.errors, text=True, env=env or environment())

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()
        self.close_input()
        self.process.stdout.close()
        self.errors.close()

    def fail(self, what):
        self.errors.seek(0)
        raise MeasuringError(f"{self.name}: {what}\n{self.errors.read().strip()}")

    def answer(self):
        """The figures that it prints before the line "done"."""
        lines = []
        while (line := self.process.stdout.readline()) != "done\n":
            if not line:
                self.process.wait()
                self.fail(f"has ended, with exit code {self.process.returncode}")
            lines.append(line)
        return figures_in(lines)

    def ask(self, *words):
        with contextlib.suppress(BrokenPipeError):  # what has become of it is seen where it should answer
            print(*words, file=self.process.stdin, flush=True)
        return self.answer()

    def close_input(self):
        with contextlib.suppress(BrokenPipeError):  # what was never read
            self.process.stdin.close()

    def quit(self):
        self.close_input()
        if self.process.wait(PATIENCE):
            self.fail(f"exit code {self.process.returncode}")

    # ---- The process as it is seen from outside

    @property
    def pid(self):
        """Its own, and not that of a tool that it runs under."""
        children = pathlib.Path(f"/proc/{self.process.pid}/task/{self.process.pid}/children").read_text(encoding="ascii").split()
        command = pathlib.Path(f"/proc/{self.process.pid}/comm").read_text(encoding="ascii").strip()
        return int(children[0]) if command == "strace" else self.process.pid

    def threads(self):
        """The names of them all."""
        names = []
        for task in pathlib.Path(f"/proc/{self.pid}/task").iterdir():
            with contextlib.suppress(FileNotFoundError, ProcessLookupError):  # one that is just ending
                names.append((task / "comm").read_text(encoding="utf-8").strip())
        return names

    def busy_threads(self):
        return [name for name in self.threads() if name not in THREADS_OF_GLIB]

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.pid}/fd"))

    def wake_ups(self):
        """Switches to any of its threads, so far."""
        return sum(int(number) for task in pathlib.Path(f"/proc/{self.pid}/task").iterdir()
                   for number in re.findall(r"ctxt_switches:\s+(\d+)", (task / "status").read_text(encoding="ascii")))

    def processor_time(self):
        """Of all its threads, those that have ended included, in microseconds: by the kernel's number for the clock."""
        return time.clock_gettime_ns(~self.pid << 3 | 2) / 1e3

    def forget_most_memory(self):
        """What comes after is looked at alone: to empty its caches, the program itself has had 64 MB for a moment."""
        pathlib.Path(f"/proc/{self.pid}/clear_refs").write_text("5", encoding="ascii")

    def most_memory(self):
        """KiB, since that was forgotten."""
        return int(re.search(r"VmHWM:\s+(\d+)", pathlib.Path(f"/proc/{self.pid}/status").read_text(encoding="ascii"))[1])

    def wait_until(self, what, condition):
        end = time.monotonic() + PATIENCE
        while not condition():
            if time.monotonic() > end or self.process.poll() is not None:
                self.fail(f"{what} does not come")
            time.sleep(0.05)

    def wait_until_idle(self):
        """All threads but the main one and GLib's have ended, and stay away."""
        for _ in range(2):
            self.wait_until("its rest", lambda: len(self.busy_threads()) == 1)
            time.sleep(0.5)


class Server(Program):
    def __init__(self, folder, *arguments):
        self.certificate = os.path.join(folder, "-".join(["certificate", *arguments]) + ".pem")
        super().__init__("kx-benchmark-server", self.certificate, *arguments)
        self.hostname = f"localhost:{self.answer()['port']:.0f}"

    def counts(self):
        return self.ask("counts")


class Host(Program):
    """A host of the library, which reports to a server."""

    def __init__(self, server, under=(), env=None):
        self.server = server
        super().__init__("kx-benchmark-host", under=under, env=env)

    def start(self):
        return self.ask("start", TOKEN, self.server.hostname, self.server.certificate)

    def wait_until_accepted(self, count):
        self.wait_until(f"message {count}", lambda: self.accepted() >= count)

    def accepted(self):
        return self.ask("accepted")["accepted"]

    def wait_until_reporting(self):
        """The first timer's report has been taken, or a later one: where the machine is so slow that there is no token after
        five seconds, the next timer's would come in ten minutes."""
        end = time.monotonic() + 8
        while not self.accepted():
            if time.monotonic() > end:
                self.ask("report")
                end = time.monotonic() + 3
            time.sleep(0.2)


class Curl(Program):
    """A host without the library."""

    def __init__(self, server, under=()):
        self.server = server
        super().__init__("kx-benchmark-curl", under=under)

    def start(self):
        return self.ask("start", self.server.hostname, self.server.certificate)


@contextlib.contextmanager
def message_bus(folder):
    """A message bus on which there is nobody; the environment in which it is the system's."""
    address = f"unix:path={folder}/bus"
    configuration = os.path.join(folder, "bus.conf")
    with open(configuration, "w", encoding="utf-8") as file:
        file.write(f"<busconfig><listen>{address}</listen><auth>EXTERNAL</auth><policy context=\"default\">"
                   "<allow send_destination=\"*\"/><allow own=\"*\"/></policy></busconfig>")
    with subprocess.Popen([need("dbus-daemon"), "--nofork", f"--config-file={configuration}"], env=environment(),
                          stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as daemon:
        try:
            end = time.monotonic() + PATIENCE
            while not os.path.exists(os.path.join(folder, "bus")):
                if time.monotonic() > end or daemon.poll() is not None:
                    raise MeasuringError("the message bus has not started")
                time.sleep(0.05)
            yield environment(DBUS_SYSTEM_BUS_ADDRESS=address)
        finally:
            daemon.send_signal(signal.SIGTERM)
            daemon.wait()
