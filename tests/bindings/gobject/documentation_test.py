"""docs/other-languages.md shows the examples as they are."""

import os
import re
import unittest

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "..")
PAGE = os.path.join(ROOT, "docs", "other-languages.md")


def text(*path):
    with open(os.path.join(ROOT, *path), encoding="utf-8") as file:
        return file.read()


class DocumentationTest(unittest.TestCase):
    maxDiff = None

    def test_shows_the_examples(self):
        snippets = re.findall(r"^\[(examples/\S+)\]\(\.\./\1\):\n\n```\w*\n(.*?)^```$", text(PAGE),
                              re.MULTILINE | re.DOTALL)
        self.assertEqual(sorted(name for name, _ in snippets),
                         ["examples/c/CMakeLists.txt", "examples/c/main.c", "examples/gtk/lifecycle.c",
                          "examples/javascript/main.js", "examples/python/main.py", "examples/vala/main.vala"])
        for name, snippet in snippets:
            self.assertEqual(snippet, text(name), name)

    def test_the_example_in_python_has_ten_lines(self):
        self.assertEqual(len(text("examples/python/main.py").splitlines()), 10)


if __name__ == "__main__":
    unittest.main()
