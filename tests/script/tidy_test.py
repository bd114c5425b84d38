"""When script/check tidy reads a file again. The linter is played: it writes down what it was asked to read."""

import importlib.util
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import types
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
TIDY = ROOT / "script/support/tidy.py"

LINTER = """#!/bin/sh
[ "$1" = --version ] && { cat version; exit; }
for source; do :; done
echo "$source" >>read
echo ". $PWD/header.h" >&2
echo "$@" >>asked
echo "12 warnings generated." >&2
grep -q wrong "$source" header.h || exit 0
line=$(cat linter-line 2>/dev/null || echo 1)
echo "$source:$line:1: error: something is wrong"
exit 1
"""


class TidyTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        for name, text in {"a.cpp": "a", "b.cpp": "b", "header.h": "h", "version": "1", ".clang-tidy": "rules"}.items():
            (self.root / name).write_text(text)
        (self.root / "build").mkdir()
        self.compile_by("clang++")
        linter = self.root / "clang-tidy-16"
        linter.write_text(LINTER)
        linter.chmod(0o755)

    def compile_by(self, compiler):
        (self.root / "build/compile_commands.json").write_text(json.dumps(
            [{"directory": str(self.root), "file": name, "command": f"{compiler} -c {name}"} for name in ("a.cpp", "b.cpp")]))

    def compile_together(self):
        unity = self.root / "build/x.dir/Unity/unity_0.cxx"
        unity.parent.mkdir(parents=True)
        unity.write_text(f'/* generated */\n\n#include "{self.root}/a.cpp"\n\n#include "{self.root}/b.cpp"\n')
        (self.root / "build/compile_commands.json").write_text(json.dumps(
            [{"directory": str(self.root), "file": str(unity), "command": f"clang++ -c {unity}"}]))

    def tidy(self, *options, code=0):
        """The files that the linter reads now."""
        read = self.root / "read"
        read.unlink(missing_ok=True)
        result = subprocess.run([sys.executable, TIDY, *options, "build", "./a.cpp", "./b.cpp"], cwd=self.root, check=False,
                                env=dict(os.environ, PATH=f"{self.root}:{os.environ['PATH']}"),
                                capture_output=True, text=True)
        self.assertEqual((result.returncode, result.stderr), (code, ""), result.stdout)
        self.said = result.stdout
        return sorted(read.read_text().split()) if read.exists() else []

    def test_reads_each_file_once(self):
        self.assertEqual(self.tidy(), ["./a.cpp", "./b.cpp"])
        self.assertEqual(self.tidy(), [])
        self.assertEqual(self.said, "")

    def test_reads_a_changed_file_again(self):
        self.tidy()
        (self.root / "b.cpp").write_text("bb")
        self.assertEqual(self.tidy(), ["./b.cpp"])
        self.assertEqual(self.tidy(), [])

    def test_reads_what_includes_a_changed_header(self):
        self.tidy()
        (self.root / "header.h").write_text("hh")
        self.assertEqual(self.tidy(), ["./a.cpp", "./b.cpp"])

    def test_reads_all_again_by_other_rules_another_linter_or_another_compiler(self):
        for change in (lambda: (self.root / ".clang-tidy").write_text("other rules"),
                       lambda: (self.root / "version").write_text("2"),
                       lambda: self.compile_by("g++")):
            self.tidy()
            change()
            self.assertEqual(self.tidy(), ["./a.cpp", "./b.cpp"])

    def test_reads_together_what_is_compiled_together(self):
        (self.root / "a.cpp").write_text("one\ntwo")
        (self.root / "b.cpp").write_text("three\nfour\n")
        self.compile_together()
        text = f"{self.root}/build/together/x.dir-Unity-unity_0.cxx"
        self.assertEqual(self.tidy(), [text])
        self.assertEqual(pathlib.Path(text).read_text(), "one\ntwo\nthree\nfour\n")
        commands = json.loads((self.root / "build/together/compile_commands.json").read_text())
        self.assertEqual([(entry["file"], entry["command"]) for entry in commands],
                         [(file, f"clang++ -c {file}") for file in (text, f"{self.root}/a.cpp", f"{self.root}/b.cpp")])
        self.assertEqual(self.tidy(), [])
        (self.root / "b.cpp").write_text("three\nwrong\n")
        self.assertEqual(self.tidy(code=1), [text])
        self.assertIn(f"{self.root}/a.cpp:1:1: error: something is wrong", self.said)
        (self.root / "linter-line").write_text("4")
        self.tidy(code=1)
        self.assertIn(f"{self.root}/b.cpp:2:1: error: something is wrong", self.said)

    def test_reads_a_file_until_it_passes(self):
        (self.root / "a.cpp").write_text("wrong")
        self.assertEqual(self.tidy(code=1), ["./a.cpp", "./b.cpp"])
        self.assertIn("something is wrong", self.said)
        self.assertNotIn("warnings generated", self.said)
        self.assertNotIn("header.h", self.said)
        self.assertEqual(self.tidy(code=1), ["./a.cpp"])
        (self.root / "a.cpp").write_text("right")
        self.assertEqual(self.tidy(), ["./a.cpp"])
        self.assertEqual(self.tidy(), [])

    def test_reads_by_one_check_instead_of_the_rules_and_keeps_its_results_apart(self):
        self.tidy()
        self.assertNotIn("--checks", (self.root / "asked").read_text())
        self.assertEqual(self.tidy("--only", "a-check"), ["./a.cpp", "./b.cpp"])
        self.assertIn("--checks=-*,a-check ./b.cpp", (self.root / "asked").read_text())
        self.assertEqual(self.tidy("--only", "a-check"), [])
        self.assertEqual(self.tidy("--only", "another"), ["./a.cpp", "./b.cpp"])
        self.assertEqual(self.tidy(), [])


class EndlessCheckTest(unittest.TestCase):
    """A linter that does not come to an end every time."""

    def read(self, endless_times):
        specification = importlib.util.spec_from_file_location("tidy", TIDY)
        tidy = importlib.util.module_from_spec(specification)
        specification.loader.exec_module(tidy)
        with tempfile.TemporaryDirectory() as folder:
            linter = pathlib.Path(folder, "linter")
            linter.write_text(f"""#!/bin/sh
echo >>{folder}/begun
[ $(wc -l <{folder}/begun) -gt {endless_times} ] || exec sleep 60
""")
            linter.chmod(0o755)
            tidy.LINTER, tidy.SECONDS, tidy.ATTEMPTS = str(linter), 0.3, 3
            lint = types.SimpleNamespace(only="a-check", together=types.SimpleNamespace(folder=folder))
            return tidy.Lint.read(lint, "a.cpp")

    def test_is_begun_anew(self):
        self.assertEqual(self.read(endless_times=2).returncode, 0)

    def test_is_not_begun_for_ever(self):
        self.assertIsNone(self.read(endless_times=3))


if __name__ == "__main__":
    unittest.main()
