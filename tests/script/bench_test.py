"""What script/bench makes of what it measures: the table, the guard, the page; and that what measures nothing is an error."""

import contextlib
import importlib.machinery
import importlib.util
import io
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest
from unittest import mock

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "benchmarks"))

import counting  # noqa: E402
import figures  # noqa: E402
import hosts  # noqa: E402
import page  # noqa: E402
import rows  # noqa: E402
from figures import Figure  # noqa: E402
from hosts import MeasuringError  # noqa: E402

RECORDED = """# Why.

a.calls     20  -    1   a reason of two words
b.size   100.5  KiB  3%  another
"""
STRACE = """7 access("/nonexistent/begin entry-call", F_OK) = -1 ENOENT (No such file or directory)
7 clock_gettime(CLOCK_THREAD_CPUTIME_ID, {tv_sec=0, tv_nsec=1}) = 0
7 socket(AF_NETLINK, SOCK_RAW|SOCK_CLOEXEC, NETLINK_ROUTE) = 4
8 openat(AT_FDCWD, "/etc/ssl", O_RDONLY) = 9
7 recvmsg(4, {msg_name=NULL}, 0) = 20
7 poll([{fd=5, events=POLLIN}], 1, -1 <unfinished ...>
8 close(9) = 0
7 <... poll resumed>) = 1
--- SIGCHLD ---
7 access("/nonexistent/end entry-call", F_OK) = -1 ENOENT (No such file or directory)
7 access("/nonexistent/begin report", F_OK) = -1 ENOENT (No such file or directory)
7 clone3({flags=CLONE_VM}, 88) = 9
7 access("/nonexistent/begin report", F_OK) = -1 ENOENT (No such file or directory)
7 clone3({flags=CLONE_VM} => {parent_tid=[10]}, 88) = 10
10 clone3({flags=CLONE_VM} <unfinished ...>
10 <... clone3 resumed>) = 11
""".splitlines(keepends=True)


def script_bench():
    loader = importlib.machinery.SourceFileLoader("script_bench", str(ROOT / "script/bench"))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader(loader.name, loader))
    with mock.patch.object(sys, "dont_write_bytecode", True):
        loader.exec_module(module)
    return module


class FigureTest(unittest.TestCase):
    def test_is_held_against_its_budget_by_count_ratio_and_difference(self):
        for figure, within in ((Figure("n", "w", 8, limit=8), True), (Figure("n", "w", 8.01, limit=8), False),
                               (Figure("n", "w", 23, "", 20, "ratio", 1.15), True),
                               (Figure("n", "w", 24, "", 20, "ratio", 1.15), False),
                               (Figure("n", "w", 24, "", 20, "over", 4), True), (Figure("n", "w", 25, "", 20, "over", 4), False),
                               (Figure("n", "w", 9, "", 10, "ratio", 0.9, at_least=True), True),
                               (Figure("n", "w", 8, "", 10, "ratio", 0.9, at_least=True), False),
                               (Figure("n", "w", 8), None)):
            with self.subTest(figure=figure):
                self.assertIs(figure.within, within)

    def test_is_none_without_something_measured(self):
        for ours, floor, by in ((float("nan"), None, "count"), (-1, None, "count"), (1, float("nan"), "count"), (1, None, "ratio"),
                                (1, 0, "ratio"), (1, None, "over")):
            with self.subTest(ours=ours, floor=floor, by=by), self.assertRaises(ValueError):
                Figure("n", "w", ours, floor=floor, by=by)

    def test_is_a_row_of_the_table(self):
        late = Figure("n", "a report", 3.0, "ms", 2, "ratio", 1.15)
        self.assertEqual(figures.as_markdown([late]).splitlines()[2:], ["| a report | 2 ms | 3 ms | 1.50 x | 1.15 x | **no** |"])
        many = Figure("n", "names", 12345, "", 12300, "over", 45)
        self.assertEqual(many.cells(), ["names", "12,300", "12,345", "45 more", "45 more", "yes"])
        self.assertEqual(figures.as_text([late]).splitlines()[0].split(), "what floor ours ratio or count budget within".split())
        self.assertEqual(Figure("n", "w", 5, "", 4, "ratio", 0.9, at_least=True).cells()[4], "at least 0.90 x")


class RecordTest(unittest.TestCase):
    def setUp(self):
        self.records = figures.read_records(RECORDED)

    def compared(self, calls, size):
        return figures.compare(self.records, [Figure("a.calls", "calls", calls, recorded=True),
                                              Figure("b.size", "size", size, "KiB", recorded=True),
                                              Figure("c.time", "a time", 77)])

    def test_holds_each_figure_against_its_margin(self):
        for calls, size in ((20, 100.5), (21, 103.5), (19, 97.6)):
            self.assertEqual(self.compared(calls, size), ([], []))
        wrong, better = self.compared(22, 97)
        self.assertEqual(wrong, ["a.calls (calls): 22 instead of 20, 2 more; the margin is 1"])
        self.assertEqual(better, ["b.size (size): 97 instead of 100.50, 3.50 less; the margin is 3%"])
        self.assertIn("b.size (size): 103.60 instead of 100.50", self.compared(20, 103.6)[0][0])

    def test_misses_neither_what_was_not_measured_nor_what_is_not_recorded(self):
        wrong, _ = figures.compare(self.records, [Figure("a.calls", "calls", 20, recorded=True),
                                                  Figure("d.new", "new", 3, recorded=True)])
        self.assertEqual(wrong, ["b.size is recorded, but was not measured", "d.new is not recorded: 3"])

    def test_what_is_recorded_is_the_ratio_or_the_difference(self):
        records = figures.read_records("a  1.25  -  1%  r\nb  4  -  0  r\n")
        measured = [Figure("a", "w", 50, "", 40, "ratio", recorded=True), Figure("b", "w", 14, "", 10, "over", recorded=True)]
        self.assertEqual(figures.compare(records, measured), ([], []))

    def test_is_written_anew_with_its_comments_margins_and_reasons(self):
        text = figures.recorded(RECORDED, [Figure("b.size", "size", 90, "KiB", recorded=True), Figure("c.time", "a time", 77),
                                           Figure("a.calls", "calls", 18, recorded=True),
                                           Figure("d.new", "new", 3, recorded=True)])
        lines = text.splitlines()
        self.assertEqual([line.split()[:2] for line in lines if line and line[0] != "#"],
                         [["a.calls", "18"], ["b.size", "90"], ["d.new", "3"]])
        self.assertEqual(lines[:2], ["# Why.", ""])
        records = figures.read_records(text)
        self.assertEqual((records["b.size"].margin, records["b.size"].why), ("3%", "another"))
        self.assertEqual((records["a.calls"].margin, records["a.calls"].why), ("1", "a reason of two words"))
        self.assertEqual(records["d.new"].allowed, 0)

    def test_is_no_record_what_is_not_whole(self):
        for text in ("a.calls  20  -  1", "a.calls  many  -  1  why", "a.calls 20 - 1 why", RECORDED + "a.calls  1  -  1  why\n"):
            with self.subTest(text=text), self.assertRaises(figures.RecordError):
                figures.read_records(text)

    def test_of_this_tree_is_whole(self):
        records = figures.read_records((ROOT / "benchmarks/recorded.txt").read_text())
        self.assertGreater(len(records), 20)
        self.assertNotIn("new, and so without a margin", {record.why for record in records.values()})


class CountingTest(unittest.TestCase):
    def test_reads_the_main_threads_system_calls(self):
        calls = counting.calls_between_marks(STRACE, "entry-call")
        self.assertEqual([call.partition("(")[0] for call in calls], ["socket", "recvmsg", "poll"])
        self.assertEqual(counting.calls_that_wait(calls), [calls[2]])

    def test_knows_which_calls_wait(self):
        for calls, waits in ((["futex(0x1, FUTEX_WAIT_PRIVATE, 2, NULL) = 0"], True), (["futex(0x1, FUTEX_WAKE, 1) = 0"], False),
                             (["recvmsg(4, {}, MSG_DONTWAIT) = 1"], False), (["recvmsg(4, {}, 0) = 1"], True),
                             (["socket(AF_UNIX, SOCK_STREAM, 0) = 4", "connect(4, {}, 110) = 0"], True),
                             (["socket(AF_UNIX, SOCK_STREAM|SOCK_NONBLOCK, 0) = 4", "connect(4, {}, 110) = 0"], False),
                             (["socket(AF_NETLINK, SOCK_RAW, 0) = 4", "openat(AT_FDCWD, \"a\", O_RDONLY) = 4",
                               "recvfrom(4, 0x1, 1) = 0"], True)):
            with self.subTest(calls=calls):
                self.assertEqual(bool(counting.calls_that_wait(calls)), waits)

    def test_counts_the_threads_since_the_last_mark(self):
        self.assertEqual(counting.threads_started_after(STRACE, "report"), 2)

    def test_takes_no_mark_for_no_calls(self):
        for count in (lambda: counting.calls_between_marks([], "entry-call"), lambda: counting.threads_started_after([], "report"),
                      lambda: counting.calls_between_marks(STRACE[:3], "entry-call"),
                      lambda: counting.instructions_in("totals: 0\n"), lambda: counting.instructions_in("")):
            with self.assertRaises(MeasuringError):
                count()
        self.assertEqual(counting.instructions_in("events: Ir\nsummary: 12\ntotals: 12\n"), 12)


class ProgramTest(unittest.TestCase):
    def setUp(self):
        self.build = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        (self.build / "bin").mkdir()
        self.enterContext(mock.patch.object(hosts, "BUILD", self.build))
        self.enterContext(mock.patch.object(rows, "BUILD", self.build))

    def program(self, name, text):
        file = self.build / "bin" / name
        file.write_text(f"#!/bin/sh\n{text}\n")
        file.chmod(0o755)

    def test_that_works_is_asked_for_figures(self):
        self.program("kx-benchmark-host", "read line; echo \"words 1\"; echo done; read line; exit 0")
        with hosts.Program("kx-benchmark-host") as program:
            self.assertEqual(program.ask("anything"), {"words": 1})
            program.quit()

    def test_that_breaks_is_an_error_and_no_row_of_zeros(self):
        for text in ("exit 1", "echo oops >&2; exit 3", "read line; echo nonsense; echo done", "read line; kill -ABRT $$",
                     "read line; echo \"rate nan\"; echo done"):
            self.program("kx-benchmark-host", text)
            with self.subTest(text=text), hosts.Program("kx-benchmark-host") as program:
                with self.assertRaises(MeasuringError) as raised:
                    program.ask("burst", 1)
                if "oops" in text:
                    self.assertIn("oops", str(raised.exception))

    def test_that_ends_badly_is_an_error(self):
        self.program("kx-benchmark-host", "read line; exit 1")
        with hosts.Program("kx-benchmark-host") as program, self.assertRaises(MeasuringError):
            program.quit()

    def test_a_row_of_programs_that_break_is_an_error(self):
        self.program("kx-benchmark-bare", "echo microseconds 1; echo libraries 1; echo anonymous 1")
        self.program("kx-benchmark-linked", "exit 1")
        with self.assertRaises(MeasuringError):
            list(rows.ROWS["start"](rows.Bench(self.build)))
        self.program("kx-benchmark-linked", "echo microseconds 2; echo libraries 3; echo anonymous 9")
        measured = {figure.name: figure.value for figure in rows.ROWS["start"](rows.Bench(self.build))}
        self.assertEqual(measured, {"start.time": 2, "start.libraries": 2, "start.memory": 8})

    def test_what_is_missing_is_named(self):
        with self.assertRaises(MeasuringError) as raised:
            hosts.need("no-such-tool")
        self.assertIn("no-such-tool is missing: script/bootstrap bench", str(raised.exception))


class PageTest(unittest.TestCase):
    PAGE = "before\n<!-- script/bench writes x -->\nold\n<!-- up to here: x -->\nafter\n"

    def test_changes_between_the_marks_alone(self):
        once = page.refreshed(self.PAGE, "x", "| new |\n")
        self.assertEqual(once, self.PAGE.replace("old\n", "\n| new |\n\n"))
        self.assertEqual(page.refreshed(once, "x", "| new |\n"), once)

    def test_needs_its_marks(self):
        for text in ("", self.PAGE.replace("up to here", "up to there"), self.PAGE + self.PAGE,
                     self.PAGE.replace("before", "<!-- script/bench writes x -->"),
                     "\n".join(reversed(self.PAGE.splitlines())) + "\n"):
            with self.subTest(text=text), self.assertRaises(MeasuringError):
                page.refreshed(text, "x", "new")

    def test_this_trees_page_has_them(self):
        text = (ROOT / "docs/performance.md").read_text()
        self.assertIn("| new |", page.refreshed(text, "the table", "| new |"))

    @unittest.skipUnless(shutil.which("gnuplot"), "there is no gnuplot")
    def test_equal_figures_make_equal_plots(self):
        measured = [Figure("a", "calls", 30, limit=20), Figure("work.ratio", "work", 30, "", 20, "ratio", 1.2),
                    Figure("work.assembling", "of these", 36000, floor=9000, by="ratio"),
                    Figure("work.serialising", "of these", 22000)]
        with tempfile.TemporaryDirectory() as folder:
            def drawn(draw, given):
                file = pathlib.Path(folder, "plot.svg")
                draw(given, file)
                return file.read_bytes()
            for draw in (page.draw_budgets, page.draw_work):
                first = drawn(draw, measured)
                self.assertEqual(drawn(draw, measured), first)
                self.assertIn(b"#ffffff", first)  # a ground of its own
                more = [figures.Figure(one.name, one.what, one.ours * 1.1, floor=one.floor, by=one.by, limit=one.limit)
                        for one in measured]
                self.assertNotEqual(drawn(draw, more), first)


class ScriptTest(unittest.TestCase):
    def setUp(self):
        self.bench = script_bench()
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))

    def refused(self, *words):
        with contextlib.redirect_stderr(io.StringIO()) as errors, self.assertRaises(SystemExit) as ended:
            self.bench.read_arguments(words)
        self.assertEqual(ended.exception.code, 2)
        return errors.getvalue()

    def test_takes_rows_and_one_option(self):
        self.assertEqual(self.bench.read_arguments(["--quick", "entry", "size"]), ("--quick", ["entry", "size"]))
        self.assertEqual(self.bench.read_arguments([]), (None, []))
        self.assertIn("no row nonsense; there are: burst tls entry", self.refused("nonsense"))
        for words in (("--record", "entry"), ("--check", "--record"), ("--check", "size")):
            self.assertIn("do not go together", self.refused(*words))

    def test_tells_of_every_row(self):
        for name in rows.ROWS:
            self.assertIn(name, self.bench.__doc__)

    def test_the_guard_fails_above_the_margin_and_tells_how_to_record(self):
        recorded = self.folder / "benchmarks/recorded.txt"
        recorded.parent.mkdir()
        recorded.write_text(RECORDED)
        with mock.patch.object(self.bench, "ROOT", self.folder), mock.patch.object(self.bench, "RECORDED", recorded):
            for calls, code, said in ((20, 0, ""), (30, 1, "a.calls (calls): 30 instead of 20, 10 more"), (5, 0, "better than recorded")):
                with contextlib.redirect_stdout(io.StringIO()) as out, contextlib.redirect_stderr(out):
                    self.assertEqual(self.bench.check([Figure("a.calls", "calls", calls, recorded=True),
                                                       Figure("b.size", "size", 100, "KiB", recorded=True)]), code)
                self.assertIn(said, out.getvalue())
                self.assertEqual("script/bench --record" in out.getvalue(), bool(said))

    def test_the_check_fails_with_it_but_not_where_nothing_can_be_measured(self):
        (self.folder / "script/support").mkdir(parents=True)
        for file in ("script/check", "script/support/arguments.bash"):
            shutil.copy(ROOT / file, self.folder / file)
        stand_in = self.folder / "script/bench"
        for code, expected in ((0, 0), (1, 1), (3, 0)):
            stand_in.write_text(f"#!/bin/sh\n[ \"$*\" = --check ] && exit {code}\nexit 77\n")
            stand_in.chmod(0o755)
            result = subprocess.run([self.folder / "script/check", "counts"], capture_output=True, text=True, check=False,
                                    env={"PATH": os.environ["PATH"]})
            self.assertEqual(result.returncode, expected, result.stderr)


if __name__ == "__main__":
    unittest.main()
