"""What script/check-packaging asks of the files that iOS hosts get the library by.

usage: check.py manifests          the files of this repository
       check.py bundles FOLDER     the framework and the example app that CMake made in FOLDER
       check.py pods LIST FOLDER   the sources of the pods, as pod.rb LIST tells them, are those that CMake compiles in FOLDER
"""

import json
import plistlib
import re
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
ABOUT = json.loads((ROOT / "packaging/about.json").read_text())
HEADERS = ROOT / "include/KXPublisher"
DOOR = sorted(HEADERS.glob("KXPublisher*.h"))  # for Objective-C and Swift
APPLE = (ROOT / "platform/apple", ROOT / "bindings/objective-c")

# What a privacy manifest may say (developer.apple.com, "Privacy manifest files"), as far as this library could have to.
DATA_TYPES = {"DeviceID", "UserID", "PreciseLocation", "CoarseLocation", "ProductInteraction", "AdvertisingData",
              "OtherUsageData", "PerformanceData", "OtherDiagnosticData", "OtherDataTypes"}
PURPOSES = {"ThirdPartyAdvertising", "DeveloperAdvertising", "Analytics", "ProductPersonalization", "AppFunctionality",
            "Other"}
# What an app has to give a reason for, by the category that the manifest declares it under.
REASONED = {
    "FileTimestamp": r"\b[fl]?stat(at)?\(|\bf?getattrlist|NSFile(Creation|Modification)Date|[cC]ontentModificationDate",
    "SystemBootTime": r"systemUptime|mach_absolute_time",
    "DiskSpace": r"\bf?statv?fs\(|NSFileSystem(Free)?Size|volume(Available|Total)Capacity",
    "ActiveKeyboards": r"activeInputModes",
    "UserDefaults": r"NSUserDefaults",
}

# What script/check-packaging has the framework declare.
TRACKING_DOMAINS = ["collect-2.example.com", "collect.example.com"]

failures = []


def expect(condition, complaint):
    if not condition:
        failures.append(complaint)


def text(name):
    return (ROOT / name).read_text()


def found(pattern, name):
    """The first group of the one match of `pattern` in the file of that name."""
    matches = re.findall(pattern, text(name), re.M)
    expect(len(matches) == 1, f"{name}: {len(matches)} matches of {pattern}, not one")
    return matches[0] if matches else None


def library_sources():
    for folder in ("bindings/objective-c", "diagnostics", "platform", "platform/apple", "platform/foundation", "providers",
                   "publisher", "transport"):
        for suffix in ("*.h", "*.cpp", "*.mm"):
            yield from (ROOT / folder).glob(suffix)


def check_about():
    for key in ("name", "version", "summary", "licence", "authors", "homepage", "source"):
        expect(ABOUT.get(key), f"packaging/about.json: no {key}")
    expect(text("LICENSE").startswith(f"{ABOUT['licence']} License"), f"LICENSE: not the {ABOUT['licence']} licence")
    for author in ABOUT["authors"]:
        expect(author in text("LICENSE"), f"LICENSE: does not name {author}")
    version = ABOUT["version"]
    for pattern, name in (
        (r"^const double KXPublisherVersionNumber = (.*);$", "publisher/KXConstants.cpp"),
        (r"^const double KXPublisherVersionNumber = (.*);$", "bindings/objective-c/ObjectiveCConstants.mm"),
        (r'kxPublisherSdkVersion = "v(.*)";$', "include/KXPublisher/KXPublisher.hpp"),
    ):
        expect(found(pattern, name) == version, f"{name}: the version is not {version}")
    for name in ("publisher/KXConstants.cpp", "bindings/objective-c/ObjectiveCConstants.mm"):
        major = found(r"PROJECT:KXPublisher-(\d+)", name)
        expect(major == version.split(".")[0], f"{name}: the version text is not that of {version}")
    expect(found(r'^  name: "(.*)",$', "Package.swift") == ABOUT["name"], "Package.swift: another name")

    oldest = found(r"-DCMAKE_OSX_DEPLOYMENT_TARGET=([\d.]+)", "script/xcframework")
    for pattern, name in (
        (r"^  spec.platform = :ios, '(.*)'$", "KXPublisher.podspec"),
        (r"^  spec.platform = :ios, '(.*)'$", "KXPublisherTestKit.podspec"),
        (r"\.iOS\(\.v(\d+)\)", "Package.swift"),
        (r"^set\(CMAKE_OSX_DEPLOYMENT_TARGET ([\d.]+)", "examples/ios/CMakeLists.txt"),
    ):
        expect(float(found(pattern, name) or 0) == float(oldest), f"{name}: the oldest iOS is not {oldest}")
    expect("unsafeFlags" not in text("Package.swift"), "Package.swift: by URL, no package takes unsafe flags")


def check_frameworks():
    """The frameworks that the code imports are those that each way links."""
    imported = set()
    for path in [*(path for folder in APPLE for suffix in ("*.mm", "*.h") for path in folder.glob(suffix)), *DOOR]:
        imported |= set(re.findall(r"^#import <(\w+)/", path.read_text(), re.M))
    imported -= {"KXPublisher", "objc"}
    for name, pattern in (
        ("platform/apple/CMakeLists.txt", r"^foreach\(framework (.*)\)$"),
        ("KXPublisher.podspec", r"^  spec.frameworks = %w\[(.*)\]$"),
    ):
        linked = set((found(pattern, name) or "").split())
        expect(imported == linked, f"{name}: imported or linked, not both: {sorted(imported ^ linked)}")
    linked = set(re.findall(r'\.linkedFramework\("(\w+)"\)', text("Package.swift")))
    expect(imported == linked, f"Package.swift: imported or linked, not both: {sorted(imported ^ linked)}")


def check_cmake_lists():
    for folder, headers in zip(APPLE, (DOOR, ())):
        name = str(folder.relative_to(ROOT) / "CMakeLists.txt")
        listed = set(re.findall(r"^  (?:\$\{PROJECT_SOURCE_DIR\}/include/KXPublisher/)?(\w+\.(?:mm|h))\)?$", text(name), re.M))
        present = {path.name for path in [*folder.glob("*.mm"), *headers]}
        expect(listed == present, f"{name}: these are not in both: {sorted(listed ^ present)}")


def check_module_maps():
    """Modules hold every header for Objective-C, and none of C++."""
    expect(DOOR, "include/KXPublisher: no header for Objective-C")
    test_kit = HEADERS / "testkit"
    for module_map, headers in (
        (ROOT / "include/module.modulemap", {f"KXPublisher/{header.name}" for header in DOOR}),
        (ROOT / "packaging/ios/module.modulemap", {header.name for header in DOOR}),
        (test_kit / "module.modulemap", {header.name for header in test_kit.glob("*.h")}),
    ):
        name = module_map.relative_to(ROOT)
        listed = set(re.findall(r'^\s*header "(.*)"$', module_map.read_text(), re.M))
        expect(listed == headers, f"{name}: these headers are not in both: {sorted(listed ^ headers)}")
    for header in [*DOOR, *test_kit.glob("*.h")]:
        foreign = re.findall(r"^#(?:import|include) (?!<(?:KXPublisher|Foundation|CoreLocation)/)(.*)$", header.read_text(), re.M)
        expect(not foreign, f"{header.name}: hosts cannot include {foreign}")


def check_privacy_manifest():
    name = "packaging/ios/PrivacyInfo.xcprivacy"
    manifest = plistlib.loads(text(name).encode())
    # Whoever says that he tracks has to name the domains, which only a build for one server can.
    expect(set(manifest) == {"NSPrivacyAccessedAPITypes", "NSPrivacyCollectedDataTypes"},
           f"{name}: its keys are {sorted(manifest)}")
    prefix = "NSPrivacyCollectedDataType"
    collected = []
    for entry in manifest["NSPrivacyCollectedDataTypes"]:
        data_type = entry[prefix].removeprefix(prefix)
        collected.append(data_type)
        expect(data_type in DATA_TYPES, f"{name}: there is no type {data_type}")
        purposes = {purpose.removeprefix(prefix + "Purpose") for purpose in entry[prefix + "Purposes"]}
        expect(purposes and purposes <= PURPOSES, f"{name}: {data_type} is for {sorted(purposes)}")
        expect(set(entry) == {prefix, prefix + "Linked", prefix + "Tracking", prefix + "Purposes"}
               and entry[prefix + "Linked"] is True and entry[prefix + "Tracking"] is True,
               f"{name}: {data_type} goes out with the advertising identifier, so it is linked and used for tracking")
    expect(len(collected) == len(set(collected)), f"{name}: a type stands there twice")
    expect({"DeviceID", "PreciseLocation", "CoarseLocation", "OtherDataTypes"} <= set(collected),
           f"{name}: it does not tell of all that a message carries: {collected}")

    declared = {entry["NSPrivacyAccessedAPIType"].removeprefix("NSPrivacyAccessedAPICategory").removesuffix("s")
                for entry in manifest["NSPrivacyAccessedAPITypes"]}
    for path in library_sources():
        for category, pattern in REASONED.items():
            use = re.search(pattern, path.read_text())
            expect(not use or category.removesuffix("s") in declared,
                   f"{path.relative_to(ROOT)}: {use and use[0]} needs a reason in {name}")


def check_documents():
    keys = re.findall(r'^/\*\* "(\w+)", ', text("include/KXPublisher/KXConstants.h"), re.M)
    expect(len(keys) > 25, f"include/KXPublisher/KXConstants.h: only {len(keys)} keys of a message")
    documented = text("docs/ios.md")
    for key in keys:
        expect(f"`{key}`" in documented, f"docs/ios.md: does not say that a message carries {key}")

    example = plistlib.loads(text("examples/ios/Info.plist.in").encode())
    for usage in ("NSLocationWhenInUseUsageDescription", "NSUserTrackingUsageDescription"):
        expect(example.get(usage), f"examples/ios/Info.plist.in: {usage} has no text")
        expect(usage in documented, f"docs/ios.md: does not tell of {usage}")


def check_bundles(folder):
    framework = next(folder.rglob("KXPublisher.framework"))
    version = ABOUT["version"]
    information = plistlib.loads((framework / "Info.plist").read_bytes())
    for key, value in (("CFBundleIdentifier", "com.brindlecove.KXPublisher"), ("CFBundlePackageType", "FMWK"),
                       ("CFBundleShortVersionString", version), ("CFBundleVersion", version)):
        expect(information.get(key) == value, f"the framework's {key} is {information.get(key)}")
    expected = {"KXPublisher", "Info.plist", "Modules/module.modulemap", "PrivacyInfo.xcprivacy",
                "LICENSE", *(f"Headers/{header.name}" for header in DOOR)}
    present = {str(path.relative_to(framework)) for path in framework.rglob("*") if path.is_file()}
    expect(present == expected, f"these are not as they should be in the framework: {sorted(present ^ expected)}")

    def about(program, option):
        return subprocess.run(["llvm-objdump-16", "--macho", option, program], check=True, capture_output=True,
                              text=True).stdout
    manifest = plistlib.loads((framework / "PrivacyInfo.xcprivacy").read_bytes())
    expected = plistlib.loads((ROOT / "packaging/ios/PrivacyInfo.xcprivacy").read_bytes())
    expected |= {"NSPrivacyTracking": True, "NSPrivacyTrackingDomains": TRACKING_DOMAINS}
    expect(manifest == expected, "the framework's privacy manifest is not the library's with its tracking domains")
    binary = framework / "KXPublisher"
    identity = "@rpath/KXPublisher.framework/KXPublisher"
    expect(identity in about(binary, "--dylib-id"), f"the framework does not call itself {identity}")

    app = next(folder.rglob("KXExample.app"))
    information = plistlib.loads((app / "Info.plist").read_bytes())
    expect(information["CFBundleExecutable"] == "KXExample" and (app / "KXExample").is_file(),
           "the app's property list does not name its executable")
    expect("${" not in (app / "Info.plist").read_text(), "the app's property list has a gap")
    expect(identity in about(app / "KXExample", "--dylibs-used"), "the app does not load the framework")


def check_pods(pods, folder):
    """The pods and CMake compile the same."""
    compiled = set()
    for command in json.loads((folder / "compile_commands.json").read_text()):
        file = Path(command["file"])
        if file.is_relative_to(ROOT) and not file.is_relative_to(ROOT / "examples") \
                and not file.is_relative_to(ROOT / "tests"):
            compiled.add(str(file.relative_to(ROOT)))
    packaged = {source for pod in pods for source in pod["sources"]}
    expect(packaged == compiled, f"the pods or CMake compile them, not both: {sorted(packaged ^ compiled)}")


def main(arguments):
    if arguments == ["manifests"]:
        check_about()
        check_frameworks()
        check_cmake_lists()
        check_module_maps()
        check_privacy_manifest()
        check_documents()
    elif len(arguments) == 2 and arguments[0] == "bundles":
        check_bundles(Path(arguments[1]))
    elif len(arguments) == 3 and arguments[0] == "pods":
        check_pods(json.loads(Path(arguments[1]).read_text()), Path(arguments[2]))
    else:
        sys.exit(__doc__)
    for failure in failures:
        print(f"check-packaging: {failure}", file=sys.stderr)
    sys.exit(1 if failures else 0)


main(sys.argv[1:])
