"""The programs that play together, each ended with the demo at the latest."""

import json
import os
import queue
import subprocess
import threading
import time

PROGRAMS = os.environ.get("KX_PROGRAMS",
                          os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "build", "bin"))
APPLICATION = "com.example.KXHost"
LONGEST_SLEEP = 0.2  # seconds
IDENTIFIER = "6D92078A-8246-4BA4-AE5B-76104861E7DC"  # the advertising identifier of an imagined device


class ProgramError(Exception):
    """A program does not do what it is there for."""


def ends_with_this_process(signal, command):
    """The command that runs this one and sends it that signal when this process ends, however it does."""
    return ["/usr/bin/setpriv", "--pdeathsig", signal, *command]


class Program:
    """A running program."""

    def __init__(self, *command, **options):
        self.name = os.path.basename(command[0])
        if not os.access(command[0], os.X_OK):
            raise ProgramError(f"{command[0]} cannot be started")
        self.process = subprocess.Popen(ends_with_this_process("TERM", command), text=True, **options)

    def __enter__(self):
        return self

    def write_line(self, line):
        try:
            self.process.stdin.write(line + "\n")
            self.process.stdin.flush()
        except OSError as error:
            raise ProgramError(f"{self.name} has ended") from error

    def __exit__(self, *_):
        self.process.terminate()
        try:
            self.process.wait(10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()


class Collector(Program):
    """The collection service, with a certificate authority of its own that nobody else trusts."""

    def __init__(self, folder, page_port=None):
        where = [] if page_port is None else ["--page-port", str(page_port)]
        super().__init__(os.path.join(PROGRAMS, "kx-collector"), "--json", "--port", "0", *where,
                         "--directory", os.path.join(folder, "collector"), stdout=subprocess.PIPE)
        self.events = queue.Queue()
        threading.Thread(target=self._read, daemon=True).start()
        listening = self._next_event(time.monotonic() + 30)
        if listening is None or listening["event"] != "listening":
            raise ProgramError("kx-collector does not listen")
        self.address = f"{listening['address']}:{listening['port']}"
        self.ca_file = listening["caFile"]
        self.page = listening["page"] + "/"

    def _read(self):
        for line in self.process.stdout:
            self.events.put(json.loads(line))

    def _next_event(self, end):
        try:
            return self.events.get(timeout=max(end - time.monotonic(), 0))
        except queue.Empty:
            return None

    def events_until(self, end):
        """What happens at the service until that time, as it happens."""
        while True:
            # Python's main thread may fall asleep over a signal that has just come; it sees to it when it wakes.
            event = self._next_event(min(end, time.monotonic() + LONGEST_SLEEP))
            if event is not None:
                yield event
            elif time.monotonic() >= end:
                return


class Host(Program):
    """The host application, obedient to one-character commands."""

    def __init__(self, collector, environment=None):
        super().__init__(os.path.join(PROGRAMS, "kx-host"), "--api-token", "demo", "--hostname", collector.address,
                         "--ca-file", collector.ca_file, "--ifa", IDENTIFIER, "--application-id", APPLICATION,
                         stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, env=environment)

    def command(self, character):
        self.write_line(character)

    def quit(self):
        self.command("q")
        try:
            self.process.wait(30)
        except subprocess.TimeoutExpired as error:
            raise ProgramError("kx-host does not quit") from error
        if self.process.returncode != 0:
            raise ProgramError(f"kx-host ended with exit code {self.process.returncode}")
