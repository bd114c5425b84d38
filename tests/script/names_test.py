"""What script/check format finds in names."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

NAMES = pathlib.Path(__file__).resolve().parents[2] / "script/support/names.py"


class NamesTest(unittest.TestCase):
    def complaints(self, *texts):
        """About files with these texts."""
        with tempfile.TemporaryDirectory() as folder:
            files = [pathlib.Path(folder, f"{number}.cpp") for number in range(len(texts))]
            for file, text in zip(files, texts):
                file.write_text(text, encoding="utf-8")
            result = subprocess.run([sys.executable, NAMES, *files], capture_output=True, text=True, check=False)
            self.assertEqual(result.stderr, "")
            self.assertEqual(result.returncode, 1 if result.stdout else 0)
            return result.stdout.replace(folder + "/", "").splitlines()

    def test_is_content_with_names_of_their_own(self):
        self.assertEqual(self.complaints("int first = 0, second = first;\n// an arrow \u203a in a comment"), [])

    def test_sees_each_pair_of_signs_that_look_alike(self):
        for one, other in (("x0", "xO"), ("x1", "xl"), ("Ix", "lx"), ("modern", "modem"), ("vvide", "wide")):
            with self.subTest(one):
                self.assertEqual(self.complaints(f"int {one}, {other};"), [f"0.cpp: {' and '.join(sorted((one, other)))} look alike"])

    def test_sees_what_looks_alike_by_two_of_them(self):
        self.assertEqual(self.complaints("int I0, lO;"), ["0.cpp: I0 and lO look alike"])

    def test_leaves_names_of_different_files_alone(self):
        self.assertEqual(self.complaints("int x0;", "int xO;"), [])

    def test_sees_letters_of_another_script(self):
        self.assertEqual(self.complaints("int x;", "int \u0445;"), ["1.cpp: \u0445 has letters beyond ASCII"])


if __name__ == "__main__":
    unittest.main()
