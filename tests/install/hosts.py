"""How hosts take the library in: installed, for CMake and for pkg-config, or as a part of their own build."""

import os
import pathlib
import re
import shutil
import subprocess
import tarfile

SOURCE = pathlib.Path(__file__).resolve().parents[2]
HERE = SOURCE / "tests/install"
BUILD = pathlib.Path(os.environ.get("KX_BUILD", SOURCE / "build"))
COMPILERS = {"g++": ("gcc", "g++"), "clang": ("clang-16", "clang++-16")}
STANDARDS = (17, 20, 23)
STRICT = ["-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Wsign-conversion", "-Wshadow", "-Wold-style-cast",
          "-Wcast-qual", "-Wcast-align", "-Wundef", "-Wfloat-equal", "-Wdouble-promotion", "-Wformat=2",
          "-Wnon-virtual-dtor", "-Woverloaded-virtual", "-Wnull-dereference", "-Wextra-semi", "-Weffc++", "-Werror"]
OF_GCC = ["-Wduplicated-cond", "-Wlogical-op", "-Wuseless-cast", "-Wredundant-decls", "-Wsuggest-override",
          "-Wzero-as-null-pointer-constant"]


class Failure(Exception):
    pass


def attempt(*command, folder=None, **environment):
    """Its exit code, and all that it printed."""
    result = subprocess.run([str(word) for word in command], cwd=folder, text=True, check=False,
                            env={**os.environ, **{name: str(value) for name, value in environment.items()}},
                            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    return result.returncode, result.stdout


def run(*command, folder=None, **environment):
    """What it printed; a failure when it failed."""
    code, output = attempt(*command, folder=folder, **environment)
    if code != 0:
        raise Failure(f"{' '.join(map(str, command))}: exit code {code}\n{output}")
    return output


def install(prefix, build=BUILD):
    return run("cmake", "--install", build, "--prefix", prefix)


def library_folder(prefix):
    return next(pathlib.Path(prefix).rglob("KXPublisher.pc")).parent.parent


def cmake_compilers(compiler):
    c, cxx = COMPILERS[compiler]
    launcher = shutil.which("ccache")
    return [f"-DCMAKE_C_COMPILER={c}", f"-DCMAKE_CXX_COMPILER={cxx}",
            *([f"-DCMAKE_{language}_COMPILER_LAUNCHER={launcher}" for language in ("C", "CXX")] if launcher else [])]


def configure(source, build, *definitions, compiler="g++"):
    return run("cmake", "-S", source, "-B", build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
               *cmake_compilers(compiler), *definitions)


def build(folder, *targets):
    # The library in a host's folder is the library in any other folder.
    return run("cmake", "--build", folder, "-j", "2", *(["--target", *targets] if targets else []),
               CCACHE_BASEDIR=os.path.commonpath([folder, SOURCE]), CCACHE_NOHASHDIR=1)


def pkg_config(prefix, *arguments):
    return run("pkg-config", *arguments, PKG_CONFIG_PATH=library_folder(prefix) / "pkgconfig").split()


def pack(archive):
    """The files of this tree as they are now, as FetchContent would fetch them."""
    names = run("git", "-C", SOURCE, "ls-files", "--cached", "--others", "--exclude-standard").splitlines()
    with tarfile.open(archive, "w") as packed:
        for name in names:
            if (SOURCE / name).exists():
                packed.add(SOURCE / name, f"KXPublisher/{name}")
    return archive


def check_host_programs(folder, **environment):
    """Runs what the host project has built in `folder`."""
    for standard in STANDARDS:
        country = run(folder / f"host{standard}", **environment)
        if not country.endswith("DE\n"):
            raise Failure(f"{folder}/host{standard} finds Berlin in {country!r}")
    run(folder / "host14", **environment)
    run(folder / "host-in-c", **environment)
    run(folder / "host-test", **environment)


def check_by_cmake(folder, way, compiler, *definitions):
    """Builds the host project in `folder` and runs it, with the library taken in by one of CMake's ways."""
    configure(HERE / "host", folder, f"-DKX_WAY={way}", *definitions, compiler=compiler)
    build(folder)
    check_host_programs(folder)


def check_by_pkg_config(folder, prefix, compiler):
    """The same, by hand and with pkg-config."""
    folder.mkdir(parents=True)
    c, cxx = COMPILERS[compiler]
    library = pkg_config(prefix, "--cflags", "--libs", "KXPublisher")
    gio = pkg_config(prefix, "--cflags", "--libs", "gio-2.0")
    gio = [word.replace("-I", "-isystem", 1) if word.startswith("-I") else word for word in gio]
    warnings = STRICT + (OF_GCC if compiler == "g++" else [])
    for standard in (*STANDARDS, 14):
        code, output = attempt(cxx, f"-std=c++{'2b' if standard == 23 else standard}", *warnings, f"-I{HERE / 'host'}",
                               HERE / "host/host.cpp", "-o", folder / f"host{standard}", *library, *gio)
        if standard == 14:
            first = next((line for line in output.splitlines() if "error:" in line), "")
            if code == 0 or "KXPublisher needs C++17" not in first:
                raise Failure(f"C++14 is not refused in so many words, but: {first}")
            shutil.copy(folder / "host17", folder / "host14")
        elif code != 0:
            raise Failure(output)
    run(c, "-std=c99", "-Wall", "-Wextra", "-Wpedantic", "-Werror", HERE / "host/host.c", "-o", folder / "host-in-c",
        *library)
    run(cxx, "-std=c++17", *warnings, HERE / "host/host_test.cpp", "-o", folder / "host-test",
        *pkg_config(prefix, "--cflags", "--libs", "KXPublisherSimulated"))
    check_host_programs(folder, LD_LIBRARY_PATH=library_folder(prefix))


def check_host_in_c(folder, prefix):
    """A project without a C++ compiler."""
    folder.mkdir(parents=True)
    (folder / "CMakeLists.txt").write_text(
        "cmake_minimum_required(VERSION 3.25)\nproject(c LANGUAGES C)\nfind_package(KXPublisher REQUIRED)\n"
        f"add_executable(c {HERE}/host/host.c)\ntarget_link_libraries(c PRIVATE KXPublisher::KXPublisher)\n")
    configure(folder, folder / "build", f"-DCMAKE_PREFIX_PATH={prefix}")
    build(folder / "build")
    run(folder / "build/c")


def readme_programs():
    """The README's files for Linux: by the name that a block's first line gives in a comment; a program in C++ without one
    is main.cpp."""
    files = {}
    for language, text in re.findall(r"^```(\w+)\n(.*?)^```$", (SOURCE / "README.md").read_text(), re.M | re.S):
        named = re.match(r"(?://|#|/\*) *([\w./-]+\.(?:cpp|c|txt))\b", text)
        if language in ("c", "cpp", "cmake") and named:
            files[named[1]] = text
        elif language == "cpp" and "int main(" in text:
            files["main.cpp"] = text
    return files
