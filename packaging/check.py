"""What script/check-packaging asks of the files that iOS hosts get the library by.

usage: check.py manifests          the files of this repository
       check.py bundles FOLDER     the framework and the example app that CMake made in FOLDER
"""

import plistlib
import re
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
XCFRAMEWORK = "build/ios/KXPublisher.xcframework"
HEADERS = ROOT / "include/KXPublisher"
DOOR = [HEADERS / "KXPublisher.h", HEADERS / "KXPublisherConstants.h"]  # for Objective-C and Swift
APPLE = ROOT / "platform/apple"

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
    for folder in ("diagnostics", "platform", "platform/apple", "platform/foundation", "providers", "publisher",
                   "transport"):
        for suffix in ("*.h", "*.cpp", "*.mm"):
            yield from (ROOT / folder).glob(suffix)


def check_versions():
    version = found(r"^project\(KXPublisher VERSION ([\d.]+)", "CMakeLists.txt")
    for pattern, name in (
        (r"^  spec.version = '(.*)'$", "KXPublisher.podspec"),
        (r"^const double KXPublisherVersionNumber = (.*);$", "publisher/KXConstants.cpp"),
        (r"^const double KXPublisherVersionNumber = (.*);$", "platform/apple/ObjectiveCConstants.mm"),
        (r'kxPublisherSdkVersion = "v(.*)";$', "include/KXPublisher/KXPublisher.hpp"),
    ):
        expect(found(pattern, name) == version, f"{name}: the version is not {version}")
    for name in ("publisher/KXConstants.cpp", "platform/apple/ObjectiveCConstants.mm"):
        major = found(r"PROJECT:KXPublisher-(\d+)", name)
        expect(major == version.split(".")[0], f"{name}: the version text is not that of {version}")

    oldest = found(r"-DCMAKE_OSX_DEPLOYMENT_TARGET=([\d.]+)", "script/xcframework")
    for pattern, name in (
        (r"^  spec.platform = :ios, '(.*)'$", "KXPublisher.podspec"),
        (r"\.iOS\(\.v(\d+)\)", "Package.swift"),
        (r"^set\(CMAKE_OSX_DEPLOYMENT_TARGET ([\d.]+)", "examples/ios/CMakeLists.txt"),
    ):
        expect(float(found(pattern, name) or 0) == float(oldest), f"{name}: the oldest iOS is not {oldest}")


def check_paths():
    expect(XCFRAMEWORK in text("Package.swift"), f"Package.swift: not {XCFRAMEWORK}")
    expect(f"{XCFRAMEWORK}.zip" in text("KXPublisher.podspec"), "KXPublisher.podspec: another zip")
    folder = found(r"^out=(.*)$", "script/xcframework")
    expect(f"{folder}/KXPublisher.xcframework" == XCFRAMEWORK, f"script/xcframework: does not make {XCFRAMEWORK}")

    cmake = text("platform/apple/CMakeLists.txt")
    listed = set(re.findall(r"^  (?:\$\{PROJECT_SOURCE_DIR\}/include/KXPublisher/)?(\w+\.(?:mm|h))\)?$", cmake, re.M))
    present = {path.name for path in [*APPLE.glob("*.mm"), *DOOR]}
    expect(listed == present, f"platform/apple/CMakeLists.txt: these are not in both: {sorted(listed ^ present)}")
    for path in re.findall(r"\$\{PROJECT_SOURCE_DIR\}/([\w./]+)", cmake):
        expect((ROOT / path).is_file(), f"platform/apple/CMakeLists.txt: there is no {path}")

    linked = set(re.search(r"^foreach\(framework (.*)\)$", cmake, re.M)[1].split())
    imported = set()
    for path in [*APPLE.glob("*.mm"), *APPLE.glob("*.h"), *DOOR]:
        imported |= set(re.findall(r"^#import <(\w+)/", path.read_text(), re.M))
    imported -= {"KXPublisher", "objc"}
    expect(imported == linked,
           f"platform/apple/CMakeLists.txt: imported or linked, not both: {sorted(imported ^ linked)}")


def check_module_map():
    umbrella = found(r'umbrella header "(.*)"', "packaging/ios/module.modulemap")
    if not (HEADERS / umbrella).is_file():
        return failures.append(f"packaging/ios/module.modulemap: there is no {umbrella}")
    imported = set(re.findall(r"^#import <KXPublisher/(.*)>$", (HEADERS / umbrella).read_text(), re.M)) | {umbrella}
    present = {path.name for path in DOOR}
    expect(imported == present, f"{umbrella}: does not import {sorted(present - imported)}")
    for header in DOOR:
        foreign = re.findall(r"^#(?:import|include) (?!<(?:KXPublisher|Foundation)/)(.*)$", header.read_text(), re.M)
        expect(not foreign, f"{header.name}: hosts cannot include {foreign}")


def check_privacy_manifest():
    name = "packaging/ios/PrivacyInfo.xcprivacy"
    manifest = plistlib.loads(text(name).encode())
    expect(set(manifest) == {"NSPrivacyTracking", "NSPrivacyTrackingDomains", "NSPrivacyAccessedAPITypes",
                             "NSPrivacyCollectedDataTypes"}, f"{name}: its keys are {sorted(manifest)}")
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
    expect(manifest["NSPrivacyTracking"] is True, f"{name}: an advertising identifier is reported: that is tracking")

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
    framework = folder / "lib/KXPublisher.framework"
    version = found(r"^project\(KXPublisher VERSION ([\d.]+)", "CMakeLists.txt")
    information = plistlib.loads((framework / "Info.plist").read_bytes())
    for key, value in (("CFBundleIdentifier", "com.brindlecove.KXPublisher"), ("CFBundlePackageType", "FMWK"),
                       ("CFBundleShortVersionString", version), ("CFBundleVersion", version)):
        expect(information.get(key) == value, f"the framework's {key} is {information.get(key)}")
    expected = {"KXPublisher", "Info.plist", "Modules/module.modulemap", "PrivacyInfo.xcprivacy",
                *(f"Headers/{header.name}" for header in HEADERS.glob("*.h"))}
    present = {str(path.relative_to(framework)) for path in framework.rglob("*") if path.is_file()}
    expect(present == expected, f"these are not as they should be in the framework: {sorted(present ^ expected)}")

    def about(program, option):
        return subprocess.run(["llvm-objdump-16", "--macho", option, program], check=True, capture_output=True,
                              text=True).stdout
    manifest = plistlib.loads((framework / "PrivacyInfo.xcprivacy").read_bytes())
    expected = plistlib.loads((ROOT / "packaging/ios/PrivacyInfo.xcprivacy").read_bytes())
    expected["NSPrivacyTrackingDomains"] = TRACKING_DOMAINS
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


def main(arguments):
    if arguments == ["manifests"]:
        check_versions()
        check_paths()
        check_module_map()
        check_privacy_manifest()
        check_documents()
    elif len(arguments) == 2 and arguments[0] == "bundles":
        check_bundles(Path(arguments[1]))
    else:
        sys.exit(__doc__)
    for failure in failures:
        print(f"check-packaging: {failure}", file=sys.stderr)
    sys.exit(1 if failures else 0)


main(sys.argv[1:])
