"""What is in the built files: what the library exports, and how it and the programs are hardened.

usage: files_test.py [--write]   --write writes packaging/linux/symbols anew
"""

import os
import pathlib
import re
import subprocess
import unittest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
LIBRARY = os.environ["KX_LIBRARY"]
PROGRAMS = os.environ["KX_PROGRAMS"].split(":")
SYMBOLS = SOURCE / "packaging/linux/symbols"
DOOR = SOURCE / "include/KXPublisher"
LIST = "packaging/linux/symbols lists what hosts link to: it may grow (tests/install/files_test.py --write), not shrink"


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def exported(kinds_left_out="A"):  # the version itself
    """The names of the library's dynamic symbols."""
    for line in output("nm", "--dynamic", "--defined-only", "--demangle", LIBRARY).splitlines():
        kind, name = re.match(r"[0-9a-f]+ (.) (.*)", line).groups()
        if kind not in kinds_left_out:
            yield re.sub(r"@+KXPublisher_1$", "", name)


def promised():
    """Those that hosts link to: what is inline each host has for itself, and compilers differ in whether we have it, too."""
    return set(exported("AWVu"))


def private_functions():
    """Of the classes that are exported, but for what a header's own inline code calls, in a host."""
    for path in DOOR.rglob("*.h*"):
        if "simulated" in path.parts:  # another library, and an archive
            continue
        header = path.read_text()
        for name, body in re.findall(r"^(?:class|struct) KX_EXPORT (\w+)[^;{]*\{\n(.*?)^\};", header, re.M | re.S):
            for section in re.findall(r"^ private:\n(.*?)(?=^ \w+:|\Z)", body, re.M | re.S):
                for function in re.findall(r"^  (?!using|//)[^=/\n]*?\b(\w+)\(", section, re.M):
                    if len(re.findall(rf"\b{function}\(", header)) == 1 or function == name:
                        yield f"kx::{name}::{function}"


class ExportsTest(unittest.TestCase):
    def test_nothing_is_lost(self):
        lost = set(SYMBOLS.read_text().splitlines()) - promised()
        self.assertEqual(lost, set(), LIST)

    def test_all_is_declared_for_hosts(self):
        headers = "\n".join(path.read_text() for path in DOOR.rglob("*") if path.suffix in (".h", ".hpp"))
        classes = set(re.findall(r"\b(?:class|struct)(?: KX_EXPORT)? (\w+)", headers))
        functions = set(re.findall(r"^KX_EXPORT [^;{(]*?\b(\w+)\(", headers, re.M))
        constants = set(re.findall(r"^KX_CONSTANT [^;]*?\b(\w+)(?:\[\])?;", (DOOR / "KXConstants.h").read_text(), re.M))
        self.assertGreater(len(constants), 30)
        for name in exported():
            plain = re.sub(r"^(typeinfo name for |typeinfo for |vtable for |VTT for |(non-)?virtual thunk to )", "", name)
            owner = re.match(r"kx::(\w+)(::|$)", plain)
            function = re.match(r"kx::(\w+)(\[abi:\w+\])?\(", plain)
            with self.subTest(symbol=name):
                self.assertTrue((owner and owner[1] in classes) or (function and function[1] in functions) or
                                plain in constants, f"{name} is declared in no header that is installed")

    def test_what_is_private_is_hidden(self):
        private = set(private_functions())
        self.assertIn("kx::KXPublisher::report", private)
        names = {re.match(r"[\w:~]+", name)[0] for name in exported()}
        self.assertEqual(private & names, set(), "KX_HIDDEN is missing in a class that is exported")


class HardeningTest(unittest.TestCase):
    def test_the_files_are_hardened(self):
        for file in [LIBRARY, *PROGRAMS]:
            with self.subTest(file=file):
                segments = output("readelf", "--wide", "--program-headers", file)
                stack = next(line for line in segments.splitlines() if "GNU_STACK" in line)
                self.assertRegex(stack, r" RW +0x", "the stack is executable")
                self.assertIn("GNU_RELRO", segments)
                dynamic = output("readelf", "--wide", "--dynamic", file)
                self.assertRegex(dynamic, r"FLAGS\).*BIND_NOW|FLAGS_1\).*NOW")
                self.assertIn("DYN (", output("readelf", "--wide", "--file-header", file))
                if file != LIBRARY:
                    self.assertRegex(dynamic, r"FLAGS_1\).*PIE")
                symbols = output("readelf", "--wide", "--dyn-syms", file)
                self.assertIn("__stack_chk_fail", symbols)

    @unittest.skipUnless(os.environ.get("KX_OPTIMISED") == "1", "only what is optimised is fortified")
    def test_the_library_calls_checked_functions(self):
        self.assertRegex(output("readelf", "--wide", "--dyn-syms", LIBRARY), r"__\w+_chk@")


if __name__ == "__main__":
    import sys
    if sys.argv[1:] == ["--write"]:
        SYMBOLS.write_text("".join(f"{name}\n" for name in sorted(promised())))
    else:
        unittest.main()
