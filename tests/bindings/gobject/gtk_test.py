"""The GTK example, on a display of its own, as a client of kx-collector: its windows tell the lifecycle."""

import os
import shutil
import subprocess
import sys
import tempfile
import threading
import time
import unittest

import gi
gi.require_version("GdkPixbuf", "2.0")
from gi.repository import GdkPixbuf, GLib  # noqa: E402

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.append(os.path.join(HERE, "..", "..", "..", "examples", "demo"))
from programs import IDENTIFIER, PROGRAMS, Collector, Program  # noqa: E402

WIDTH, HEIGHT = 560, 520
PICTURE = os.path.join(os.environ.get("KX_RESULTS", "."), "gtk-sample.png")
PATIENCE = 30  # seconds
QUIET = 1.5  # seconds after which a message that is made at once would have arrived

# Each window gets its place without a click, and keys go to the one under the pointer. The font is the X server's own.
WINDOW_MANAGER_SETTINGS = "\n".join(["RandomPlacement", "IconifyByUnmapping", "NoTitle", "BorderWidth 0"] + [
    f'{name}Font "fixed"' for name in ["Icon", "IconManager", "Menu", "Resize", "Title"]])


class Display(Program):
    """An X server without a screen, and a window manager on it."""

    def __init__(self, directory):
        self.directory = directory
        reading, writing = os.pipe()
        super().__init__(shutil.which("Xvfb"), "-displayfd", str(writing), "-screen", "0", f"{WIDTH}x{HEIGHT}x24",
                         "-nolisten", "tcp", "-noreset", "-fbdir", directory, pass_fds=[writing])
        os.close(writing)
        with os.fdopen(reading) as number:
            self.name = ":" + number.readline().strip()

    def picture(self):
        """What is on it now: the frame buffer is a file in the format of xwd, in 32-bit words, then the pixels."""
        with open(os.path.join(self.directory, "Xvfb_screen0"), "rb") as file:
            content = file.read()
        header = [int.from_bytes(content[i:i + 4], "big") for i in range(0, 100, 4)]
        start, stride, colours = header[0], header[12], header[19]
        blue_first = content[start + 12 * colours:][:stride * HEIGHT]
        pixels = bytearray(len(blue_first))
        pixels[0::4], pixels[1::4], pixels[2::4] = blue_first[2::4], blue_first[1::4], blue_first[0::4]
        pixels[3::4] = b"\xff" * (len(pixels) // 4)
        return GdkPixbuf.Pixbuf.new_from_bytes(GLib.Bytes.new(bytes(pixels)), GdkPixbuf.Colorspace.RGB, True, 8, WIDTH,
                                               HEIGHT, stride)


class SessionBus(Program):
    def __init__(self):
        super().__init__(shutil.which("dbus-daemon"), "--session", "--nofork", "--print-address",
                         stdout=subprocess.PIPE)
        self.address = self.process.stdout.readline().strip()


class GtkHostTest(unittest.TestCase):
    def setUp(self):
        directory = self.enterContext(tempfile.TemporaryDirectory())
        self.display = self.enterContext(Display(directory))
        self.environment = {**os.environ, "DISPLAY": self.display.name, "GDK_BACKEND": "x11", "GSK_RENDERER": "cairo",
                            "DBUS_SESSION_BUS_ADDRESS": self.enterContext(SessionBus()).address, "HOME": directory,
                            "XDG_RUNTIME_DIR": directory, "LC_ALL": "C.UTF-8", "GTK_A11Y": "none"}
        with open(os.path.join(directory, ".twmrc"), "w", encoding="utf-8") as settings:
            settings.write(WINDOW_MANAGER_SETTINGS)
        self.enterContext(Program(shutil.which("twm"), env={**self.environment, "LC_ALL": "C"}))

        collector = self.enterContext(Collector(directory))
        self.messages = []
        threading.Thread(target=self.gather, args=[collector], daemon=True).start()
        self.command = [os.path.join(PROGRAMS, "kx-gtk-host"), "T", collector.address, IDENTIFIER, collector.ca_file]
        self.host = self.enterContext(Program(*self.command, env=self.environment))

    def gather(self, collector):
        for event in collector.events_until(time.monotonic() + 120):
            if event.get("endpoint") == "message" and event["status"] == 200:
                self.messages.append(event["document"][0])

    def eventually(self, condition, what):
        end = time.monotonic() + PATIENCE
        while not condition():
            self.assertIsNone(self.host.process.poll(), "it has ended")
            self.assertLess(time.monotonic(), end, what)
            time.sleep(0.05)

    def expect_message(self, number, cause):
        self.eventually(lambda: len(self.messages) >= number, f"message {number}, because {cause}")
        self.assertEqual(len(self.messages), number)

    def expect_silence(self, cause):
        number = len(self.messages)
        time.sleep(QUIET)
        self.assertEqual(len(self.messages), number, f"a message, although {cause}")

    def xdotool(self, *arguments):
        result = subprocess.run(["xdotool", *arguments], env=self.environment, capture_output=True, text=True,
                                check=False)
        return result.stdout.split()

    def windows(self):
        return self.xdotool("search", "--onlyvisible", "--name", "^KXPublisher$")

    def press(self, key):
        self.xdotool("mousemove", str(WIDTH // 2), str(HEIGHT // 2), "key", key)

    def test_its_windows_tell_the_lifecycle(self):
        self.eventually(lambda: len(self.windows()) == 1, "a window")
        self.expect_message(1, "it has started")
        self.assertEqual(self.messages[0]["bundleId"], "com.example.GtkHost")

        first = self.windows()[0]
        self.xdotool("windowminimize", first)
        self.expect_message(2, "its window is minimised")
        self.xdotool("windowmap", first)
        self.expect_message(3, "its window is back")
        self.xdotool("mousemove", "--window", first, "28", "27", "click", "1")  # its button, for a message of now
        time.sleep(QUIET)
        picture = self.display.picture()
        picture.savev(PICTURE, "png", [], [])
        self.assertGreater(len(set(picture.get_pixels()[0::4])), 50, "nothing is drawn")

        self.press("ctrl+n")
        self.eventually(lambda: len(self.windows()) == 2, "a second window")
        second = next(window for window in self.windows() if window != first)
        self.xdotool("mousemove", "1", "1", "windowminimize", second)  # the other one does not become the active one
        self.eventually(lambda: self.windows() == [first], "the first window alone")
        self.expect_silence("one of two windows is still there")
        self.press("ctrl+w")
        self.expect_message(4, "its last window is closed")
        self.assertEqual(self.windows(), [])

        with Program(*self.command, env=self.environment) as again:
            self.assertEqual(again.process.wait(PATIENCE), 0)
        self.eventually(lambda: len(self.windows()) == 1, "a window")
        self.expect_message(5, "it has been started again")
        self.press("ctrl+q")
        self.assertEqual(self.host.process.wait(PATIENCE), 0)


if __name__ == "__main__":
    unittest.main()
