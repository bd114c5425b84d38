"""Lints the sources that ship, but none again that has passed and not changed since: neither itself, nor a header that it
includes, nor how it is compiled, nor the rules, nor the linter. Those that are compiled together are linted together, for
most of the work is in the headers that they share.

usage: tidy.py [--only CHECK] FOLDER SOURCE...    FOLDER has compile_commands.json; what is linted together is put into
                                                  FOLDER/together, and results are kept in FOLDER/results
  --only CHECK    that one instead of the rules. It may be one that does not always come to an end: what it takes follows from where
                  things lie in memory. So it has a minute for a text, and is begun anew when that is over, some times.
"""

import concurrent.futures
import functools
import hashlib
import json
import os
import re
import subprocess
import sys

LINTER = "clang-tidy-16"
SECONDS, ATTEMPTS = 60, 10  # of a check that may not come to an end
HEADER = re.compile(r"\.+ (/.*)")  # as -H lists it
INCLUDE = re.compile(r'^#include "(.*)"$', re.M)  # as CMake has them in what it compiles together
PLACE = re.compile(r"^(/[^:]+):(\d+)", re.M)


@functools.lru_cache(maxsize=None)
def digest_of_file(name):
    try:
        with open(name, "rb") as file:
            return hashlib.sha256(file.read()).hexdigest()
    except OSError:
        return ""


class Together:
    """The sources that CMake compiles together, each group as one text: what the linter says of included files is less."""

    def __init__(self, folder):
        self.folder = os.path.abspath(os.path.join(folder, "together"))
        os.makedirs(self.folder, exist_ok=True)
        self.lines = {}  # of each text: (source, its line) by line
        self.text_of = {}  # where a source is
        with open(os.path.join(folder, "compile_commands.json"), encoding="utf-8") as file:
            entries = json.load(file)
        for entry in list(entries):
            name = os.path.realpath(os.path.join(entry["directory"], entry["file"]))
            if "/Unity/" in name:
                sources = INCLUDE.findall(read(name))
                text = self.write(os.path.relpath(name, folder).replace("/", "-"), sources)
                # By its sources' names, a file that is not compiled here is found to be like one of them.
                entries += [{**entry, "command": entry["command"].replace(entry["file"], file), "file": file}
                            for file in (text, *sources)]
                entries.remove(entry)
        with open(os.path.join(self.folder, "compile_commands.json"), "w", encoding="utf-8") as file:
            json.dump(entries, file)
        self.commands = {os.path.realpath(os.path.join(entry["directory"], entry["file"])): entry["command"]
                         for entry in entries}

    def write(self, name, sources):
        text = os.path.join(self.folder, name)
        lines = []
        self.lines[text] = []
        for source in sources:
            own = read(source).splitlines()
            lines += own
            self.lines[text] += [(source, number) for number in range(1, len(own) + 1)]
            self.text_of[os.path.realpath(source)] = text
        with open(text, "w", encoding="utf-8") as file:
            file.write("\n".join(lines) + "\n")
        return text

    def original(self, said):
        """What is said, with the places of the sources themselves."""
        def place(match):
            lines = self.lines.get(match[1], ())
            number = int(match[2])
            return "{}:{}".format(*lines[number - 1]) if 0 < number <= len(lines) else match[0]
        return PLACE.sub(place, said)


def read(name):
    with open(name, encoding="utf-8") as file:
        return file.read()


class Lint:
    def __init__(self, folder, only=None):
        self.only = only
        self.results = os.path.join(folder, "results", only or "rules")
        self.version = subprocess.run([LINTER, "--version"], capture_output=True, text=True, check=True).stdout
        self.together = Together(folder)
        self.commands = self.together.commands

    def texts(self, sources):
        """What to lint for these: themselves, or the texts that they are in."""
        return list(dict.fromkeys(self.together.text_of.get(os.path.realpath(source), source) for source in sources))

    def state(self, source, headers):
        """A digest of all that the result of that source follows from."""
        # One that is not compiled here is linted by the command of a file like it: any command may be that one.
        command = self.commands.get(os.path.realpath(source)) or json.dumps(self.commands, sort_keys=True)
        files = [source, *headers, *rules_for(source)]
        parts = [self.version, command, *(name + " " + digest_of_file(name) for name in files)]
        return hashlib.sha256("\n".join(parts).encode()).hexdigest()

    def result_file(self, source):
        return os.path.join(self.results, os.path.relpath(source) + ".json")

    def has_passed(self, source):
        try:
            with open(self.result_file(source), encoding="utf-8") as file:
                result = json.load(file)
            return result["state"] == self.state(source, result["headers"])
        except (OSError, ValueError, KeyError):
            return False

    def read(self, source):
        """What the linter says, null if it came to no end."""
        command = [LINTER, "-p", self.together.folder, "--quiet", "--extra-arg=-H"]
        if not self.only:
            return subprocess.run([*command, source], capture_output=True, text=True, check=False)
        for _ in range(ATTEMPTS):
            try:
                return subprocess.run([*command, "--checks=-*," + self.only, source], capture_output=True, text=True,
                                      check=False, timeout=SECONDS)
            except subprocess.TimeoutExpired:
                pass
        return None

    def check(self, source):
        """What there is to say against that source; nothing, and a kept result, when it passes."""
        result = self.read(source)
        if result is None:
            return f"{source}: {LINTER} came to no end in {ATTEMPTS} times {SECONDS} s"
        said = [line for line in result.stderr.splitlines() if "warnings generated" not in line]
        headers = sorted({os.path.normpath(match[1]) for line in said if (match := HEADER.fullmatch(line))})
        complaints = "\n".join([*result.stdout.splitlines(), *(line for line in said if not HEADER.fullmatch(line))])
        if result.returncode or complaints:
            return self.together.original(complaints) or f"{source}: {LINTER} ended with exit code {result.returncode}"
        file = self.result_file(source)
        os.makedirs(os.path.dirname(file), exist_ok=True)
        with open(file + ".new", "w", encoding="utf-8") as output:
            json.dump({"state": self.state(source, headers), "headers": headers}, output)
        os.replace(file + ".new", file)
        return ""


def rules_for(source):
    """The files of rules that hold for it: those of its folder and of all above."""
    folder = os.path.dirname(os.path.abspath(source))
    files = []
    while True:
        if os.path.exists(file := os.path.join(folder, ".clang-tidy")):
            files.append(file)
        if folder == os.path.dirname(folder):
            return files
        folder = os.path.dirname(folder)


def main(arguments):
    only = None
    if arguments[0] == "--only":
        _, only, *arguments = arguments
    folder, *sources = arguments
    lint = Lint(folder, only)
    texts = lint.texts(sources)
    changed = [text for text in texts if not lint.has_passed(text)]
    if not changed:
        return 0
    print(f"{len(changed)} of {len(texts)} texts, of {len(sources)} files", flush=True)
    failures = 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for complaint in pool.map(lint.check, changed):
            if complaint:
                failures += 1
                print(complaint, flush=True)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
