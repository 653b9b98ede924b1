#!/usr/bin/env python3
"""Every program on a page is a file of examples/, which the tests build and run.

A page says in the line before a fenced block where its text comes from:

    <!-- examples/settings.cpp -->         the whole file
    <!-- examples/settings.cpp ask -->     its lines between "// [ask]" and "// [/ask]" (in Python
                                           "# [ask]"), with their common indentation removed

The block has to equal that; lines that begin or end a part are not shown. On the pages of docs/ a
block of C++, C or Python needs such a line when it is longer than six lines or has an #include, an
import or a main(): whatever is shorter shows an interface, and is no program.

usage: examples_in_docs.py [--write]    (--write: renew the blocks from the files)
"""
import re
import sys
import textwrap
from pathlib import Path

TREE = Path(__file__).resolve().parents[2]
LONGEST_FRAGMENT = 6
PROGRAM = re.compile(r"^\s*(#include\b|import\s|from\s\S+\simport\s|int main\b)", re.M)
LANGUAGES = {"cpp", "c++", "c", "python", "py"}
SOURCE = re.compile(r"^\s*<!--\s*(examples/\S+)(?:\s+([\w-]+))?\s*-->\s*$")
FENCE = re.compile(r"^(\s*)(`{3,}|~{3,})\s*([\w+-]*)")
EDGE = re.compile(r"^\s*(?://|#|/\*)\s*\[(/?)([\w-]+)\]\s*(?:\*/)?\s*$")


class Complaint(Exception):
    pass


def part(lines, name, path):
    """The lines between the two that bear the name."""
    edges = [(i, match[1]) for i, line in enumerate(lines)
             if (match := EDGE.match(line)) and match[2] == name]
    if [closing for _, closing in edges] != ["", "/"]:
        raise Complaint(f"{path} has not exactly one part from [{name}] to [/{name}]")
    return lines[edges[0][0] + 1:edges[1][0]]


def wanted(path, name):
    """What a block that names the file, or a part of it, has to show."""
    if not (TREE / path).is_file():
        raise Complaint(f"there is no {path}")
    lines = (TREE / path).read_text().splitlines()
    if name:
        lines = part(lines, name, path)
    lines = [line for line in lines if not EDGE.match(line)]
    return textwrap.dedent("\n".join(lines)).strip("\n").splitlines()


def blocks(lines):
    """(line of the opening fence, line of the closing one, its indentation, language)"""
    begin = None
    for i, line in enumerate(lines):
        match = FENCE.match(line)
        if begin is None:
            if match:
                begin, indent, mark, language = i, match[1], match[2], match[3].lower()
        elif match and match[2].startswith(mark) and line.strip() == match[2]:
            yield begin, i, indent, language
            begin = None
    if begin is not None:
        raise Complaint("a fenced block has no end")


def judge(lines, begin, end, indent, language, must):
    """What the block has to show, or None where it may show anything."""
    source = SOURCE.match(lines[begin - 1]) if begin else None
    if source:
        return [(indent + line).rstrip() for line in wanted(source[1], source[2])]
    text = lines[begin + 1:end]
    if must and language in LANGUAGES and (
            len(text) > LONGEST_FRAGMENT or PROGRAM.search("\n".join(text))):
        raise Complaint("a program, or more than six lines: the line before has to "
                        "name the file of examples/")
    return None


def check(page, write):
    """Complaints about the page; with `write` what differs is renewed instead."""
    lines, complaints, renewed = page.read_text().splitlines(), [], False
    name = page.relative_to(TREE)
    try:
        found = list(blocks(lines))
    except Complaint as complaint:
        return [f"{name}: {complaint}"]
    fences = {begin for begin, *_ in found}
    for i, line in enumerate(lines):
        if SOURCE.match(line) and i + 1 not in fences:
            complaints.append(f"{name}:{i + 1}: no fenced block follows in the next line")
    for begin, end, indent, language in reversed(found):
        try:
            text = judge(lines, begin, end, indent, language, page.parent.name == "docs")
        except Complaint as complaint:
            complaints.append(f"{name}:{begin + 1}: {complaint}")
            continue
        if text is None or text == [line.rstrip() for line in lines[begin + 1:end]]:
            continue
        lines[begin + 1:end], renewed = text, True
        if not write:
            complaints.append(f"{name}:{begin + 1}: not what the file says; "
                              "scripts/checks/examples_in_docs.py --write renews it")
    if renewed and write:
        page.write_text("\n".join(lines) + "\n")
    return sorted(complaints)


def main():
    if sys.argv[1:] not in ([], ["--write"]):
        sys.exit(__doc__)
    pages = sorted([*TREE.glob("*.md"), *TREE.glob("docs/*.md"), TREE / "src/Z/README.md"])
    complaints = [one for page in pages for one in check(page, sys.argv[1:] == ["--write"])]
    print("\n".join(complaints + [f"examples in docs: {len(complaints)} complaints"]))
    sys.exit(1 if complaints else 0)


main()
