#!/usr/bin/env python3
"""A public header as Doxygen reads it, so that the headers need not be written for Doxygen.

- The comment that a header begins with is that of the file.
- A contract holds for the overloads that follow it, up to a blank line or another comment. The
  comparison operators count as overloads of each other, and so do copying and assigning.
- A constructor of an exception takes what its text inserts, and the members of a specialisation are
  what its template says.
- An iterator, known by its iterator_category, has what ISO C++ asks of one. So have the names that
  ISO C++ has for what is done with locks, and the specialisations of std::hash.
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

OPERATOR = r"operator\s*(?:\(\)|\[\]|[^\s\w(]+|new\b(?:\[\])?|delete\b(?:\[\])?|[\w:]+)"
NAME = re.compile(rf"({OPERATOR}|~?\w+)\s*\(")
NO_NAME = re.compile(r"\b(?:noexcept|decltype|alignas|sizeof|__attribute__|Z[A-Z_]+)\s*\(")
COMPARISON = re.compile(r"operator\s*(==|!=|<=?|>=?)$")
COPY = re.compile(r"\b(\w+)(?:& operator=)?\(\1 const&(?: \w+)?\)(?: = default)?$")
LOCKABLE = re.compile(r"(try_lock|lock_shared|unlock_shared)\w*$")
EMPTY, CODE = re.compile(r"\s*///$"), re.compile(r"\s*///     ")
ACCESS = re.compile(r"\s*(public|protected|private):")
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


class Contracts:
    """Gives each declaration without a comment the one that the rules above have for it."""

    def __init__(self, lines):
        self.lines = lines
        self.documented = False  # whether a contract stands directly above
        self.shared = None  # the name whose overloads have the contract above
        self.special = self.iterator = False  # what the class is that the line stands in
        self.inside, self.begins = 0, True  # parentheses and braces; whether a declaration begins

    def complete(self):
        for i, line in enumerate(self.lines):
            text = line.strip()
            if re.fullmatch(r"template <.*>", text):
                continue
            if self.inside == 0 and self.begins:
                self.judge(i, line, text)
            if is_container(line):
                self.enter(i, line)
            self.follow(line, text)
        return self.lines

    def judge(self, i, line, text):
        if text.startswith("///"):
            self.documented, self.shared = True, None
        elif not text or text.startswith(("//", "#")) or is_container(line) or ACCESS.match(line):
            self.documented, self.shared = False, None
        else:
            statement = re.split(r"[;{]", " ".join(self.lines[i:i + 4]))[0]
            name = name_of(statement)
            if self.documented:
                self.documented, self.shared = False, name
            elif re.match(r"\s*using Z\w+::", statement):
                self.lines[i] = ""
            elif alias := self.alias_of(statement, name):
                self.lines[i] = commented(line, alias)
                self.shared = self.shared if alias == "asabove" else None
            else:
                self.shared = None

    def alias_of(self, statement, name):
        """The Doxyfile's word for the contract, null where there is none."""
        overloads = name is not None and name == self.shared
        if re.search(r"\(.+\).*= default$", statement) and not overloads:
            return "bycompiler"
        if overloads and " override" not in statement:
            return "asabove"
        if re.match(r"\s*(explicit )?Z\w+(Exception|EndOfFile)\(.", statement):
            return "inserts"
        if self.iterator:
            return "ofiterators"
        if name and LOCKABLE.match(name):
            return "oflockables"
        return "ofthetemplate" if self.special and name else None

    def enter(self, i, line):
        """A class or a namespace begins."""
        self.special = re.match(r"(struct|class) (ZFC_API )?\w+<", line)
        self.iterator = "using iterator_category" in " ".join(self.lines[i:i + 4])
        if self.iterator and not self.lines[i - 1].strip().startswith(("///", "template")):
            self.lines[i] = commented(line, "ofiterators")
        if "struct std::hash<" in line:
            self.lines[i - 1:i + 1] = ["", ""]

    def follow(self, line, text):
        """Notes where the next declaration begins."""
        if is_container(line) or ACCESS.match(line) or text.startswith("}"):
            self.inside, self.begins = 0, True
            self.iterator = self.iterator and not text.startswith("};")
        elif text and not text.startswith(("//", "#")):
            self.inside = max(self.inside + depth(line), 0)
            end = text.split("//")[0].rstrip()
            self.begins = self.inside == 0 and end.endswith((";", "}", ","))


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
    return "\n".join(Contracts(with_code(lines)).complete()) + "\n"


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
