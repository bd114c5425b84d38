"""What script/check layers finds."""

import pathlib
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
LAYERS = ROOT / "script/support/layers.py"

HOUSE = {
    "include/KXPublisher/KXPublisher.hpp": '#include "KXPublisher/platform/Clock.h"',
    "include/KXPublisher/platform/Clock.h": '#include "KXPublisher/platform/foundation/Value.h"\n#include <string>',
    "include/KXPublisher/platform/foundation/Value.h": "",
    "publisher/KXPublisher.cpp": '#include "KXPublisher/KXPublisher.hpp"\n#include "publisher/Own.h"',
    "publisher/Own.h": "#pragma once",
    "providers/KXData.cpp": '#include "KXPublisher/platform/Clock.h"',
    "platform/linux/LinuxClock.cpp": '#include "KXPublisher/platform/Clock.h"\n#include "platform/linux/bus/Bus.h"',
    "platform/linux/bus/Bus.h": "",
    "bindings/objective-c/ObjectiveCPublisher.mm": "#import <KXPublisher/KXPublisher.hpp>",
}


class LayersTest(unittest.TestCase):
    def complaints(self, **changes):
        """About that house, with other files in it."""
        with tempfile.TemporaryDirectory() as root:
            for name, text in {**HOUSE, **changes.pop("files")}.items():
                file = pathlib.Path(root, name)
                file.parent.mkdir(parents=True, exist_ok=True)
                file.write_text(text)
            result = subprocess.run([sys.executable, LAYERS, root], capture_output=True, text=True, check=False)
            self.assertEqual(result.stderr, "")
            self.assertEqual(result.returncode, 1 if result.stdout else 0)
            return result.stdout

    def test_is_content_with_a_house_in_order(self):
        self.assertEqual(self.complaints(files={}), "")

    def test_sees_an_include_from_a_floor_above(self):
        said = self.complaints(files={"providers/KXData.cpp": '#include <KXPublisher/KXPublisher.hpp>'})
        self.assertIn("providers/KXData.cpp includes include/KXPublisher/KXPublisher.hpp, which is on a floor above", said)

    def test_takes_a_public_header_for_a_part_of_its_room(self):
        said = self.complaints(files={"include/KXPublisher/platform/foundation/Value.h":
                                      '#include "KXPublisher/platform/Clock.h"',
                                      "include/KXPublisher/platform/Clock.h": ""})
        self.assertIn("which is on a floor above platform/foundation", said)

    def test_sees_the_house_include_a_device(self):
        said = self.complaints(files={"providers/KXData.cpp": '#include "platform/linux/bus/Bus.h"'})
        self.assertIn("the house knows nothing of platform/linux", said)

    def test_sees_a_device_include_from_above_the_seam(self):
        said = self.complaints(files={"platform/linux/bus/Bus.h": '#include "KXPublisher/KXPublisher.hpp"'})
        self.assertIn("which is above the seam", said)

    def test_sees_a_device_include_a_binding(self):
        said = self.complaints(files={"platform/apple/AppleBus.mm": '#import "bindings/objective-c/Face.h"', "bindings/objective-c/Face.h": ""})
        self.assertIn("which is above the seam", said)

    def test_sees_the_house_include_a_binding(self):
        said = self.complaints(files={"publisher/Own.h": '#include "bindings/objective-c/Face.h"', "bindings/objective-c/Face.h": ""})
        self.assertIn("which is on a floor above publisher", said)

    def test_sees_a_device_include_another(self):
        said = self.complaints(files={"platform/apple/AppleBus.mm": '#import "platform/linux/bus/Bus.h"'})
        self.assertIn("which is another device's", said)

    def test_sees_the_library_include_what_stands_around_it(self):
        said = self.complaints(files={"providers/KXData.cpp": '#include "tools/Tool.h"', "tools/Tool.h": ""})
        self.assertIn("which is not the library's", said)

    def test_sees_a_folder_that_has_no_floor(self):
        said = self.complaints(files={"include/KXPublisher/attic/Chest.h": ""})
        self.assertIn("include/KXPublisher/attic/Chest.h is in a folder without a floor", said)

    def test_sees_a_circle_of_rooms(self):
        said = self.complaints(files={"platform/linux/LinuxClock.h": "",
                                      "platform/linux/bus/Bus.h": '#include "platform/linux/LinuxClock.h"'})
        self.assertIn("a circle of folders: platform/linux -> platform/linux/bus -> platform/linux", said)

    def test_sees_a_circle_on_one_floor(self):
        said = self.complaints(files={"providers/A.h": '#include "transport/B.h"', "providers/C.h": "",
                                      "transport/B.h": '#include "providers/C.h"'})
        self.assertIn("a circle of folders: providers -> transport -> providers", said)

    def test_is_not_content_with_nothing(self):
        with tempfile.TemporaryDirectory() as root:
            result = subprocess.run([sys.executable, LAYERS, root], capture_output=True, text=True, check=False)
            self.assertEqual(result.returncode, 1)


if __name__ == "__main__":
    unittest.main()
