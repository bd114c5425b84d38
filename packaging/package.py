"""What script/check-swift asks of Package.swift, as Swift itself has read it.

usage: package.py DUMP DESCRIPTION                 the rules
       package.py sources DESCRIPTION TARGET...    the sources that these targets compile, as CMake's kind of list
       package.py libraries DUMP                   what its targets link, likewise
"""

import json
import sys
from pathlib import Path

# Who depends on a package by URL gets an error where a target of it has these.
UNSAFE = "unsafeFlags"
TARGETS = {"KXPublisher", "KXPublisherPortable", "KXPublisherSimulated", "KXPublisherTestKit", "KXPublisherTestKitTests"}
MANIFEST = "packaging/ios/PrivacyInfo.xcprivacy"


def load(path):
    return json.loads(Path(path).read_text())


def complaints(dump, description):
    about = load(Path(__file__).parent / "about.json")
    if dump["name"] != about["name"]:
        yield f"it is called {dump['name']}"
    if dump["cxxLanguageStandard"] != "c++17":
        yield f"C++ is {dump['cxxLanguageStandard']}"
    if dump["dependencies"]:
        yield "it depends on other packages"
    if {product["name"]: product["targets"] for product in dump["products"]} != {
            "KXPublisher": ["KXPublisher"], "KXPublisherTestKit": ["KXPublisherTestKit"]}:
        yield "it offers something else"
    if {target["name"] for target in dump["targets"]} != TARGETS:
        yield "it has other targets"
    if UNSAFE in json.dumps(dump):
        yield "it has unsafe flags"
    for target in dump["targets"]:
        with_manifest = any(resource["path"] == MANIFEST for resource in target["resources"])
        if with_manifest != (target["name"] == "KXPublisher"):
            yield f"{target['name']}: the privacy manifest belongs to the library"
    seen = {}
    for target in description["targets"]:
        if target["name"] not in TARGETS or not target["sources"]:
            yield f"{target['name']}: nothing is compiled"
        for source in target["sources"]:
            path = f"{target['path']}/{source}"
            if path in seen:
                yield f"{path}: {target['name']} compiles it, and so does {seen[path]}"
            seen[path] = target["name"]


def main(arguments):
    if len(arguments) >= 3 and arguments[0] == "sources":
        targets = {target["name"]: target["sources"] for target in load(arguments[1])["targets"]}
        print(";".join(source for name in arguments[2:] for source in targets[name]))
    elif len(arguments) == 2 and arguments[0] == "libraries":
        linked = []
        for target in load(arguments[1])["targets"]:
            for setting in target["settings"]:
                kind = setting["kind"]
                linked += [f"-framework {kind['linkedFramework']['_0']}"] if "linkedFramework" in kind else []
                linked += [kind["linkedLibrary"]["_0"]] if "linkedLibrary" in kind else []
        print(";".join(["c++", *linked]))
    elif len(arguments) == 2:
        found = list(complaints(load(arguments[0]), load(arguments[1])))
        for complaint in found:
            print(f"Package.swift: {complaint}", file=sys.stderr)
        sys.exit(1 if found else 0)
    else:
        sys.exit(__doc__)


main(sys.argv[1:])
