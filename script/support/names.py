"""Finds names that a reader could take for each other: those of one file that differ only by signs that look alike, and
letters beyond ASCII in a word of one. The linter has a rule for it too, which compares all names of all headers with each other and so
takes a third of its time.

usage: names.py FILE...      prints what is wrong
"""

import collections
import re
import sys

NAME = re.compile(r"[^\W\d]\w*")
# What looks like another, as the linter has it.
ALIKE = (("0", "O"), ("1", "l"), ("I", "l"), ("rn", "m"), ("vv", "w"))


def appearance(name):
    for sign, other in ALIKE:
        name = name.replace(sign, other)
    return name


def complaints(file):
    with open(file, encoding="utf-8") as source:
        names = sorted(set(NAME.findall(source.read())))
    found = [f"{file}: {name} has letters beyond ASCII" for name in names if not name.isascii()]
    alike = collections.defaultdict(list)
    for name in names:
        alike[appearance(name)].append(name)
    return found + [f"{file}: {' and '.join(same)} look alike" for same in alike.values() if len(same) > 1]


def main(files):
    found = [complaint for file in files for complaint in complaints(file)]
    for complaint in found:
        print(complaint)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
