"""How every script answers for its arguments, before it does anything."""

import os
import pathlib
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
SCRIPTS = sorted(file for file in [*(ROOT / "script").iterdir(), ROOT / ".ci/run"]
                 if file.is_file() and os.access(file, os.X_OK))
BAD_ARGUMENTS = 2  # exit code

# What would install, configure or build.
TOOLS = ["apt-get", "sudo", "dpkg-query", "cmake", "ninja", "ctest", "xcodebuild", "brew", "doxygen"]


class ScriptsTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.used = pathlib.Path(folder.name, "used")
        for tool in TOOLS:
            file = pathlib.Path(folder.name, tool)
            file.write_text(f"#!/bin/sh\necho {tool} >>{self.used}\nexit 1\n")
            file.chmod(0o755)
        self.environment = {"PATH": f"{folder.name}:/usr/bin:/bin"}

    def run_script(self, script, *arguments, folder=ROOT):
        result = subprocess.run([os.path.relpath(script, folder), *arguments] if folder == ROOT
                                else ["./" + script.name, *arguments], cwd=folder, env=self.environment,
                                capture_output=True, text=True, check=False, stdin=subprocess.DEVNULL)
        self.assertFalse(self.used.exists(), f"{script} has begun its work")
        return result

    def test_there_are_scripts(self):
        names = [script.name for script in SCRIPTS]
        for name in ("bootstrap", "build", "check", "demo", "docs", "run", "test"):
            self.assertIn(name, names)

    def test_each_tells_its_usage(self):
        for script in SCRIPTS:
            for folder in (ROOT, script.parent):
                with self.subTest(script=script.name, folder=folder):
                    result = self.run_script(script, "--help", folder=folder)
                    self.assertEqual((result.returncode, result.stderr), (0, ""))
                    self.assertIn(f"usage: {script.relative_to(ROOT)}", result.stdout)

    def test_each_refuses_what_it_does_not_know(self):
        for script in SCRIPTS:
            with self.subTest(script=script.name):
                result = self.run_script(script, "--no-such-argument")
                self.assertEqual((result.returncode, result.stdout), (BAD_ARGUMENTS, ""))
                self.assertIn("--no-such-argument", result.stderr)

    def test_the_check_takes_no_deep_part_for_another(self):
        check = ROOT / "script/check"
        for arguments in (["swift"], ["format", "nonsense"], [""], ["--deep"], ["--deep", "format"]):
            with self.subTest(arguments=arguments):
                result = self.run_script(check, *arguments)
                self.assertEqual((result.returncode, result.stdout), (BAD_ARGUMENTS, ""))


if __name__ == "__main__":
    unittest.main()
