"""The programs in docs/collector.md, run as they stand there.

usage: examples_test.py CLASS PAGE HOST
"""

import os
import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

from collector import PROGRAM


class ExamplesTest(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.folder = Path(temporary.name)
        programs = self.folder / "programs"
        programs.mkdir()
        (programs / "kx-collector").symlink_to(PROGRAM)
        (programs / "kx-host").symlink_to(HOST)
        self.environment = {**os.environ, "XDG_STATE_HOME": str(self.folder),
                            "PATH": f"{programs}:{os.environ['PATH']}"}

    def run_example(self, language, *interpreter):
        examples = re.findall(rf"^```{language}\n(.*?)^```$", PAGE.read_text(), re.MULTILINE | re.DOTALL)
        self.assertEqual(len(examples), 1)
        file = self.folder / "example"
        file.write_text(examples[0])
        result = subprocess.run([*interpreter, file], env=self.environment, capture_output=True, text=True, timeout=200)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        return result

    def test_shell(self):
        self.assertIn('"sdkName": "KXPublisher iOS"', self.run_example("bash", "bash").stdout)

    def test_python(self):
        self.assertIn("Ran 2 tests", self.run_example("python", sys.executable).stderr)


if __name__ == "__main__":
    PAGE, HOST = (Path(argument).resolve() for argument in sys.argv[2:4])
    unittest.main(argv=sys.argv[:2])
