"""Every way of taking the library in: shared and static, installed (for CMake and for pkg-config) and as a part of the host's
build (add_subdirectory and FetchContent), with g++ and with clang, each in C, C++17, 20 and 23.

usage: matrix.py FOLDER     where everything is built
"""

import pathlib
import sys

import hosts


def check(name, function, *arguments):
    print(f"   {name}", flush=True)
    function(*arguments)


def main(work):
    archive = hosts.pack(work / "KXPublisher.tar")
    for kind, shared in (("shared", "ON"), ("static", "OFF")):
        built, prefix = work / f"library-{kind}", work / f"prefix-{kind}"
        # KX_PLATFORM is the device's; the simulated one comes along.
        # A shared library may be installed elsewhere than it was configured for; an archive looks for its table there.
        configured = [] if kind == "shared" else [f"-DCMAKE_INSTALL_PREFIX={prefix}"]
        hosts.configure(hosts.SOURCE, built, f"-DKX_BUILD_SHARED={shared}", "-DKX_BUILD_PROGRAMS=OFF",
                        "-DKX_BUILD_TESTS=OFF", *configured)
        hosts.build(built)
        told = "will look for its table of places" in hosts.install(work / f"elsewhere-{kind}", built)
        if told == (kind == "shared"):
            raise hosts.Failure(f"installed elsewhere, {kind}: {told=}")
        if "will look for" in hosts.install(prefix, built):
            raise hosts.Failure(f"a word too much at the installation of what is {kind}")
        check(f"{kind}, CMake package, C alone", hosts.check_host_in_c, work / f"{kind}-c", prefix)
        for compiler in hosts.COMPILERS:
            folder = work / f"{kind}-{compiler}"
            check(f"{kind}, CMake package, {compiler}", hosts.check_by_cmake, folder / "package", "package", compiler,
                  f"-DCMAKE_PREFIX_PATH={prefix}")
            check(f"{kind}, pkg-config, {compiler}", hosts.check_by_pkg_config, folder / "pkg-config", prefix, compiler)
            check(f"{kind}, add_subdirectory, {compiler}", hosts.check_by_cmake, folder / "subdirectory",
                  "subdirectory", compiler, f"-DKX_SOURCE={hosts.SOURCE}", f"-DKX_BUILD_SHARED={shared}")
            check(f"{kind}, FetchContent, {compiler}", hosts.check_by_cmake, folder / "fetch", "fetch", compiler,
                  f"-DKX_ARCHIVE={archive}", f"-DKX_BUILD_SHARED={shared}")


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    try:
        main(pathlib.Path(sys.argv[1]).resolve())
    except hosts.Failure as failure:
        sys.exit(str(failure))
