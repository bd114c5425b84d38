"""The constants of KxPublisher are those of the library: the same ones, with the same values."""

import ctypes
import os
import re
import unittest

import gi
gi.require_version("KxPublisher", "1.0")
from gi.repository import KxPublisher  # noqa: E402

HEADER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "..", "include", "KXPublisher",
                      "KXConstants.h")
DECLARATION = re.compile(r"^KX_CONSTANT const (double |unsigned |unsigned char |char \*const |char \*)(\w+)(?:\[\])?;",
                         re.MULTILINE)


def exported_constants():
    """What KXConstants.h declares, with the values that the library exports."""
    library = ctypes.CDLL(os.environ["KX_LIBRARY"])
    with open(HEADER, encoding="utf-8") as file:
        header = file.read()
    values = {}
    for kind, name in DECLARATION.findall(header):
        if kind == "double ":
            values[name] = ctypes.c_double.in_dll(library, name).value
        elif kind == "unsigned ":
            values[name] = ctypes.c_uint.in_dll(library, name).value
        elif kind == "unsigned char ":
            values[name] = ctypes.string_at(ctypes.addressof(ctypes.c_char.in_dll(library, name))).decode()
        else:
            values[name] = ctypes.c_char_p.in_dll(library, name).value.decode()
    assert len(values) == header.count("\nKX_CONSTANT "), "a declaration that this test does not understand"
    return values


def introspected_name(name):
    """dataKeyIfa is DATA_KEY_IFA; the library's own prefix is the namespace's business."""
    return re.sub(r"(?<=[a-z0-9])(?=[A-Z])", "_", re.sub(r"^(kx|KX|k(?=[A-Z]))", "", name)).upper()


class ConstantsTest(unittest.TestCase):
    maxDiff = None

    def test_are_those_of_the_library(self):
        expected = {introspected_name(name): value for name, value in exported_constants().items()}
        self.assertGreater(len(expected), 50)
        actual = {name: getattr(KxPublisher, name) for name in dir(KxPublisher) if re.fullmatch("[A-Z][A-Z_]+", name)}
        self.assertEqual(actual, expected)


if __name__ == "__main__":
    unittest.main()
