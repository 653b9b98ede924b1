#!/usr/bin/env python3
"""Holds the includes of the tree against scripts/rooms.txt.

Every file of src/Z belongs to a room; includes go downwards. Prints each violation as
FILE:LINE: what is wrong, and what to do; exits 1 when there is any.

usage: rooms.py [TREE]    (default: the tree this script stands in)
"""
import re
import sys
from pathlib import Path

TREE = Path(sys.argv[1] if len(sys.argv) > 1 else Path(__file__).parents[2]).resolve()
SRC = TREE / "src"
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^">]+)[">]')
FAILURE = {"ZException.h", "ZMessage.h"}  # any source may include them
STRINGS_ROOM = 2
FAILURE_ROOM = 3
# Reports and the first string need each other; the circle is closed in these sources alone.
KNOT = {"ZObject.cpp", "zqcsutil.cpp", "ZMessage.cpp"}
PUBLIC_WITH_UNDERSCORE = {"zproperties_c.h", "zinet_pton.h", "zinet_ntop.h"}

complaints = []


def complain(path, line, text):
    complaints.append(f"{path.relative_to(TREE)}:{line}: {text}")


def is_public(name):
    return "_" not in name or name in PUBLIC_WITH_UNDERSCORE


def read_rooms():
    """Room number by file name."""
    rooms = {}
    listing = TREE / "scripts" / "rooms.txt"
    for number, line in enumerate(listing.read_text().splitlines(), 1):
        words = line.split("#")[0].split()
        if not words:
            continue
        if len(words) != 2 or not words[0].isdigit():
            complain(listing, number, 'a line reads "ROOM NAME"')
            continue
        room, name = int(words[0]), words[1]
        for file in [name] if name.endswith((".h", ".cpp")) else [name + ".h", name + ".cpp"]:
            if file in rooms:
                complain(listing, number, f"{file} is listed twice")
            rooms[file] = room
    return rooms


def includes(path):
    """(line number, is it quoted, what) of each include."""
    found = []
    for number, line in enumerate(path.read_text().splitlines(), 1):
        match = INCLUDE.match(line)
        if match:
            found.append((number, match[1] == '"', match[2]))
    return found


def own_header(source):
    header = source.with_suffix(".h")
    return "Z/" + header.name if header.exists() else None


def check_first_include(path, found):
    first = found[0][2] if found else "nothing"
    line = found[0][0] if found else 1
    if path.suffix == ".cpp":
        own = own_header(path)
        if own and first != own:
            complain(path, line, f'a source includes its own header "{own}" first')
    elif is_public(path.name) and path.name not in ("ztags.h", "zexport.h"):
        if first != "Z/ztags.h":
            complain(path, line, 'a public header includes "Z/ztags.h" first')


def check_z_include(path, line, target, rooms):
    """One include of a header of src/Z."""
    name = target.removeprefix("Z/")
    room = rooms[path.name]
    if not (SRC / target).exists():
        complain(path, line, f"there is no src/{target}")
        return
    if name not in rooms:
        return  # complained about as a file
    if path.suffix == ".cpp" and name in FAILURE:
        return
    if path.name in KNOT and rooms[name] <= FAILURE_ROOM:
        return
    if rooms[name] > room:
        complain(path, line, f"{path.name} of room {room} includes {name} of room {rooms[name]}")
    if path.suffix != ".h":
        return
    if name == "ZException.h" and room <= STRINGS_ROOM:
        complain(path, line, "no header of rooms 0 to 2 includes ZException.h")
    if is_public(path.name) and not is_public(name):
        complain(path, line, f"a public header includes the private {name}, which is not installed")


def check_file(path, rooms):
    found = includes(path)
    check_first_include(path, found)
    for line, quoted, target in found:
        if quoted and target.startswith("Z/"):
            check_z_include(path, line, target, rooms)
        elif quoted and not target.startswith("qcs/"):
            complain(path, line, f'"{target}" is neither "Z/..." nor "qcs/..."')
        elif target.startswith("qcs/") and path.suffix == ".h" and is_public(path.name):
            complain(path, line, "a public header includes the codeset layer, which is not installed")
        elif target == "zlib.h" and path.stem != "ZSqueeze":
            complain(path, line, "zlib.h defines macros over our names: ZSqueeze.cpp alone includes it")


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
                private = target.startswith("Z/") and not is_public(target.removeprefix("Z/"))
                if private or target.startswith("qcs/"):
                    complain(path, line, f"{folder} use public headers only, not {target}")


def main():
    rooms = read_rooms()
    files = sorted(p for p in (SRC / "Z").iterdir() if p.suffix in (".h", ".cpp"))
    for path in files:
        if path.name in rooms:
            check_file(path, rooms)
        else:
            complain(path, 1, 'not in scripts/rooms.txt: add a line "ROOM NAME" for it')
    check_cycles({"Z/" + p.name for p in files if p.suffix == ".h"})
    check_codeset_layer()
    check_users()
    print(*complaints, sep="\n", end="\n" if complaints else "")
    print(f"rooms: {len(files)} files, {len(complaints)} complaints")
    sys.exit(1 if complaints else 0)


main()
