"""Lints the sources that ship, but none again that has passed and not changed since: neither itself, nor a header that it
includes, nor how it is compiled, nor the rules, nor the linter.

usage: tidy.py FOLDER SOURCE...    FOLDER has compile_commands.json; results are kept in FOLDER/results, one a source
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
HEADER = re.compile(r"\.+ (/.*)")  # as -H lists it


@functools.lru_cache(maxsize=None)
def digest_of_file(name):
    try:
        with open(name, "rb") as file:
            return hashlib.sha256(file.read()).hexdigest()
    except OSError:
        return ""


class Lint:
    def __init__(self, folder):
        self.folder = folder
        self.version = subprocess.run([LINTER, "--version"], capture_output=True, text=True, check=True).stdout
        with open(os.path.join(folder, "compile_commands.json"), encoding="utf-8") as file:
            entries = json.load(file)
        self.commands = {os.path.realpath(os.path.join(entry["directory"], entry["file"])): entry["command"]
                         for entry in entries}

    def state(self, source, headers):
        """A digest of all that the result of that source follows from."""
        # One that is not compiled here is linted by the command of a file like it: any command may be that one.
        command = self.commands.get(os.path.realpath(source)) or json.dumps(self.commands, sort_keys=True)
        files = [source, *headers, *rules_for(source)]
        parts = [self.version, command, *(name + " " + digest_of_file(name) for name in files)]
        return hashlib.sha256("\n".join(parts).encode()).hexdigest()

    def result_file(self, source):
        return os.path.join(self.folder, "results", os.path.relpath(source) + ".json")

    def has_passed(self, source):
        try:
            with open(self.result_file(source), encoding="utf-8") as file:
                result = json.load(file)
            return result["state"] == self.state(source, result["headers"])
        except (OSError, ValueError, KeyError):
            return False

    def check(self, source):
        """What there is to say against that source; nothing, and a kept result, when it passes."""
        result = subprocess.run([LINTER, "-p", self.folder, "--quiet", "--extra-arg=-H", source],
                                capture_output=True, text=True, check=False)
        said = [line for line in result.stderr.splitlines() if "warnings generated" not in line]
        headers = sorted({os.path.normpath(match[1]) for line in said if (match := HEADER.fullmatch(line))})
        complaints = "\n".join([*result.stdout.splitlines(), *(line for line in said if not HEADER.fullmatch(line))])
        if result.returncode or complaints:
            return complaints or f"{source}: {LINTER} ended with exit code {result.returncode}"
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


def main(folder, sources):
    lint = Lint(folder)
    changed = [source for source in sources if not lint.has_passed(source)]
    if not changed:
        return 0
    print(f"{len(changed)} of {len(sources)} files", flush=True)
    failures = 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for complaint in pool.map(lint.check, changed):
            if complaint:
                failures += 1
                print(complaint, flush=True)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2:]))
