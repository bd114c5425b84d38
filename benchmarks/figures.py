"""The figures that script/bench measures: what they are held against, the table that they make, and the file in which those
are recorded that script/check counts holds the tree against."""

import re
from dataclasses import dataclass

# name, figure, unit, margin, and why the margin; parted by two spaces or more.
RECORD = re.compile(r"(\S+)  +([\d.]+)  +(\S+)  +([\d.]+%?)  +(\S.*)")


class RecordError(Exception):
    pass


@dataclass(frozen=True)
class Figure:
    """One measured thing. `by` says what is held against the limit: the "count" itself, its "ratio" to the floor, or how much
    it is "over" the floor. A recorded one is a count, the same on any machine with the same Debian."""

    name: str
    what: str
    ours: float
    unit: str = ""
    floor: float | None = None
    by: str = "count"
    limit: float | None = None
    at_least: bool = False
    recorded: bool = False

    def __post_init__(self):
        for number in (self.ours, self.floor):
            if number is not None and (number != number or number < 0):
                raise ValueError(f"{self.name}: {number} is no figure")
        if self.by in ("ratio", "over") and not self.floor:
            raise ValueError(f"{self.name}: nothing to hold it against")

    @property
    def value(self):
        if self.by == "ratio":
            return self.ours / self.floor
        return self.ours - self.floor if self.by == "over" else self.ours

    @property
    def within(self):
        """None without a limit."""
        if self.limit is None:
            return None
        return self.value >= self.limit if self.at_least else self.value <= self.limit

    def cells(self):
        unit = f" {self.unit}" if self.unit else ""
        shown = {"ratio": f"{self.value:.2f} x", "over": f"{_number(self.value)}{unit} more"}.get(self.by, _number(self.value) + unit)
        limit = ""
        if self.limit is not None:
            limit = ("at least " if self.at_least else "") + _number(self.limit)
            limit += {"ratio": " x", "over": f"{unit} more"}.get(self.by, unit)
        return [self.what, "" if self.floor is None else _number(self.floor) + unit, _number(self.ours) + unit, shown, limit,
                {True: "yes", False: "**no**", None: ""}[self.within]]


def _number(number):
    if number >= 100 or number == int(number):
        return f"{number:,.0f}"
    return f"{number:.2f}" if number < 10 else f"{number:.1f}"


HEADINGS = ["what", "floor", "ours", "ratio or count", "budget", "within"]


def as_markdown(figures):
    lines = ["| " + " | ".join(HEADINGS) + " |", "|---" * len(HEADINGS) + "|"]
    return "\n".join(lines + ["| " + " | ".join(figure.cells()) + " |" for figure in figures]) + "\n"


def as_text(figures):
    rows = [HEADINGS] + [[cell.replace("*", "") for cell in figure.cells()] for figure in figures]
    widths = [max(len(row[column]) for row in rows) for column in range(len(HEADINGS))]
    return "\n".join("  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip() for row in rows) + "\n"


# ---- What is recorded

@dataclass(frozen=True)
class Record:
    name: str
    figure: float
    unit: str
    margin: str  # "3%" of the figure, or "2" as it stands
    why: str

    @property
    def allowed(self):
        """How far another figure may be from this one."""
        return self.figure * float(self.margin[:-1]) / 100 if self.margin.endswith("%") else float(self.margin)


def read_records(text):
    records = {}
    for number, line in enumerate(text.splitlines(), 1):
        if not line.strip() or line.startswith("#"):
            continue
        match = RECORD.fullmatch(line.rstrip())
        if match is None:
            raise RecordError(f"line {number} is no record: {line}")
        if match[1] in records:
            raise RecordError(f"line {number} records {match[1]} once more")
        records[match[1]] = Record(match[1], float(match[2]), *match.groups()[2:])
    return records


def compare(records, figures):
    """What is wrong, and what has become better by more than the margin; a text each."""
    wrong, better = [], []
    measured = {figure.name: figure for figure in figures if figure.recorded}
    for name in records.keys() - measured.keys():
        wrong.append(f"{name} is recorded, but was not measured")
    for name, figure in measured.items():
        record = records.get(name)
        if record is None:
            wrong.append(f"{name} is not recorded: {_plain(figure.value)} {figure.unit}".rstrip())
            continue
        difference = figure.value - record.figure
        said = (f"{name} ({figure.what}): {_plain(figure.value)} instead of {_plain(record.figure)}, "
                f"{_plain(abs(difference))} {'more' if difference > 0 else 'less'}; the margin is {record.margin}")
        if difference > record.allowed:
            wrong.append(said)
        elif -difference > record.allowed:
            better.append(said)
    return sorted(wrong), sorted(better)


def _plain(number):
    return f"{number:.0f}" if number == int(number) else f"{number:.2f}"


def recorded(text, figures):
    """The file's text with the figures as they are now. Its comments, its order, the margins and their reasons stay; what is
    new comes last, with a margin that somebody has to think about."""
    measured = {figure.name: figure for figure in figures if figure.recorded}
    lines = []
    for line in text.splitlines():
        match = RECORD.fullmatch(line.rstrip())
        if match is None:
            lines.append(line)
        elif match[1] in measured:
            lines.append(_line(measured.pop(match[1]), match[4], match[5]))
    lines += [_line(figure, "0", "new, and so without a margin") for figure in measured.values()]
    return "\n".join(lines) + "\n"


def _line(figure, margin, why):
    return f"{figure.name:34}  {_plain(figure.value):>8}  {figure.unit or '-':12}  {margin:>4}  {why}"
