#!/usr/bin/env python3
"""Leaves of a description by abidw the functions that programs can depend on.

Left out are those that the compiler may inline (weak symbols: they are there one day and not the
next), and private members of public classes, which are exported with the rest of their class. A
private function stays when it is virtual, and when the public headers have its name more than once:
what stands inline there may call it.

usage: abi_public.py DESCRIPTION HEADER... > RESULT
"""
import collections
import re
import subprocess
import sys
import xml.etree.ElementTree as tree
from pathlib import Path

CLASS = re.compile(r"^(?:template <.*> )?(class|struct) (?:[A-Z_]+(?:\([^)]*\))? )*(\w+)[^;]*$")
SECTION = re.compile(r"^ *(public|protected|private):$")
HIDDEN = re.compile(r"^ +(?:class|struct|union) (\w+);")
MEMBER = re.compile(r"(\w+)\(")
# A class, what is nested in it, and a member of these, up to the arguments.
QUALIFIED = re.compile(r"^(?:.*thunk to )?(\w+)::(?:(\w+)::)?([~\w]+)\(")


def private_names(header):
    """(class, name) of functions, and nested types without a definition, below "private:" alone."""
    names = {"public": set(), "protected": set(), "private": set()}
    outer, section = None, "public"
    for line in header.splitlines():
        if match := CLASS.match(line):
            outer, section = match[2], "private" if match[1] == "class" else "public"
        elif line.startswith("}"):
            outer = None
        elif match := SECTION.match(line):
            # The nested classes' own sections are indented further.
            section = match[1] if line.startswith("  " + match[1]) else section
        elif outer and not line.lstrip().startswith("//"):
            names[section].update((outer, name) for name in MEMBER.findall(line))
            names[section].update((outer, name) for name in HIDDEN.findall(line))
    return names["private"] - names["public"] - names["protected"]


def is_private(function, private, kept):
    """Whether a demangled function without its tags is one that no program can call."""
    match = QUALIFIED.match(function)
    if not match:
        return False
    outer, nested, name = match.groups()
    return (outer, nested) in private or (outer, name) in private and name not in kept


def kept_names(headers):
    """Names that inline code of the headers may call, and those of virtual functions."""
    times = collections.Counter(re.findall(r"\w+", headers))
    virtual = {name for statement in re.split("[;{}]", headers)
               if re.search(r"\b(virtual|override)\b", statement)
               for name in MEMBER.findall(statement)}
    return virtual | {name for name, count in times.items() if count > 1}


def main():
    description = tree.parse(sys.argv[1]).getroot()
    texts = [Path(header).read_text() for header in sys.argv[2:]]
    headers = re.sub("//.*", "", "\n".join(texts))
    tag = re.search(r"^#define ZFC_TAG (\w+)$", headers, re.M)[1]
    private, kept = set().union(*map(private_names, texts)), kept_names(headers)

    symbols = [symbol for symbol in description.iter("elf-symbol")
               if symbol.get("type") == "func-type"]
    readable = subprocess.run(["c++filt"], input="\n".join(s.get("name") for s in symbols),
                              capture_output=True, text=True, check=True).stdout.splitlines()
    dropped = {symbol.get("name") for symbol, function in zip(symbols, readable)
               if symbol.get("binding") == "weak-binding"
               or is_private(function.replace(tag, ""), private, kept)}
    for table in description.iter("elf-function-symbols"):
        for symbol in list(table):
            if symbol.get("name") in dropped:
                table.remove(symbol)
    for function in description.iter("function-decl"):
        if function.get("elf-symbol-id") in dropped:
            del function.attrib["elf-symbol-id"]
    sys.stdout.write(tree.tostring(description, encoding="unicode"))


main()
