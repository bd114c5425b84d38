"""Holds the includes against how the house is laid out: a folder includes only from folders below it, and no folders include
each other in a circle, the rooms within platform/ included.

usage: layers.py [ROOT]      prints what is wrong
"""

import collections
import os
import re
import sys

DOOR = "include/KXPublisher/"  # a header below it belongs to the folder of the same name

# A folder within one of them is on its floor.
FLOORS = {
    "bindings": 5,
    "gobject": 5,  # their headers
    "testkit": 5,
    "publisher": 4,
    "providers": 3,
    "transport": 3,
    "diagnostics": 2,
    "platform": 1,
    "platform/foundation": 0,
}
# What stands beside the house: the house includes nothing from there, and they nothing from above the seam. A binding is
# for one device, and may.
BESIDE = ("platform/simulated", "platform/linux", "platform/apple")
# The simulated device stands behind the doors of other devices, too, so that a host is tested through its own.
DOORS = {"platform/simulated/linux": DOOR + "platform/linux/LinuxHost.h"}
AROUND = ("examples", "tests", "tools", "benchmarks", "packaging")

SUFFIXES = (".h", ".hpp", ".c", ".cpp", ".m", ".mm")
INCLUDE = re.compile(r'^\s*#\s*(?:include|import)\s+[<"]([^>"]+)[>"]', re.M)


def sources(root):
    """The library's files, relative to its root."""
    for folder in ("include", "bindings", "publisher", "providers", "transport", "diagnostics", "platform"):
        for path, _, names in os.walk(os.path.join(root, folder)):
            for name in sorted(names):
                if name.endswith(SUFFIXES):
                    yield os.path.relpath(os.path.join(path, name), root)


def room_of(file):
    """The folder that a file of the library belongs to. What lies at the door itself is the publisher's."""
    if file.startswith(DOOR):
        return os.path.dirname(file[len(DOOR):]) or "publisher"
    return os.path.dirname(file)


def floor_of(room):
    while room:
        if room in FLOORS:
            return FLOORS[room]
        if room in BESIDE:
            return None
        room = os.path.dirname(room)
    return None


def house_or_beside(room):
    """The device whose folder that is; nothing for a folder of the house."""
    return next((device for device in BESIDE if room == device or room.startswith(device + "/")), None)


def included_file(root, includer, name):
    """The file of this project that such an include finds; nothing when it is not one."""
    for folder in (os.path.dirname(includer), "", "include"):
        candidate = os.path.normpath(os.path.join(folder, name))
        if os.path.isfile(os.path.join(root, candidate)):
            return candidate
    return None


def complaint_about(includer, included):
    """Why the one may not include the other; nothing when it may."""
    if included.startswith(tuple(folder + "/" for folder in AROUND)):
        return "which is not the library's"
    above, below = room_of(includer), room_of(included)
    device, other_device = house_or_beside(above), house_or_beside(below)
    if device is None and other_device is not None and floor_of(above) < FLOORS["bindings"]:
        return f"and the house knows nothing of {other_device}"
    if device is not None:
        if other_device not in (None, device) and DOORS.get(above) != included:
            return "which is another device's"
        if other_device is None and (floor_of(below) or 0) > FLOORS["platform"]:
            return "which is above the seam"
        return None
    if (floor_of(below) or 0) > floor_of(above):
        return f"which is on a floor above {above}"
    return None


def circle_in(graph):
    """The folders of one circle; nothing when there is none."""
    done, path = set(), []

    def visit(room):
        if room in path:
            return path[path.index(room):] + [room]
        if room in done:
            return None
        path.append(room)
        for other in sorted(graph.get(room, ())):
            if (circle := visit(other)) is not None:
                return circle
        done.add(path.pop())
        return None

    for room in sorted(graph):
        if (circle := visit(room)) is not None:
            return circle
    return None


def main(root):
    complaints = []
    graph = collections.defaultdict(set)
    examples = {}
    count = 0
    for includer in sources(root):
        if floor_of(room_of(includer)) is None and house_or_beside(room_of(includer)) is None:
            complaints.append(f"{includer} is in a folder without a floor")
            continue
        with open(os.path.join(root, includer), encoding="utf-8") as file:
            names = INCLUDE.findall(file.read())
        for name in names:
            included = included_file(root, includer, name)
            if included is None:
                continue
            count += 1
            complaint = complaint_about(includer, included)
            if complaint:
                complaints.append(f"{includer} includes {included}, {complaint}")
            above, below = room_of(includer), room_of(included)
            if above != below:
                graph[above].add(below)
                examples.setdefault((above, below), f"{includer} includes {included}")
    if count == 0:
        complaints.append(f"no includes found below {root}")
    circle = circle_in(graph)
    if circle:
        complaints.append(f"a circle of folders: {' -> '.join(circle)}")
        complaints += [f"  {examples[pair]}" for pair in zip(circle, circle[1:])]
    for complaint in complaints:
        print(complaint)
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:2] or [os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")]))
