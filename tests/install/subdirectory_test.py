"""The library as a part of a host's own build."""

import pathlib
import tempfile
import unittest

import hosts


class SubdirectoryTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.work = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory(dir=hosts.BUILD)))

    def test_a_host_fetches_and_links_it_statically(self):
        folder = self.work / "fetch"
        archive = hosts.pack(self.work / "KXPublisher.tar")
        hosts.check_by_cmake(folder, "fetch", "g++", f"-DKX_ARCHIVE={archive}", "-DKX_BUILD_SHARED=OFF")
        self.assertNotIn("libKXPublisher", hosts.run("ldd", folder / "host17"))

        hosts.run("cmake", "--install", folder, "--prefix", self.work / "prefix")
        installed = [path.name for path in (self.work / "prefix").rglob("*") if path.is_file()]
        self.assertEqual(installed, ["host17"], "the library was installed with its host")

    def test_a_host_has_it_as_a_shared_library_unless_it_says_otherwise(self):
        for choice, file in (((), "libKXPublisher.so"), (("-DBUILD_SHARED_LIBS=OFF",), "libKXPublisher.a"),
                             (("-DBUILD_SHARED_LIBS=OFF", "-DKX_BUILD_SHARED=ON"), "libKXPublisher.so")):
            folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory(dir=self.work)))
            hosts.configure(hosts.HERE / "host", folder, "-DKX_WAY=subdirectory", f"-DKX_SOURCE={hosts.SOURCE}", *choice)
            rules = (folder / "build.ninja").read_text()
            self.assertIn(f"build KXPublisher/{file}", rules)
            self.assertNotIn("/lib/libKXPublisher", rules, "not where the host has its files")
            self.assertNotIn("-Wconversion -Wsign-conversion", rules)


if __name__ == "__main__":
    unittest.main()
