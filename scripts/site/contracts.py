#!/usr/bin/env python3
"""A public header as Doxygen reads it, so that the headers need not be written for Doxygen.

- The comment that a header begins with is that of the file.
- A contract holds for the overloads that follow it, up to a blank line or another comment. The
  comparison operators count as overloads of each other, and so do copying and assigning.
- A constructor of an exception takes what its text inserts, and the members of a specialisation are
  what its template says.
- An iterator, known by its iterator_category, has what ISO C++ asks of one, and so have
  its other names for taking and releasing a lock; hashes of std:: are theirs.
- Of zfc.h its comment alone, since it declares nothing but other names of what the others declare.
- What is `= default` does what the compiler makes of it; a using-declaration has no new name.
- A comment behind a member, a value or a macro is its contract.

Lines stay where they are, because complaints name them.

usage: contracts.py FOLDER    (its public headers go to FOLDER/src/Z)
"""
import re
import sys
from pathlib import Path

TREE = Path(__file__).resolve().parents[2]

NAME = re.compile(r"(operator\s*(?:\(\)|\[\]|[^\s\w(]+|new\b(?:\[\])?|delete\b(?:\[\])?|[\w:]+)|~?\w+)\s*\(")
NO_NAME = re.compile(r"\b(?:noexcept|decltype|alignas|sizeof|__attribute__|Z[A-Z_]+)\s*\(")
COMPARISON = re.compile(r"operator\s*(==|!=|<=?|>=?)$")
COPY = re.compile(r"\b(\w+)(?:& operator=)?\(\1 const&(?: \w+)?\)(?: = default)?$")
LOCKABLE = re.compile(r"(try_lock|lock_shared|unlock_shared)\w*$")
EMPTY, CODE = re.compile(r"\s*///$"), re.compile(r"\s*///     ")
ACCESS = r"\s*(public|protected|private):"
# A comment behind code, but none of clang-tidy's, and none behind a brace.
TRAILING = re.compile(r"^(\s*[^/\s].*[;,)\w\"])\s*// (?!NOLINT)(.*)$")


def name_of(statement):
    """What a function's overloads share; None where no function is declared."""
    found = NAME.search(NO_NAME.sub(" ", statement))
    if not found:
        return None
    if COPY.search(statement):
        return "copy"
    return "comparison" if COMPARISON.match(found[1]) else re.sub(r"\s|\[\]", "", found[1])


def depth(line):
    """How much deeper the line leaves its reader within parentheses and braces."""
    code = re.sub(r'"(\\.|[^"\\])*"|\'(\\.|[^\'\\])\'|//.*', "", line)
    return sum(code.count(c) for c in "({") - sum(code.count(c) for c in ")}")


def commented(line, alias):
    return re.sub(r"^(\s*)", rf"\1/** @{alias} */ ", line, count=1)


def is_container(line):
    return re.match(r"\s*(class|struct|enum|union|namespace|extern \"C\")", line)


def with_overloads(lines):
    """The lines, each overload that has no comment of its own with one that refers to that above."""
    shared, special, iterator, documented, inside, begins = None, None, None, False, 0, True
    for i, line in enumerate(lines):
        stripped = line.strip()
        if re.fullmatch(r"template <.*>", stripped):
            continue
        if inside == 0 and begins:
            if stripped.startswith("///"):
                documented, shared = True, None
            elif (not stripped or stripped.startswith(("//", "#")) or is_container(line)
                  or re.match(ACCESS, line)):
                documented, shared = False, None
            else:
                statement = re.split(r"[;{]", " ".join(lines[i:i + 4]))[0]
                name = name_of(statement)
                if documented:
                    shared, documented = name, False
                elif re.match(r"\s*using Z\w+::", statement):
                    lines[i] = ""
                elif re.search(r"\(.+\).*= default$", statement) and name != shared:
                    lines[i], shared = commented(line, "bycompiler"), None
                elif name and name == shared and " override" not in statement:
                    lines[i] = commented(line, "asabove")
                elif re.match(r"\s*(explicit )?Z\w+(Exception|EndOfFile)\(.", statement):
                    lines[i], shared = commented(line, "inserts"), None
                elif iterator:
                    lines[i], shared = commented(line, "ofiterators"), None
                elif name and LOCKABLE.match(name):
                    lines[i], shared = commented(line, "oflockables"), None
                elif special and name:
                    lines[i], shared = commented(line, "ofthetemplate"), None
                else:
                    shared = None
        if is_container(line):
            special = re.match(r"(struct|class) (ZFC_API )?\w+<", line)
            iterator = "using iterator_category" in " ".join(lines[i:i + 4])
            if iterator and not lines[i - 1].strip().startswith(("///", "template")):
                lines[i] = commented(line, "ofiterators")
            if "struct std::hash<" in line:
                lines[i - 1:i + 1] = ["", ""]
        if is_container(line) or re.match(ACCESS + r"|\s*}", line):
            inside, begins = 0, True
            iterator = iterator and not re.match(r"\s*};", line)
            continue
        if not stripped.startswith("//") and stripped and not stripped.startswith("#"):
            inside += depth(line)
            begins = inside <= 0 and stripped.split("//")[0].rstrip().endswith((";", "}", ","))
            inside = max(inside, 0)
    return lines


def with_code(lines):
    """Packs indented code and tables into a word, since Doxygen has its own mind about where code
    begins; reference.py unpacks it. Elsewhere no backslash is a command."""
    begin = None
    for i, line in enumerate(lines):
        if begin is None and CODE.match(line) and EMPTY.match(lines[i - 1]):
            begin = i
        if begin is not None and not CODE.match(line):
            indent = lines[begin].partition("///")[0]
            code = "\n".join(one.partition("///")[2] for one in lines[begin:i])
            lines[begin:i] = [f"{indent}///"] * (i - begin)
            lines[begin] += f" zfccode{code.encode().hex()}"
            begin = None
        elif begin is None and "///" in line:
            lines[i] = line.replace("\\", "\\\\")
    return lines


def as_doxygen_reads(name, text):
    lines = text.splitlines()
    if name == "zfc.h":
        lines = [*without_aliases(lines), ""]
    if lines:
        lines[0] = re.sub(r"^(///|/\*\*) ", r"\1 @header ", lines[0])
    lines = [line if re.match(r"\s*(class|struct|friend)\b", line) else
             TRAILING.sub(r"\1  ///< \2", line) for line in lines]
    return "\n".join(with_overloads(with_code(lines))) + "\n"


def without_aliases(lines):
    """The comment of zfc.h, which says how the other names in it are made."""
    end = next(i for i, line in enumerate(lines) if not line.startswith("///"))
    return lines[:end]


def main():
    folder = Path(sys.argv[1]) / "src/Z"
    folder.mkdir(parents=True, exist_ok=True)
    for header in sorted((TREE / "src/Z").glob("*.h")):
        (folder / header.name).write_text(as_doxygen_reads(header.name, header.read_text()))


main()
