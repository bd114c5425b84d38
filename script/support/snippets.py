"""Writes the C and C++ that the documents show as files that a compiler takes.

usage: snippets.py FOLDER      FOLDER/<page>/<file> for what has a name, FOLDER/<page>-<line>.<language> for what has none.
                               Prints the latter, and the pages, one a line: "source FILE", "page FILE".

A piece that includes something or has a `main` is a file as it stands. Any other becomes the body of a function, with the
headers that a host has.
"""

import re
import sys
from pathlib import Path

from pages import documents

LANGUAGES = {"cpp": "cpp", "c++": "cpp", "c": "c"}
HEADERS = """#include <KXPublisher/KXConstants.h>
#include <KXPublisher/diagnostics/KXLog.h>
#include <KXPublisher/platform/linux/LinuxHost.h>
#include <KXPublisher/platform/simulated/SimulatedScope.h>
#include <KXPublisher/providers/KXData.h>
#include <gio/gio.h>

#include <KXPublisher/KXPublisher.hpp>
#include <iostream>
"""


def as_file(code, page):
    """With the lines of the page, so that a compiler complains of that."""
    position = f'#line {code.line} "{page.file}"\n'
    if re.search(r"^#include|\bmain\(", code.text, re.M):
        return position + code.text
    if LANGUAGES[code.language] == "c":
        return f"#include <KXPublisher/KXConstants.h>\nvoid snippet(void);\nvoid snippet(void) {{\n{position}{code.text}}}\n"
    return f"{HEADERS}\nnamespace {{\n[[maybe_unused]] void snippet() {{\n{position}{code.text}}}\n}}  // namespace\n"


def write(file, text):
    """Leaves one alone that is the same, for the build's sake."""
    file.parent.mkdir(parents=True, exist_ok=True)
    if not file.exists() or file.read_text(encoding="utf-8") != text:
        file.write_text(text, encoding="utf-8")


def main(folder):
    for page in documents():
        print("page", page.file)
        stem = page.name.removesuffix(".md").replace("/", "-")
        for code in page.codes:
            if code.language not in LANGUAGES:
                continue
            if code.name:
                write(folder / stem / code.name, f'#line {code.line} "{page.file}"\n{code.text}')
                continue
            file = folder / f"{stem}-{code.line}.{LANGUAGES[code.language]}"
            write(file, as_file(code, page))
            print("source", file)
    return 0


if __name__ == "__main__":
    sys.exit(main(Path(sys.argv[1])))
