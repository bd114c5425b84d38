"""Holds what the documents say against what there is: links and their anchors, files, scripts, programs' options, targets,
presets, options of the build, names of the library, and the message's keys and log lines.

usage: documents.py [ROOT]      prints what is wrong, by page and line
"""

import re
import shlex
import subprocess
import sys
from pathlib import Path
from urllib.parse import unquote

from pages import ROOT, documents

# Names that mean a file outside of this tree, or one that is yet to be made.
FILE = re.compile(r"(?:\.ci|benchmarks|cmake|diagnostics|docs|examples|include|packaging|platform|providers|publisher|script"
                  r"|tests|tools|transport)/[\w./*-]*[\w*/-]")
CONSTANT = re.compile(r"\b(?:dataKey|dataValue|kxPublisher|accessTokenRequest|logging)[A-Z]\w*")
OPTION = re.compile(r"\bKX_[A-Z][A-Z_]*[A-Z]\b")
TARGET = re.compile(r"\bKXPublisher::\w+")
SHELL = ("", "sh", "shell", "bash", "console")

PROGRAMS = {  # by the files that list their options
    "kx-host": ["examples/host/Arguments.cpp"],
    "kx-collector": ["tools/collector/Options.cpp"],
    "kx-fleet": ["tools/fleet/ForecastCommand.cpp", "tools/fleet/LoadOptions.cpp"],
}


class Check:
    def __init__(self, root):
        self.root = root
        self.pages = {page.name: page for page in documents(root)}
        self.complaints = []
        self.sources = self._text("*.h", "*.hpp", "*.cpp", "*.c", "*.mm", "*.m")
        self.building = self._text("CMakeLists.txt", "*.cmake", "*.cmake.in", "CMakePresets.json", "Package.swift",
                                   "*.podspec")
        self.scripts = self._text_of([*(root / "script").glob("*"), *(root / ".ci").glob("*")])

    def _text(self, *patterns):
        return self._text_of(file for pattern in patterns for file in self.root.rglob(pattern)
                             if "build" not in file.relative_to(self.root).parts[:1])

    @staticmethod
    def _text_of(files):
        return "\n".join(file.read_text(encoding="utf-8", errors="replace") for file in files if file.is_file())

    def complain(self, page, line, complaint):
        self.complaints.append(f"{page.name}:{line}: {complaint}")

    def run(self):
        for page in self.pages.values():
            self.sources += "\n".join(code.text for code in page.codes if code.language == "cpp" and code.name)
        for page in self.pages.values():
            self.check_links(page)
            for line, text in page.words_of_code():
                self.check_names(page, line, text)
            for code in page.codes:
                for offset, text in enumerate(code.text.split("\n")):
                    self.check_names(page, code.line + offset, text)
                if code.language in SHELL:
                    self.check_commands(page, code)
                if "/" in code.name:
                    self.check_that_it_is_the_file(page, code)
        self.check_that_each_is_found()
        self.check_message_reference()
        self.check_log_lines()
        return self.complaints

    # ---- Links

    def check_links(self, page):
        for line, target in page.links():
            if re.match(r"[a-z]+:", target):
                if not target.startswith(("https://", "mailto:")):
                    self.complain(page, line, f"a link that is not https: {target}")
                continue
            name, _, anchor = target.partition("#")
            file = (page.file.parent / unquote(name)).resolve() if name else page.file.resolve()
            if not file.exists():
                self.complain(page, line, f"no such file: {target}")
            elif anchor:
                other = self.pages.get(str(file.relative_to(self.root.resolve())))
                if other is None or anchor not in other.anchors():
                    self.complain(page, line, f"no such heading: {target}")

    def check_that_each_is_found(self):
        """By links that begin at the first page."""
        start = "docs/index.md"
        if start not in self.pages:
            self.complaints.append(f"{start} is missing")
            return
        found, new = set(), [start]
        while new:
            page = self.pages[new.pop()]
            found.add(page.name)
            for _, target in page.links():
                file = (page.file.parent / target.partition("#")[0]).resolve()
                name = str(file.relative_to(self.root.resolve())) if file.is_relative_to(self.root.resolve()) else ""
                if name in self.pages and name not in found:
                    new.append(name)
        for name in self.pages:
            if name.startswith("docs/") and name not in found:
                self.complaints.append(f"{name} is linked from nowhere")

    # ---- Code

    def check_that_it_is_the_file(self, page, code):
        """Of code that has a path: what stands there is compiled, so it has to be what stands here."""
        file = self.root / code.name
        if not file.is_file():
            self.complain(page, code.line, f"no such file: {code.name}")
        elif file.read_text(encoding="utf-8") != code.text:
            self.complain(page, code.line, f"not the same as {code.name}")

    # ---- Names

    def check_names(self, page, line, text):
        for match in FILE.finditer(text):
            before = text[:match.start()]
            if before and before[-1] not in " `('\"=":
                continue  # a part of a longer path
            name = match[0]
            if re.search(r"<[^>]*$", before) or text[match.end():match.end() + 1] == "<":
                continue  # a placeholder's
            if not ("*" in name and any(self.root.glob(name))) and not (self.root / name).exists() \
                    and not (self.root / "include/KXPublisher" / name).exists():
                self.complain(page, line, f"no such file: {name}")
        for match in CONSTANT.finditer(text):
            if not re.search(rf"\b{match[0]}\b", self.sources):
                self.complain(page, line, f"no such constant: {match[0]}")
        for match in OPTION.finditer(text):
            if not re.search(rf"\b{match[0]}\b", self.building + self.sources + self.scripts):
                self.complain(page, line, f"no such option: {match[0]}")
        for match in TARGET.finditer(text):
            target = match[0].split("::")[1]
            if not re.search(rf"(?:add_library\(|ALIAS |KXPublisher::){target}\b", self.building) \
                    and not re.search(rf"KXPublisher::{target}\(", self.sources):
                self.complain(page, line, f"no such target: {match[0]}")

    # ---- Commands

    def check_commands(self, page, code):
        lines = code.text.replace("\\\n", " \n").split("\n")
        for offset, text in enumerate(lines):
            for command in re.split(r"&&|\|\||;|\|", text.split("  ")[0] if code.language == "" else text):
                self.check_command(page, code.line + offset, command.strip())

    def check_command(self, page, line, command):
        try:
            words = shlex.split(command, comments=True)
        except ValueError:
            return  # no command
        if words and words[0] == "sudo":
            words = words[1:]
        if not words:
            return
        name, arguments = words[0], words[1:]
        options = [word.split("=")[0] for word in arguments if re.match(r"--?[a-zA-Z]", word)]
        if re.match(r"(script|\.ci)/[\w-]+$", name):
            if not (self.root / name).exists():
                return  # told of already
            known = self.help_of(name)
            parts = [word for word in arguments if re.fullmatch(r"[a-z]+", word)] if name == "script/check" else []
            for option in [*options, *parts]:
                if option != "--help" and not re.search(rf"(?<![\w-]){re.escape(option)}(?![\w-])", known):
                    self.complain(page, line, f"{name} does not tell of {option}")
        elif name.startswith("build/bin/") or name in PROGRAMS:
            program = name.rsplit("/", 1)[-1]
            if not re.search(rf"(?:add_executable|kx_add_tests|set\(programs)\s*\(?{re.escape(program)}\b", self.building) \
                    and f" {program}" not in self.building:
                self.complain(page, line, f"no such program: {program}")
            if program in PROGRAMS:
                listed = "".join((self.root / file).read_text(encoding="utf-8") for file in PROGRAMS[program])
                for option in options:
                    if not re.search(rf'"(--)?{re.escape(option.lstrip("-"))}"', listed) and option != "--help":
                        self.complain(page, line, f"{program} has no option {option}")
        elif name in ("cmake", "ctest"):
            for flag, value in zip(arguments, arguments[1:]):
                if flag == "--preset" and f'"name": "{value}"' not in self.building:
                    self.complain(page, line, f"no such preset: {value}")
            if "--target" in arguments:
                for target in arguments[arguments.index("--target") + 1:]:
                    if target.startswith("-"):
                        break
                    if not re.search(rf"\b{re.escape(target)}\b", self.building):
                        self.complain(page, line, f"no such target: {target}")

    def help_of(self, script):
        return subprocess.run([str(self.root / script), "--help"], capture_output=True, text=True, check=False,
                              cwd=self.root).stdout

    # ---- What is written down twice

    def constants(self):
        """The names in KXConstants.h that begin with dataKey, and the keys that they stand for in its comments."""
        header = self.root / "include/KXPublisher/KXConstants.h"
        pairs = re.findall(r'/\*\* "(\w+)"[^/]*\*/\s*KX_CONSTANT const char \*const (dataKey\w+);',
                           header.read_text(encoding="utf-8"))
        return {constant: key for key, constant in pairs}

    def check_message_reference(self):
        page = self.pages.get("docs/message-reference.md")
        if page is None:
            self.complaints.append("docs/message-reference.md is missing")
            return
        rows = {}
        platforms = set()
        for line, text in page.prose:
            cells = [cell.strip() for cell in text.strip().strip("|").split(" | ")]
            if len(cells) == 5 and (match := re.fullmatch(r"`(\w+)`", cells[0])):
                rows[cells[4].strip("`")] = match[1]
                if not all(cells):
                    self.complain(page, line, "an empty cell")
            elif len(cells) == 3:
                platforms |= self.keys_of_row(cells[0], rows)
        constants = self.constants()
        for constant in sorted(constants.keys() | rows.keys()):
            if rows.get(constant) != constants.get(constant):
                self.complaints.append(f"{page.name}: {constant} is {rows.get(constant)} there, and "
                                       f"{constants.get(constant)} in KXConstants.h")
            value = re.search(rf'constexpr const char \*{constant} = "(\w+)"', self.sources)
            if value is None or value[1] != rows.get(constant):
                self.complaints.append(f"{page.name}: {constant} is {rows.get(constant)} there, and "
                                       f"{value and value[1]} in the library")
        of_the_library = {"sdkName", "sdkVer", "id", "eventTime", "carrierName"}
        for key in sorted(set(rows.values()) - platforms - of_the_library):
            self.complaints.append(f"{page.name}: nothing tells where each platform has {key} from")

    @staticmethod
    def keys_of_row(cell, rows):
        """"`a`, `b`", or "`a` to `c`", which are all from the one to the other."""
        names = re.findall(r"`(\w+)`", cell)
        keys = list(rows.values())
        if " to " in cell and len(names) == 2 and set(names) <= set(keys):
            return set(keys[keys.index(names[0]):keys.index(names[1]) + 1])
        return set(names)

    def check_log_lines(self):
        page = self.pages.get("docs/behaviour.md")
        if page is None:
            self.complaints.append("docs/behaviour.md is missing")
            return
        told = {match[1] for _, text in page.prose if (match := re.match(r"\| `([^`]+)` \|", text))}
        library = self._text_of(file for folder in ("diagnostics", "platform", "providers", "publisher", "transport")
                                for file in (self.root / folder).rglob("*") if file.suffix in (".cpp", ".mm"))
        logged = {match[1] or match[2] for match in re.finditer(
            r'KXLogError\(\s*(?:R"\((.*?)\)"|"((?:[^"\\]|\\.)*)")', library, re.S)}
        logged |= set(re.findall(r'"(?:\[KX Error\] )?(An exception ended a task: %s)"', library))
        for line in sorted(logged - told):
            self.complaints.append(f"{page.name} does not tell of the log line: {line}")
        constant_names = {text for text in told if re.fullmatch(r"\w+", text)}
        for line in sorted(told - logged - constant_names):
            self.complaints.append(f"{page.name} tells of a log line that is logged nowhere: {line}")


def main(root):
    complaints = Check(Path(root).resolve()).run()
    for complaint in complaints:
        print(complaint)
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:2] or [ROOT]))
