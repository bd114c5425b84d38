"""What `cmake --install` puts down, used as other people use it."""

import pathlib
import tempfile
import unittest

import hosts
from hosts import attempt, build, configure, pkg_config, run


class InstallTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.addClassCleanup(cls.restore, {file: file.read_text() for file in hosts.BUILD.glob("install_manifest*.txt")})
        cls.work = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory(dir=hosts.BUILD)))
        cls.prefix = cls.work / "prefix"
        hosts.install(cls.prefix)

    @staticmethod
    def restore(manifests):
        """So that the target `uninstall` takes away what a person has installed."""
        for file in hosts.BUILD.glob("install_manifest*.txt"):
            file.unlink()
        for file, text in manifests.items():
            file.write_text(text)

    def test_a_host_finds_it_by_cmake(self):
        hosts.check_by_cmake(self.work / "by-cmake", "package", "g++", f"-DCMAKE_PREFIX_PATH={self.prefix}")

    def test_a_host_finds_it_by_pkg_config(self):
        hosts.check_by_pkg_config(self.work / "by-pkg-config", self.prefix, "g++")

    def test_the_examples_build_as_they_stand(self):
        for example in ("minimal", "simulated"):
            folder = self.work / example
            configure(hosts.SOURCE / "examples" / example, folder, f"-DCMAKE_PREFIX_PATH={self.prefix}")
            build(folder)
        run(self.work / "simulated/simulated")

    def test_the_program_of_the_readme_builds_as_it_stands(self):
        folder = self.work / "readme"
        folder.mkdir()
        programs = hosts.readme_programs()
        self.assertIn("main.cpp", programs)
        for name, text in programs.items():
            (folder / name).write_text(text)
        run("g++", "-std=c++17", "-Wall", "-Werror", folder / "main.cpp", "-o", folder / "main",
            *pkg_config(self.prefix, "--cflags", "--libs", "KXPublisher", "gio-2.0"))
        if "CMakeLists.txt" in programs:
            configure(folder, folder / "build", f"-DCMAKE_PREFIX_PATH={self.prefix}")
            build(folder / "build")

    def test_a_host_in_c_alone_finds_it_by_cmake(self):
        hosts.check_host_in_c(self.work / "c", self.prefix)

    def test_every_header_finds_what_it_includes(self):
        folder = self.prefix / "include"
        names = sorted(path.relative_to(folder) for path in folder.rglob("*") if path.is_file())
        self.assertGreater(len(names), 50)
        (self.work / "headers.cpp").write_text("".join(f"#include <{name}>\n" for name in names))
        run("g++", "-std=c++17", "-fsyntax-only", f"-I{folder}", self.work / "headers.cpp")
        run("gcc", "-std=c99", "-Wall", "-Wextra", "-Wpedantic", "-Werror", "-fsyntax-only", f"-I{folder}", "-include",
            "KXPublisher/KXConstants.h", "-xc", "/dev/null")

    def find_package(self, arguments, *definitions):
        """What CMake says to a project that looks for the library like this; its exit code first."""
        folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory(dir=self.work)))
        (folder / "CMakeLists.txt").write_text(
            "cmake_minimum_required(VERSION 3.25)\nproject(asking LANGUAGES CXX)\n"
            f"find_package(KXPublisher {arguments})\n"
            'message("found: ${KXPublisher_FOUND}; ${KXPublisher_NOT_FOUND_MESSAGE}")\n')
        return attempt("cmake", "-S", folder, "-B", folder / "build", "-G", "Ninja",
                       f"-DCMAKE_PREFIX_PATH={self.prefix}", *definitions)

    def test_find_package_says_what_is_missing(self):
        code, text = self.find_package("1.0 COMPONENTS Simulated")
        self.assertEqual((code, "found: TRUE" in text or "found: 1" in text), (0, True), text)
        code, text = self.find_package("1.0 QUIET COMPONENTS Simulated Teleporter")
        self.assertEqual(code, 0, text)
        self.assertIn("no component Teleporter", text)
        self.assertNotIn("Warning", text)
        code, text = self.find_package("2.0 QUIET")
        self.assertEqual((code, "found: 0" in text), (0, True), text)
        code, text = self.find_package("1.0 REQUIRED COMPONENTS Teleporter")
        self.assertNotEqual(code, 0)
        self.assertIn("no component Teleporter", text)

    def test_uninstalling_leaves_nothing(self):
        prefix = self.work / "to-be-removed"
        hosts.install(prefix)
        run("cmake", "--install", hosts.BUILD, "--prefix", prefix, "--component", "Programs")
        self.assertTrue((prefix / "bin/kx-host").exists())
        stranger = prefix / "include/KXPublisher/not-ours.h"
        stranger.write_text("")
        installed = sum(path != stranger and not path.is_dir() for path in prefix.rglob("*"))
        text = run("cmake", "-D", f"KX_BINARY_DIR={hosts.BUILD}", "-P", hosts.SOURCE / "cmake/KXUninstalling.cmake")
        self.assertIn(f"Removed {installed} files", text)
        self.assertEqual([path for path in prefix.rglob("*") if not path.is_dir()], [stranger])
        left = [path for path in prefix.rglob("*KXPublisher*") if path.is_dir()]
        self.assertEqual(left, [stranger.parent])


if __name__ == "__main__":
    unittest.main()
