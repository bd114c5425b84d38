"""What script/check docs finds in documents, and how code is taken out of them."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
SUPPORT = ROOT / "script/support"
sys.path.insert(0, str(SUPPORT))

from pages import Page, anchor_of  # noqa: E402 (where it is has to be known first)

REFERENCE = """# Message reference

| key | type | presence | value | constant |
|---|---|---|---|---|
| `ifa` | text | always | a UUID | `dataKeyIfa` |
| `id` | text | always | a UUID | `dataKeyEventId` |

| key | Linux | iOS |
|---|---|---|
| `ifa` | the host | the system |
"""
TREE = {
    "docs/index.md": "# Start\n\n[All](message-reference.md), [how](behaviour.md#the-log)\n",
    "docs/message-reference.md": REFERENCE,
    "docs/behaviour.md": "# Behaviour\n\n## The log\n\n| line | cause |\n|---|---|\n| `Error: %lu` | a failure |\n",
    "include/KXPublisher/KXConstants.h": '/** "ifa", text. */\nKX_CONSTANT const char *const dataKeyIfa;\n'
                                         '/** "id", text. */\nKX_CONSTANT const char *const dataKeyEventId;\n',
    "publisher/Own.cpp": 'constexpr const char *dataKeyIfa = "ifa";\nconstexpr const char *dataKeyEventId = "id";\n',
    "transport/Sending.cpp": 'KXLogError("Error: %lu", {status});\n',
    "script/check": "#!/bin/sh\necho 'usage: script/check [format] [--deep]'\n",
    "examples/host/Arguments.cpp": '{"hostname", 0}\n',
    "tools/collector/Options.cpp": "",
    "CMakeLists.txt": "option(KX_INSTALL)\nadd_library(KXPublisher)\nadd_executable(kx-host)\n",
    "CMakePresets.json": '{"name": "tests"}',
}


class DocumentsTest(unittest.TestCase):
    def complaints(self, text="", **changes):
        """About that tree, with `text` added to its first page, and with other files in it."""
        with tempfile.TemporaryDirectory() as root:
            for name, content in {**TREE, **changes.get("files", {})}.items():
                file = pathlib.Path(root, name)
                file.parent.mkdir(parents=True, exist_ok=True)
                file.write_text(content + (text if name == "docs/index.md" else ""))
                if name.startswith("script/"):
                    file.chmod(0o755)
            result = subprocess.run([sys.executable, SUPPORT / "documents.py", root], capture_output=True, text=True,
                                    check=False)
            self.assertEqual(result.stderr, "")
            self.assertEqual(result.returncode, 1 if result.stdout else 0)
            return result.stdout

    def test_holds_code_that_has_a_path_against_that_file(self):
        example = {"examples/ios/App.swift": "import UIKit\n"}
        shown = "\n```swift examples/ios/App.swift\n%s\n```\n"
        self.assertEqual(self.complaints(shown % "import UIKit", files=example), "")
        self.assertIn("not the same as examples/ios/App.swift", self.complaints(shown % "import SwiftUI", files=example))
        self.assertIn("no such file: examples/ios/App.swift", self.complaints(shown % "import UIKit"))

    def test_is_content_with_documents_that_are_right(self):
        self.assertEqual(self.complaints(
            "\n`docs/index.md`, `KX_INSTALL`, `KXPublisher::KXPublisher`, `dataKeyIfa`, [here](#start), "
            "[there](https://example.com/)\n\n    script/check format --deep    some words\n    cmake --preset tests\n"
            "    build/bin/kx-host --hostname localhost\n"), "")

    def test_sees_each_link_that_leads_nowhere(self):
        for text, complaint in (("[a](none.md)", "no such file: none.md"), ("[a](#none)", "no such heading: #none"),
                                ("![a](none.svg)", "no such file: none.svg"),
                                ("[a](behaviour.md#none)", "no such heading: behaviour.md#none"),
                                ("[a](http://example.com)", "a link that is not https")):
            with self.subTest(text=text):
                self.assertIn(f"docs/index.md:5: {complaint}", self.complaints(f"\n{text}\n"))

    def test_sees_each_name_of_what_there_is_not(self):
        for name, complaint in (("`script/none`", "file: script/none"), ("`KX_NONE`", "option: KX_NONE"),
                                ("`KXPublisher::None`", "target: KXPublisher::None"),
                                ("`dataKeyNone`", "constant: dataKeyNone"),
                                ("```cmake\nset(KX_NONE ON)\n```", "option: KX_NONE")):
            with self.subTest(name=name):
                self.assertIn(f"no such {complaint}", self.complaints(f"\n{name}\n"))

    def test_sees_each_command_that_cannot_work(self):
        for command, complaint in (("script/check --none", "script/check does not tell of --none"),
                                   ("script/check none", "script/check does not tell of none"),
                                   ("cmake --preset none", "no such preset: none"),
                                   ("cmake --build build --target none", "no such target: none"),
                                   ("build/bin/kx-none", "no such program: kx-none"),
                                   ("sudo build/bin/kx-host --none", "kx-host has no option --none")):
            for text in (f"\n    {command}\n", f"\n```sh\n{command}\n```\n"):
                with self.subTest(text=text):
                    self.assertIn(complaint, self.complaints(text))

    def test_sees_a_page_that_nobody_finds(self):
        self.assertIn("docs/lost.md is linked from nowhere", self.complaints(files={"docs/lost.md": "# Lost\n"}))

    def test_holds_the_message_reference_against_the_library(self):
        header = TREE["include/KXPublisher/KXConstants.h"]
        more = header + '/** "dnt", integer. */\nKX_CONSTANT const char *const dataKeyDnt;\n'
        self.assertIn("dataKeyDnt is None there", self.complaints(files={"include/KXPublisher/KXConstants.h": more}))
        self.assertIn("dataKeyIfa is idfa there", self.complaints(
            files={"docs/message-reference.md": REFERENCE.replace("| `ifa` | text", "| `idfa` | text")}))
        self.assertIn("dataKeyIfa is ifa there, and idfa in the library", self.complaints(
            files={"publisher/Own.cpp": TREE["publisher/Own.cpp"].replace('"ifa"', '"idfa"')}))
        self.assertIn("nothing tells where each platform has ifa from", self.complaints(
            files={"docs/message-reference.md": REFERENCE.replace("| `ifa` | the host", "| `id` | the host")}))

    def test_holds_the_log_against_the_library(self):
        self.assertIn("does not tell of the log line: New: %@", self.complaints(
            files={"transport/Sending.cpp": TREE["transport/Sending.cpp"] + 'KXLogError(R"(New: %@)", {text});\n'}))
        self.assertIn("tells of a log line that is logged nowhere: Error: %lu", self.complaints(
            files={"transport/Sending.cpp": ""}))

    def test_reads_a_page_as_its_readers_do(self):
        with tempfile.TemporaryDirectory() as folder:
            file = pathlib.Path(folder, "page.md")
            file.write_text("# A `b` [c](d.md)!\n\ntext `e(f)`\n\n    g\n\n    h\n\n```cpp I.h\n[j](k)\n```\n## A b c\n")
            page = Page(file, folder)
            self.assertEqual(list(page.anchors()), ["a-b-c", "a-b-c-1"])
            self.assertEqual(list(page.links()), [(1, "d.md")])
            self.assertEqual([(code.language, code.name, code.line, code.text) for code in page.codes],
                             [("", "", 5, "g\n\nh\n\n"), ("cpp", "I.h", 10, "[j](k)\n")])
            self.assertEqual(anchor_of("What iOS gives, & more"), "what-ios-gives--more")


if __name__ == "__main__":
    unittest.main()
