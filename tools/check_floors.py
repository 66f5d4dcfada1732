#!/usr/bin/env python3
"""Checks that every #include of the product points to a lower floor.

usage: check_floors.py [root of the project]

The floors stand in cmake/floors.cmake; which target a source belongs to is read from the folder's
CMakeLists.txt, and a header belongs to the target of the source of its name. A header without a
source takes the lowest floor of its folder. Printed is one line per offence; the status is 1 then.
"""

import os
import re
import sys

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"')
FLOOR_ROW = re.compile(r"^\s*(tiv_\w+)\s+(\d+)\s+(\w+)\)?\s*$")
LIBRARY = re.compile(r"(?:tiv_library|add_library|tiv_program|add_executable)\(\s*(\w+)([^)]*)\)")
# Headers that don't belong to the target of the source of their name: this class has its identity
# checks in the lower library and all others in the upper one.
HEADER_TARGETS = {"config/param_validation.h": "tiv_config_tables"}
# Interfaces without code: every floor may use them, their own too.
OPEN_FOLDERS = {"platform"}
# Programs and libraries that stand alone: no other folder includes them.
CLOSED_FOLDERS = {"host", "soft_driver", "daemon"}


def read_floors(root):
    """{target: (floor, folder)}"""
    floors = {}
    with open(os.path.join(root, "cmake", "floors.cmake"), encoding="utf-8") as table:
        for line in table:
            row = FLOOR_ROW.match(line)
            if row:
                floors[row.group(1)] = (int(row.group(2)), row.group(3))
    return floors


def read_members(root, folder, floors):
    """{name of a source without its end: target} of one folder"""
    members = {}
    path = os.path.join(root, "src", folder, "CMakeLists.txt")
    if not os.path.isfile(path):
        return members
    with open(path, encoding="utf-8") as listing:
        text = re.sub(r"#.*", "", listing.read())
    for target, words in LIBRARY.findall(text):
        if target in floors:
            for word in words.split():
                if word.endswith(".cpp"):
                    members[os.path.splitext(word)[0]] = target
    return members


class House:
    def __init__(self, root):
        self.root = root
        self.floors = read_floors(root)
        self.lowest = {}
        for floor, folder in self.floors.values():
            self.lowest[folder] = min(floor, self.lowest.get(folder, floor))
        self.members = {name: read_members(root, name, self.floors) for name in self.lowest}

    def floor_of(self, path):
        """Floor of a file below src; None when its folder isn't in the table."""
        folder, _, rest = path.partition("/")
        if folder not in self.lowest:
            return None
        target = HEADER_TARGETS.get(path) or self.members[folder].get(os.path.splitext(rest)[0])
        return self.floors[target][0] if target else self.lowest[folder]

    def exists(self, path):
        """Also true of what the build generates."""
        full = os.path.join(self.root, "src", path)
        if path.endswith(".pb.h"):
            full = full[: -len(".pb.h")] + ".proto"
        return os.path.isfile(full) or os.path.isfile(full + ".in")

    def offence(self, path, included):
        """What is wrong with one include, or an empty text."""
        folder, own = path.partition("/")[0], self.floor_of(path)
        other, below = included.partition("/")[0], self.floor_of(included)
        if below is None or not self.exists(included):
            return "no such file below src"
        if other == folder:
            return "" if below <= own else f"up from floor {own} to floor {below}"
        if other in OPEN_FOLDERS:
            return ""
        if other in CLOSED_FOLDERS:
            return f"{other} is included by no other folder"
        if below == own:
            return f"sideways on floor {own}"
        return "" if below < own else f"up from floor {own} to floor {below}"


def source_files(root):
    base = os.path.join(root, "src")
    for directory, _, names in sorted(os.walk(base)):
        for name in sorted(names):
            if name.endswith((".h", ".cpp")):
                yield os.path.relpath(os.path.join(directory, name), base)


def read_includes(root, path):
    with open(os.path.join(root, "src", path), encoding="utf-8") as source:
        for number, line in enumerate(source, 1):
            match = INCLUDE.match(line)
            if match:
                yield number, match.group(1)


def find_ring(graph):
    """A ring of headers that include each other, or an empty list."""
    done = set()
    for start in sorted(graph):
        way, pending = [], [(start, iter(graph[start]))]
        while pending:
            node, following = pending[-1]
            if node not in way:
                way.append(node)
            step = next(following, None)
            if step is None:
                done.add(node)
                way.pop()
                pending.pop()
            elif step in way:
                return way[way.index(step):] + [step]
            elif step not in done:
                pending.append((step, iter(graph.get(step, ()))))
    return []


def check(root):
    house, offences, graph = House(root), [], {}
    for path in source_files(root):
        if house.floor_of(path) is None:
            offences.append(f"src/{path}: its folder has no floor in cmake/floors.cmake")
            continue
        for number, included in read_includes(root, path):
            wrong = house.offence(path, included)
            if wrong:
                offences.append(f'src/{path}:{number}: "{included}": {wrong}')
            elif path.endswith(".h"):
                graph.setdefault(path, []).append(included)
    ring = find_ring(graph)
    if ring:
        offences.append("headers in a ring: " + " -> ".join(ring))
    return offences


def main():
    root = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), "..")
    offences = check(root)
    for offence in offences:
        print(offence)
    return 1 if offences else 0


if __name__ == "__main__":
    sys.exit(main())
