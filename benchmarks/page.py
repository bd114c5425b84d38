"""docs/performance.md: what script/bench writes into it, between the marks that are there for it, and the plots beside it."""

import pathlib
import subprocess

from hosts import MeasuringError, environment, need

OURS, FLOOR, OVER = "#1b6ca8", "#9aa4ad", "#c0392b"
# On a ground of its own it is read in the light and in the dark.
HEAD = """set terminal svg size 860,{height} dynamic noenhanced font 'sans-serif,13' background '#ffffff'
set output '{output}'
unset key
set border 3 lc rgb '#555555'
set style fill solid noborder
set xtics nomirror textcolor rgb '#222222'
set ytics nomirror out textcolor rgb '#222222'
set yrange [{least}:0.4]
set grid xtics lc rgb '#dddddd'
"""


def refreshed(page, name, text):
    """The page's text with that between its marks, of which there is one pair of each name. Nothing else changes."""
    begin, end = f"<!-- script/bench writes {name} -->\n", f"<!-- up to here: {name} -->\n"
    if page.count(begin) != 1 or page.count(end) != 1 or page.index(begin) > page.index(end):
        raise MeasuringError(f"the page has no place for {name}, or more than one")
    before, _, rest = page.partition(begin)
    return before + begin + "\n" + text.strip("\n") + "\n\n" + end + rest.partition(end)[2]


def _quoted(text):
    return '"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"'


def _plot(output, height, rows, more):
    """Each row is (title, value, colour), the first one at the top."""
    lines = [HEAD.format(height=height, output=output, least=-len(rows) + 0.4)]
    lines.append("set ytics (" + ", ".join(f"{_quoted(title)} {-at}" for at, (title, _, _) in enumerate(rows)) + ")")
    lines += more
    for at, (_, value, colour) in enumerate(rows):
        lines.append(f"set object rectangle from 0,{-at - 0.3:.2f} to {value:.4f},{-at + 0.3:.2f} fc rgb '{colour}'")
    lines.append("plot NaN notitle")
    result = subprocess.run([need("gnuplot"), "-"], input="\n".join(lines) + "\n", text=True, capture_output=True, check=False,
                            env=environment())
    if result.returncode or not pathlib.Path(output).stat().st_size:
        raise MeasuringError(f"gnuplot: {result.stderr.strip()}")


def draw_budgets(figures, output):
    """Each figure as a share of its budget, for those that have one above nothing."""
    shares = []
    for figure in figures:
        if figure.limit:
            share = figure.limit / figure.value if figure.at_least and figure.value else figure.value / figure.limit
            shares.append((figure.what, share))
    most = 2.0  # what is further out is cut, and its number stands there
    rows = [(what, min(share, most), OURS if share <= 1 else OVER) for what, share in shares]
    more = [f"set xrange [0:{most + 0.2}]", "set xtics ('0' 0, 'half' 0.5, 'the budget' 1, 'twice' 2)",
            f"set arrow from 1,{-len(rows) + 0.4} to 1,0.4 nohead front lw 2 lc rgb '#222222'",
            "set lmargin 62"]
    more += [f"set label '{share:.2f}' at {min(share, most) + 0.02:.4f},{-at} left textcolor rgb '#222222'"
             for at, (_, share) in enumerate(shares)]
    _plot(output, 70 + 26 * len(rows), rows, more)


def draw_work(figures, output):
    """A report's own work beside what it cannot do without."""
    rows = []
    for figure in figures:
        if figure.name.startswith("work.") and not figure.recorded and figure.name != "work.ratio":
            step = figure.name.partition(".")[2]
            rows.append((step, figure.ours / 1000, OURS))
            if figure.floor:
                alone = {"assembling": "getifaddrs alone", "compressing": "zlib alone"}[step]
                rows.append((alone, figure.floor / 1000, FLOOR))
    widest = max(value for _, value, _ in rows)
    more = [f"set xrange [0:{widest * 1.15:.4f}]", "set xlabel 'thousand instructions' textcolor rgb '#222222'", "set lmargin 20"]
    more += [f"set label '{value:.0f}' at {value + widest * 0.01:.4f},{-at} left textcolor rgb '#222222'"
             for at, (_, value, _) in enumerate(rows)]
    _plot(output, 100 + 26 * len(rows), rows, more)
