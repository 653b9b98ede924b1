#!/usr/bin/env python3
"""Holds the order of virtual functions of every listed class against the compiler's own tables.

The order is part of the binary interface on 32-bit x86, so it is asked of g++ -m32, in two ways:
the class dump (-fdump-lang-class) gives the names in a class's first table, and a pointer to each
member, compiled to assembly, gives the slot of each signature, which tells overloads apart.
Exits 1 after listing every difference.

usage: slots.py [LIST]    (default: tests/abi/slots.txt, which explains its form)
"""
import re
import subprocess
import sys
import tempfile
from pathlib import Path

TREE = Path(__file__).parents[2]
LIST = Path(sys.argv[1]) if len(sys.argv) > 1 else TREE / "tests" / "abi" / "slots.txt"
COMPILER = ["g++", "-m32", "-std=c++17", "-fno-access-control", "-I", str(TREE / "src")]
DESTRUCTOR = "~"
WORD = 4
POINTER_TO_VIRTUAL = 1  # low bit of a member pointer, Itanium C++ ABI 2.3

complaints = []


class Listed:
    """One class of the list: its header, its base in the list, and its own declarations."""

    def __init__(self, name, base, header):
        self.name, self.base, self.header = name, base, header
        self.own = []

    def slots(self, classes):
        """Every declaration of the first table in order."""
        inherited = classes[self.base].slots(classes) if self.base else []
        return inherited + self.own


def read_list():
    classes = {}
    current = None
    for number, line in enumerate(LIST.read_text().splitlines(), 1):
        line = line.split("#")[0].rstrip()
        if not line:
            continue
        heading = re.fullmatch(r"(\w+)(?: : (\w+))? in (Z/\S+)", line)
        if heading:
            name, base, header = heading.groups()
            if base and base not in classes:
                sys.exit(f"{LIST}:{number}: the base {base} stands nowhere above")
            current = classes[name] = Listed(name, base, header)
        elif current and line.startswith("    "):
            current.own.append(line.strip())
        else:
            sys.exit(f"{LIST}:{number}: neither a class nor one of its functions: {line}")
    return classes


def function_name(declaration):
    """`compare(const char*)` is `compare`."""
    return declaration.split("(")[0]


PICKER = """
template <class... A>
struct With {
    template <class R, class C> static constexpr auto member(R (C::*m)(A...) const) { return m; }
    template <class R, class C> static constexpr auto member(R (C::*m)(A...)) { return m; }
};
"""


def source_for(classes):
    """A source with a pointer to each listed function, one a line, and what each line probes."""
    lines = [f'#include "{header}"' for header in sorted({c.header for c in classes.values()})]
    lines += PICKER.splitlines()
    probes = {}
    for listed in classes.values():
        for declaration in listed.own:
            if declaration == DESTRUCTOR:
                continue
            function, arguments = re.fullmatch(r"([\w ]+\*?)\((.*)\)", declaration).groups()
            lines.append(f"[[gnu::used]] constexpr auto probe_{len(lines) + 1} = "
                         f"With<{arguments}>::member(&{listed.name}::{function});")
            probes[len(lines)] = (listed.name, declaration)
    return "\n".join(lines) + "\n", probes


def compile_probes(text, probes):
    """The assembly and the class dump of the source; lines that do not compile are complaints."""
    with tempfile.TemporaryDirectory() as folder:
        source = Path(folder) / "slots.cpp"
        source.write_text(text)
        command = COMPILER + ["-fdump-lang-class", "-S", source.name, "-o", "slots.s"]
        done = subprocess.run(command, cwd=folder, capture_output=True, text=True)
        if done.returncode == 0:
            dump = next(Path(folder).glob("*.class"))
            return (Path(folder) / "slots.s").read_text(), dump.read_text()
    lines = {int(n) for n in re.findall(r"slots\.cpp:(\d+):\d+: error", done.stderr)} & set(probes)
    for line in sorted(lines):
        complaints.append(f"{probes[line][0]}: has no function {probes[line][1]}, which is listed")
    errors = [line for line in done.stderr.splitlines() if "error:" in line]
    finish("" if lines else "\n".join(errors[:5]))


def slot_of(assembly, line):
    """Slot of a probe, or None when the member is not virtual."""
    match = re.search(rf"^_ZL\d+probe_{line}:\n\s*\.long\s+(\S+)", assembly, re.M)
    word = match[1]
    if not word.isdigit() or not int(word) & POINTER_TO_VIRTUAL:
        return None
    return (int(word) - POINTER_TO_VIRTUAL) // WORD


def first_tables(dump):
    """Names in the first virtual table of each class; None for a pure function."""
    tables = {}
    for block in re.split(r"\n(?=Vtable for |Class )", dump):
        heading = re.match(r"Vtable for (\w+?)\n", block)
        if not heading:
            continue
        entries = re.findall(r"^\d+ +(?:\(int \(\*\)\(\.\.\.\)\))?(.*)$", block, re.M)
        start = next(i for i, e in enumerate(entries) if "_ZTI" in e) + 1
        names = []
        for entry in entries[start:]:
            if re.fullmatch(r"-\d+|\(& _ZTI\w+\)|[1-9]\d*", entry):
                break  # the next base's table begins
            names.append(entry_name(entry))
        tables[heading[1]] = names
    return tables


def entry_name(entry):
    if entry == "__cxa_pure_virtual":
        return None
    name = entry.split("::")[-1]
    # An abstract class has no complete destructor: its slots are 0.
    return DESTRUCTOR if name.startswith("~") or entry == "0" else name


def flattened(slots):
    """Function names slot by slot."""
    names = []
    for declaration in slots:
        names += [DESTRUCTOR] * 2 if declaration == DESTRUCTOR else [function_name(declaration)]
    return names


def check_names(listed, classes, tables):
    tagged = next((t for t in tables if re.fullmatch(rf"{listed.name}_\w+", t)), None)
    if tagged is None:
        complaints.append(f"{listed.name}: the compiler made no table for it")
        return
    expected, actual = flattened(listed.slots(classes)), tables[tagged]
    if len(expected) != len(actual):
        complaints.append(f"{listed.name}: {len(actual)} slots, {len(expected)} are listed")
    for slot, (want, have) in enumerate(zip(expected, actual)):
        if have is not None and want != have:
            complaints.append(f"{listed.name}: slot {slot} is {have}, listed is {want}")


def check_signatures(classes, probes, assembly):
    for listed in classes.values():
        place = len(flattened(listed.slots(classes))) - len(flattened(listed.own))
        for declaration in listed.own:
            line = next((n for n, p in probes.items() if p == (listed.name, declaration)), None)
            slot = slot_of(assembly, line) if line else place
            if slot != place:
                where = "is not virtual" if slot is None else f"has slot {slot}"
                complaints.append(f"{listed.name}: {declaration} {where}, listed is {place}")
            place += 2 if declaration == DESTRUCTOR else 1


def finish(text):
    print(*complaints, sep="\n", end="\n" if complaints else "")
    print(text)
    sys.exit(1 if complaints or not text.startswith("slots:") else 0)


def main():
    classes = read_list()
    text, probes = source_for(classes)
    assembly, dump = compile_probes(text, probes)
    check_signatures(classes, probes, assembly)
    tables = first_tables(dump)
    for listed in classes.values():
        check_names(listed, classes, tables)
    finish(f"slots: {len(classes)} classes, {len(probes)} functions, {len(complaints)} complaints")


main()
