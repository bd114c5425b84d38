"""The documents of this tree as their readers see them: their text, headings, links and code."""

import os
import re
import subprocess
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]

FENCE = re.compile(r"^(```+|~~~+)\s*(\S*)\s*(.*?)\s*$")
HEADING = re.compile(r"^#{1,6}\s+(.*?)\s*#*$")
LINK = re.compile(r"(!?)\[((?:[^\[\]]|\[[^\]]*\])*)\]\(([^()\s]+)\)")
CODE = re.compile(r"(`+)(.+?)\1")


@dataclass
class Code:
    language: str  # "" for an indented block
    name: str  # the file that it is, or ""
    line: int  # of its first line, from 1
    text: str


class Page:
    def __init__(self, file, root=ROOT):
        self.file = Path(file)
        self.name = os.path.relpath(file, root)
        self.codes = []
        self.prose = []  # (line, text), without code blocks
        self._read(self.file.read_text(encoding="utf-8").split("\n"))

    def _read(self, lines):
        fence = None
        code = None
        blank = True  # the line before
        for number, line in enumerate(lines, 1):
            if fence:
                if line.startswith(fence):
                    fence = code = None
                else:
                    code.text += line + "\n"
                continue
            if match := FENCE.match(line):
                fence = match[1]
                code = Code(match[2], match[3], number + 1, "")
                self.codes.append(code)
                continue
            if line.startswith("    ") and (blank or code):
                if code is None:
                    code = Code("", "", number, "")
                    self.codes.append(code)
                code.text += line[4:] + "\n"
                blank = False
                continue
            if line.strip():
                code = None
            elif code:
                code.text += "\n"
            blank = not line.strip()
            self.prose.append((number, line))

    def anchors(self):
        """Of its headings, as code hosts make them."""
        seen = {}
        for _, line in self.prose:
            if match := HEADING.match(line):
                anchor = anchor_of(match[1])
                count = seen.get(anchor, 0)
                seen[anchor] = count + 1
                yield anchor if count == 0 else f"{anchor}-{count}"

    def links(self):
        """(line, target) of each link and picture."""
        text = "\n".join(CODE.sub(lambda match: match[0] if "](" in match[0] else "`" + "x" * len(match[2]) + "`", line)
                         for _, line in self.prose)
        numbers = [number for number, _ in self.prose]
        for match in LINK.finditer(text):
            yield numbers[text.count("\n", 0, match.start())], match[3]

    def words_of_code(self):
        """(line, text) of each piece of code within the prose."""
        for number, line in self.prose:
            for match in CODE.finditer(line):
                yield number, match[2]


def anchor_of(heading):
    text = LINK.sub(lambda match: match[2], heading).replace("`", "").strip().lower()
    return re.sub(r"[^\w\- ]", "", text).replace(" ", "-")


def documents(root=ROOT):
    """Every document that is a part of the tree."""
    if (root / ".git").exists():
        listed = subprocess.run(["git", "-C", str(root), "ls-files", "-co", "--exclude-standard", "*.md"],
                                capture_output=True, text=True, check=True).stdout.split("\n")
        files = [root / name for name in listed if name]
    else:
        files = [file for file in root.rglob("*.md") if not file.is_relative_to(root / "build")]
    return [Page(file, root) for file in sorted(files) if file.exists()]
