#!/usr/bin/env python3
"""Holds what the libraries export against the names of src/Z/ztags.h, both ways.

Every symbol of the shared library belongs to a class or function of the first block of ztags.h and
carries the tag, zfcFunction besides without one; that function has every C function in its table;
every name of that block has a symbol; no object file has a visible symbol that is
not such a name (it would be a public name that ztags.h lacks); every type that a header defines at
namespace scope stands in one of the two blocks, the handle records of the C interface and what the
tagged namespace holds excepted.
Exits 1 after listing what is wrong.

usage: exported.py SHARED_LIBRARY STATIC_LIBRARY TAG
"""
import re
import subprocess
import sys
from pathlib import Path

SRC = Path(__file__).parents[2] / "src"
DEFINE = re.compile(r"^#define (\w+) ZFC_TAGGED\((\w+)\)$")
# A mangled symbol up to its first name: a table or thunk, a nesting, the name's length.
MANGLED = re.compile(r"^_Z(?:T[VISTC]|T[hv][n0-9_]+_|Tc\w+?_)?(?:N[rVKRO]*)?(\d+)(.*)$")

# A type defined, not only named, at namespace scope of a header.
DEFINED = re.compile(
    r"^(?:typedef )?(?:class|struct|enum(?: class)?) (?:[A-Z_]+(?:\([^)]*\))? )*(\w+)(?: final)?"
    r"\s*(?::[^:;]*)?(?:\{|$)", re.M)
# Its name has the tag, which what stands in it need not have.
TAGGED_NAMESPACE = re.compile(r"^inline namespace zrelease \{$.*?^\}  // namespace zrelease$",
                              re.M | re.S)
# What is exported without its tag, besides.
PLAIN = {"zfcFunction"}
# A row of the table of C functions.
ROW = re.compile(r"^ +ROW\((\w+)\),$", re.M)
HANDLE = re.compile(r"^ZPROP_\w*handle$")

complaints = []


def read_names():
    """The two sorted blocks of ztags.h: classes and functions, types without symbols."""
    blocks, number = [[], []], 0
    for line in (SRC / "Z" / "ztags.h").read_text().splitlines():
        if line.startswith("// Types without symbols"):
            number = 1
        match = DEFINE.match(line)
        if match:
            blocks[number].append(match[1])
            if match[1] != match[2]:
                complaints.append(f"ztags.h: {match[1]} is tagged as {match[2]}")
    for block in blocks:
        if block != sorted(block, key=lambda name: (name.lower(), name)):
            complaints.append("ztags.h: names are not sorted")
    return set(blocks[0]), set(blocks[1])


def run(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


def readable(symbol):
    return run("c++filt", symbol).strip()


def owner(symbol):
    """The outermost class or function that a symbol belongs to; None for the C++ library's."""
    match = MANGLED.match(symbol)
    if match:
        return match[2][:int(match[1])]
    return None if symbol.startswith("_Z") else symbol


def exported(library):
    """Symbols that the shared library defines for others."""
    lines = run("nm", "-D", "--defined-only", library).splitlines()
    return [line.split()[2].split("@")[0] for line in lines]


def visible(archive):
    """Symbols with default visibility that the objects define."""
    found = set()
    for line in run("readelf", "-sW", archive).splitlines():
        words = line.split()
        if len(words) == 8 and words[4] in ("GLOBAL", "WEAK", "UNIQUE") and words[5] == "DEFAULT":
            if words[6] not in ("UND", "Ndx"):
                found.add(words[7])
    return sorted(found)


def defined_types():
    """(header, type) of what public headers define."""
    for header in sorted((SRC / "Z").glob("*.h")):
        for name in DEFINED.findall(TAGGED_NAMESPACE.sub("", header.read_text())):
            yield header.name, name


def main():
    shared, archive, tag = sys.argv[1:4]
    names, types = read_names()
    tagged = {name + tag: name for name in names}

    seen, functions = set(), set()
    symbols = exported(shared)
    for symbol in symbols:
        name = owner(symbol)
        if name in tagged:
            seen.add(tagged[name])
            functions |= {tagged[name]} if symbol == name else set()
        elif name not in PLAIN:
            complaints.append(f"exported, but no class or function of ztags.h: {readable(symbol)}")

    for name in sorted(PLAIN - set(symbols)):
        complaints.append(f"not exported without the tag: {name}")
    table = set(ROW.findall((SRC / "Z" / "c_interface" / "functions.cpp").read_text()))
    for name in sorted(functions ^ table):
        complaints.append(f"zfcFunction() and the exported C functions differ in {name}")

    for symbol in visible(archive):
        name = owner(symbol)
        if name and name not in tagged and not name.startswith("__"):
            complaints.append(f"marked for export, but not in ztags.h: {readable(symbol)}")

    for header, name in defined_types():
        if name not in names | types and not HANDLE.match(name):
            complaints.append(f"{header} defines {name}, which is not in ztags.h")

    for name in sorted(names - seen):
        complaints.append(f"in ztags.h, but nothing is exported: {name}")

    print(*complaints, sep="\n", end="\n" if complaints else "")
    print(f"exported: {len(seen)} of {len(names)} names, {len(complaints)} complaints")
    sys.exit(1 if complaints else 0)


main()
