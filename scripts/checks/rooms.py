#!/usr/bin/env python3
"""Holds the includes of the tree against scripts/rooms.txt.

A folder of src/Z is a room, and includes never point upwards; a folder inside of a room knows of the
rest of that room its public headers alone. Prints each violation as FILE:LINE: what is wrong, and
what to do; exits 1 when there is any.

usage: rooms.py [TREE]    (default: the tree this script stands in)
"""
import re
import sys
from pathlib import Path

TREE = Path(sys.argv[1] if len(sys.argv) > 1 else Path(__file__).parents[2]).resolve()
SRC = TREE / "src"
TOP = SRC / "Z"
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^">]+)[">]')
FAILURE = {"Z/ZException.h", "Z/ZMessage.h"}  # any source may include them
ZLIB_USERS = {"containers/ZSqueeze.cpp", "containers/expand.cpp", "utility/checksum.cpp"}

complaints = []


def complain(path, line, text):
    complaints.append(f"{path.relative_to(TREE)}:{line}: {text}")


class Rooms:
    """Who stands where, and how high."""

    def __init__(self):
        self.order, self.exceptions = [], {}
        for line in (TREE / "scripts" / "rooms.txt").read_text().splitlines():
            words = line.split("#")[0].split()
            if len(words) == 1:
                self.order.append(words[0])
            elif words:
                self.exceptions[words[0]] = words[1]
        self.homes = {p.stem: self.folder(p) for p in TOP.rglob("*.cpp")}

    @staticmethod
    def folder(path):
        return path.parent.relative_to(TOP).as_posix()

    def room(self, path):
        """The room of a file of src/Z; None when it has none."""
        folder = self.folder(path)
        if folder != ".":
            return folder if folder.split("/")[0] in self.order else None
        return self.exceptions.get(path.name) or self.homes.get(path.stem)

    def height(self, folder):
        return self.order.index(folder.split("/")[0])

    def reach(self, source):
        """How high the includes of a file may point."""
        room = self.room(source)
        if source.suffix == ".cpp":
            room = self.exceptions.get(source.name, room)
        return self.height(room)


def includes(path):
    """(line number, is it quoted, what) of each include."""
    found = []
    for number, line in enumerate(path.read_text().splitlines(), 1):
        match = INCLUDE.match(line)
        if match:
            found.append((number, match[1] == '"', match[2]))
    return found


def is_public(path):
    return path.parent == TOP


def own_header(source):
    for header in (TOP / (source.stem + ".h"), source.with_suffix(".h")):
        if header.exists():
            return header.relative_to(SRC).as_posix()
    return None


def check_first_include(path, found):
    first = found[0][2] if found else "nothing"
    line = found[0][0] if found else 1
    if path.suffix == ".cpp":
        own = own_header(path)
        if own and first != own:
            complain(path, line, f'a source includes its own header "{own}" first')
    elif is_public(path) and path.name not in ("ztags.h", "zexport.h"):
        if first != "Z/ztags.h":
            complain(path, line, 'a public header includes "Z/ztags.h" first')


def check_z_include(path, line, target, rooms):
    """One include of a header of src/Z."""
    header = SRC / target
    if not header.exists():
        complain(path, line, f"there is no src/{target}")
        return
    room, target_room = rooms.room(path), rooms.room(header)
    if target_room is None or (path.suffix == ".cpp" and target in FAILURE):
        return  # a file without a room is complained about by itself
    if rooms.height(target_room) > rooms.reach(path):
        complain(path, line, f"{path.name} of {room} includes {target} of {target_room}, above it")
    if is_public(header):
        return
    if path.suffix == ".h" and is_public(path):
        complain(path, line, f"a public header includes the private {target}, which is not installed")
    if room.startswith(target_room + "/"):
        complain(path, line, f"{room} knows the public headers of {target_room} alone, not {target}")
    if room != target_room and not header.read_text().startswith("/// Shared."):
        complain(path, line, f'{target} is private to {target_room}: its first line does not begin '
                             '"/// Shared."')


def check_file(path, rooms):
    found = includes(path)
    check_first_include(path, found)
    for line, quoted, target in found:
        if quoted and target.startswith("Z/"):
            check_z_include(path, line, target, rooms)
        elif quoted and not target.startswith("qcs/"):
            complain(path, line, f'"{target}" is neither "Z/..." nor "qcs/..."')
        elif target.startswith("qcs/") and path.suffix == ".h":
            complain(path, line, "a header includes the codeset layer; only sources do")
        elif target == "zlib.h" and path.relative_to(TOP).as_posix() not in ZLIB_USERS:
            complain(path, line, "zlib.h defines macros over our names: " + ", ".join(
                sorted(ZLIB_USERS)) + " alone include it")


def check_cycles(headers):
    """No header reaches itself."""
    graph = {h: [t for _, _, t in includes(SRC / h) if t in headers] for h in headers}
    done = set()

    def walk(header, trail):
        if header in trail:
            circle = trail[trail.index(header):] + [header]
            complain(SRC / header, 1, "headers include each other: " + " -> ".join(circle))
            return
        if header in done:
            return
        for target in graph[header]:
            walk(target, trail + [header])
        done.add(header)

    for header in sorted(headers):
        walk(header, [])


def check_codeset_layer():
    for path in sorted((SRC / "qcs").glob("*.[ch]*")):
        for line, quoted, target in includes(path):
            if target.startswith("Z/") or (quoted and not target.startswith("qcs/")):
                complain(path, line, f"the codeset layer stands alone; it includes {target}")


def check_users():
    """Tools and examples live on what is installed."""
    for folder in ("tools", "examples"):
        for path in sorted((TREE / folder).rglob("*.[ch]*")):
            for line, _, target in includes(path):
                private = target.startswith("Z/") and target.count("/") > 1
                if private or target.startswith("qcs/"):
                    complain(path, line, f"{folder} use public headers only, not {target}")


def main():
    rooms = Rooms()
    files = sorted(p for p in TOP.rglob("*") if p.suffix in (".h", ".cpp"))
    for path in files:
        if path.suffix == ".cpp" and is_public(path):
            complain(path, 1, "the top of src/Z is for public headers; a source stands in its room")
        elif rooms.room(path):
            check_file(path, rooms)
        else:
            complain(path, 1, "has no room: no folder of scripts/rooms.txt, or no source of its name")
    check_cycles({p.relative_to(SRC).as_posix() for p in files if p.suffix == ".h"})
    check_codeset_layer()
    check_users()
    print(*complaints, sep="\n", end="\n" if complaints else "")
    print(f"rooms: {len(files)} files, {len(complaints)} complaints")
    sys.exit(1 if complaints else 0)


main()
