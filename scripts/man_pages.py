#!/usr/bin/env python3
"""Writes the manual pages of the C functions from their headers, and the table of messages.

A header that opens with a contract for all of its functions, and has them in groups, gets a page of
its own name and one for each group, which bears the name of the group's first function; any other
is one page. The table of docs/man/zfc-errors.7 comes from the texts and the exception classes.
What is written is kept in the tree, so that nobody needs this to build.

usage: man_pages.py            writes what is not fresh
       man_pages.py --check    exits 1 after listing it, and what mandoc objects to in any page
"""
import re
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).parents[1]
SRC = ROOT / "src" / "Z"
PAGES = ROOT / "docs" / "man"
DATE = "November 22, 2026"
# What the functions of a header are about, and where more is told.
HEADERS = {
    "zproperties_c.h": ("stanza files from C",
                        [("zfc-stanza", 5), ("zfc-errors", 7), ("zfc-locks", 7)]),
    "zsetup.h": ("the installed codeset data", [("zproperties_c", 3), ("zfc-codesets", 7)]),
    "zversion.h": ("the release of the library", [("zproperties_c", 3)]),
}

GROUP = re.compile(r"^// -{10,} (\w+)$")
FUNCTION = re.compile(r"^ZFC_API ([^(]*?)(\w+)\(([^()]*)\);$")
# One that returns a function.
RETURNS_FUNCTION = re.compile(r"^ZFC_API (.*\(\*(\w+)\(.*\)\)\(.*\);)$")
CALLBACK = re.compile(r"^typedef .*\(\*(\w+)\)\(.*\);$")
MACRO = re.compile(r"^#define (\w+) \S+$")
ENTRY = re.compile(r"^(- |\d+\. )")
WORD = re.compile(r"\(?`[^`]+`\S*|\S+")

# What stands between backquotes, by how it looks.
KINDS = ((r"^(int|char|const)\b|\w\*$", "Vt"), (r"^QCSDIR$", "Ev"), (r"^[A-Z0-9_]+$", "Dv"),
         (r"[/-]", "Pa"), (r"::", "Li"), (r"", "Fa"))


class Item:
    """Declarations that one contract is for."""

    def __init__(self, doc):
        self.doc, self.code = doc, []

    def functions(self):
        declared = [code for code in self.code if code.startswith("ZFC_API")]
        matches = [FUNCTION.match(code) or RETURNS_FUNCTION.match(code) for code in declared]
        if None in matches:
            sys.exit(f"this declaration is not understood: {declared[matches.index(None)]}")
        return [match[2] for match in matches]

    def names(self):
        others = [CALLBACK.match(code) or MACRO.match(code) for code in self.code]
        return self.functions() + [match[1] for match in others if match]


class Group:
    def __init__(self, title):
        self.title, self.intro, self.items = title, [], []

    def functions(self):
        return [name for item in self.items for name in item.functions()]


# ---------------------------------------------------------------------------------------- reading

def declaration(lines, at):
    """The declaration that begins at a line, and the line behind it."""
    code = [lines[at]]
    while not code[0].startswith("#define") and not (
            code[-1].endswith(";") and "".join(code).count("{") == "".join(code).count("}")):
        at += 1
        code.append(lines[at])
    hasBody = code[0].endswith("{")
    joined = "\n".join(code) if hasBody else " ".join(line.strip() for line in code)
    return re.sub(r"///<?", "//", joined), at + 1


def read_header(name):
    """The header's own contract, and its groups; the first, without title, has the types."""
    lines = (SRC / name).read_text().splitlines()
    at = next(i for i, line in enumerate(lines) if not line.startswith("///"))
    opening = [line[4:] for line in lines[:at]]
    groups, doc, item = [Group("")], [], None
    while at < len(lines):
        line = lines[at]
        if match := GROUP.match(line):
            groups.append(Group(match[1]))
        elif line.startswith("///"):
            doc.append(line[4:])
        elif line.startswith("// "):
            groups[-1].intro.append(line[3:])
        elif re.match(r"ZFC_API|typedef", line) or (doc and MACRO.match(line)):
            code, at = declaration(lines, at)
            if doc or item is None:
                item = Item(doc)
                groups[-1].items.append(item)
            item.code.append(code)
            doc = []
            continue
        at += 1
    return opening, groups


# ------------------------------------------------------------------------------------------- mdoc

class Writer:
    """Turns the text of contracts into mdoc."""

    def __init__(self, types=()):
        self.lines, self.types = [], set(types)

    def macro(self, *words):
        self.lines.append("." + " ".join(words))

    def literal(self, code):
        self.macro("Bd -literal -offset indent")
        self.lines += [escaped(line) for line in code.splitlines()]
        self.macro("Ed")

    def paragraphs(self, doc):
        """Paragraphs, and lists of what begins with a dash or a number."""
        blocks = [[]]
        for line in doc:
            if not line or ENTRY.match(line):
                blocks.append([])
            if line:
                blocks[-1].append(line)
        inList = False
        for number, block in enumerate(block for block in blocks if block):
            entry = ENTRY.match(block[0])
            if entry and not inList:
                self.macro("Bl -bullet" if entry[0] == "- " else "Bl -enum")
            if inList and not entry:
                self.macro("El")
            if entry:
                self.macro("It")
            elif number > 0:
                self.macro("Pp")
            inList = entry is not None
            self.words(ENTRY.sub("", " ".join(block)))
        if inList:
            self.macro("El")

    def words(self, text):
        line = ""
        for word in WORD.findall(text):
            if macro := self.marked(word):
                self.put(line)
                self.macro(macro)
                line = ""
            else:
                if line and len(line) + len(word) > 78:
                    self.put(line)
                    line = ""
                line = f"{line} {word}" if line else word
                if re.search(r"[.!?]\)?$", word):
                    self.put(line)
                    line = ""
        self.put(line)

    def put(self, line):
        if line:
            self.lines.append(escaped(line))

    def marked(self, word):
        """The macro line for a name; nothing for a word of the language."""
        opening, core, closing = re.match(r"^(\(?)(.*?)([.,;:)]*)$", word).groups()
        if match := re.match(r"^(\w+)\($", core) if closing.startswith(")") else None:
            kind, core, closing = "Fn", match[1], closing[1:]
        elif match := re.match(r"^`([^`]+)`$", core):
            core = match[1]
            kind = next(kind for pattern, kind in KINDS if re.search(pattern, core))
        elif re.match(r"^[A-Z]+_[A-Z0-9_]+$", core):
            kind = "Dv"
        elif core in self.types:
            kind = "Vt"
        else:
            return None
        core = f'"{core}"' if " " in core else core
        return " ".join(filter(None, (kind, opening, core, *closing)))


def escaped(line):
    line = line.replace("\\", "\\e")
    return "\\&" + line if line.startswith((".", "'")) else line


def page(name, section, description, body):
    return "\n".join([
        '.\\" Written by scripts/man_pages.py.', f".Dd {DATE}", f".Dt {name.upper()} {section}",
        ".Os ZFC", ".Sh NAME", *description, *body]) + "\n"


def listed(macros):
    """Macro lines with commas between them."""
    return [f".{macro}" for macro in " ,\n".join(macros).split("\n")]


def see_also(references):
    ordered = sorted(references, key=lambda reference: (reference[1], reference[0]))
    return [".Sh SEE ALSO", *listed(f"Xr {name} {section}" for name, section in ordered)]


def synopsis(header, group):
    lines = [".Sh SYNOPSIS", f".In Z/{header}"]
    for item in group.items:
        for code in item.code:
            if match := FUNCTION.match(code):
                lines += [f".Ft {quoted(match[1].strip())}", f".Fo {match[2]}"]
                lines += [f".Fa {quoted(argument)}" for argument in match[3].split(", ")]
                lines.append(".Fc")
            elif match := RETURNS_FUNCTION.match(code):
                lines += [".Bd -literal", match[1], ".Ed"]
            elif CALLBACK.match(code):
                lines += [".Bd -literal", code, ".Ed"]
    return lines


def quoted(text):
    return f'"{text}"' if " " in text else text


def described(writer, items):
    writer.macro("Bl -tag -width Ds")
    for item in items:
        macros = ["Fn" if name in item.functions() else "Dv" if name.isupper() else "Vt"
                  for name in item.names()]
        writer.macro("It " + " , ".join(map(" ".join, zip(macros, item.names()))))
        writer.paragraphs(item.doc)
    writer.macro("El")


def function_page(header, group, about, references, types, opening=()):
    functions = group.functions()
    description = [*listed(f"Nm {name}" for name in functions), f".Nd {about}"]
    writer = Writer(types)
    writer.macro("Sh DESCRIPTION")
    writer.paragraphs(opening or group.intro)
    described(writer, group.items)
    return functions[0], page(functions[0], 3, description,
                              synopsis(header, group) + writer.lines + see_also(references))


def overview_page(header, opening, groups, about, references, types):
    name = header.removesuffix(".h")
    writer = Writer(types)
    writer.lines += [".Sh SYNOPSIS", f".In Z/{header}", ".Sh DESCRIPTION"]
    writer.paragraphs(opening)
    writer.macro("Ss Types")
    for item in groups[0].items:
        writer.paragraphs(item.doc)
        for code in item.code:
            writer.literal(code)
    for group in groups[1:]:
        writer.macro(f"Ss Functions of {group.title}")
        writer.lines += listed(f"Xr {name} 3" for name in group.functions())
    writer.lines += [
        ".Sh ENVIRONMENT", ".Bl -tag -width Ds", ".It Ev QCSDIR",
        "the codeset data directory; see", ".Xr zfc-codesets 7", ".El"]
    return name, page(name, 3, [f".Nm {name}", f".Nd {about}"],
                      writer.lines + see_also(references + [("zfc-codesets", 7)]))


def pages_of(header):
    about, references = HEADERS[header]
    opening, groups = read_header(header)
    if len(groups) == 1:
        yield function_page(header, groups[0], about, references, (), opening)
        return
    codes = [code for group in groups for item in group.items for code in item.code]
    types = [re.findall(r"\(\*(\w+)\)|(\w+);$", code)[-1] for code in codes
             if code.startswith("typedef")]
    types = [callback or name for callback, name in types]
    yield overview_page(header, opening, groups, about, references, types)
    own = (header.removesuffix(".h"), 3)
    for group in groups[1:]:
        yield function_page(header, group, f"{about}: {group.title}", references + [own], types)


# ---------------------------------------------------------------------------------------- messages

def messages():
    """The texts by number; null where there is none."""
    enumeration = re.search(r"enum class Message : int \{(.*?)\};",
                            (SRC / "exceptions" / "messages.h").read_text(), re.S)[1]
    rows = re.findall(r"\{Message::(\w+),\s*(nullptr|(?:\"(?:[^\"\\]|\\.)*\"\s*)+)\}",
                      (SRC / "exceptions" / "messages.cpp").read_text())
    texts = {name: "".join(re.findall(r'"((?:[^"\\]|\\.)*)"', text)) for name, text in rows}
    return [texts[name] for name in re.findall(r"\w+", enumeration)]


def numbers_in(doc):
    """The messages that a contract names, "5 to 7" being three."""
    lists = re.findall(r"\bmessages? (?:is )?(\d+(?:(?:, | and | to |; for a lock file )\d+)*)", doc)
    for text in lists:
        for first, last in re.findall(r"(\d+)(?: to (\d+))?", text):
            yield from range(int(first), int(last or first) + 1)


def raised():
    """The exception classes by message number."""
    classes = {}
    header = (SRC / "ZException.h").read_text()
    for doc, name in re.findall(r"((?:^///.*\n)+)class ZFC_API (Z\w+Exception)\b", header, re.M):
        for number in numbers_in(re.sub(r"\n?/// ?", " ", doc)):
            classes.setdefault(number, []).append(name)
    return classes


def error_table():
    classes = raised()
    writer = Writer()
    writer.macro("Bl -tag -width Ds")
    for number, text in enumerate(messages()):
        if not text:
            continue
        writer.macro(f"It {number}")
        for sentence in re.split(r"(?<=\.)\s+", text.replace('\\"', '"').replace("\\n", " ")):
            writer.put(sentence)
        if number in classes:
            writer.macro("br")
            writer.macro("Po")
            writer.lines += listed(f"Vt {name}" for name in classes[number])
            writer.macro("Pc")
    writer.macro("El")
    return writer.lines


def with_table(text):
    begin, end = '.\\" table of messages, written by scripts/man_pages.py', '.\\" end of the table'
    head, rest = text.split(begin + "\n")
    _, tail = rest.split(end + "\n")
    return "\n".join([head + begin, *error_table(), end]) + "\n" + tail


# ----------------------------------------------------------------------------------------- running

def main():
    check = sys.argv[1:] == ["--check"]
    if sys.argv[1:] and not check:
        sys.exit(__doc__)
    fresh = {PAGES / f"{name}.3": text for header in HEADERS for name, text in pages_of(header)}
    errors = PAGES / "zfc-errors.7"
    fresh[errors] = with_table(errors.read_text())

    stale = [path for path, text in fresh.items()
             if not path.exists() or path.read_text() != text]
    orphans = [path for path in PAGES.glob("*.3") if path not in fresh]
    if check:
        complaints = [f"{path.relative_to(ROOT)} is not fresh; scripts/man_pages.py writes it"
                      for path in stale]
        complaints += [f"{path.relative_to(ROOT)} is of no header" for path in orphans]
        lint = subprocess.run(["mandoc", "-T", "lint", "-W", "warning", *sorted(PAGES.iterdir())],
                              capture_output=True, text=True, check=False)
        complaints += (lint.stdout + lint.stderr).splitlines()
        print(*complaints, f"manual: {len(list(PAGES.iterdir()))} pages, "
              f"{len(complaints)} complaints", sep="\n")
        sys.exit(1 if complaints else 0)
    for path in stale:
        path.write_text(fresh[path])
        print(f"wrote {path.relative_to(ROOT)}")
    for path in orphans:
        path.unlink()
        print(f"removed {path.relative_to(ROOT)}")


main()
