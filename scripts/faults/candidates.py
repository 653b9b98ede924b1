"""The faults that can be planted into src, and which of them a seed takes.

A fault is ranked by a hash of what its line says, never of where it stands: two versions of the tree
get the same faults wherever they have the same code, also when files moved between folders.
"""
import hashlib
import re
from collections import Counter, defaultdict
from dataclasses import dataclass
from pathlib import Path

OPERATORS = {
    "==": ["!="], "!=": ["=="], "<": ["<=", ">="], "<=": ["<"], ">": [">=", "<="], ">=": [">"],
    "&&": ["||"], "||": ["&&"], "+": ["-"], "-": ["+"], "+=": ["-="], "-=": ["+="],
}
# The formatter sets blanks around a binary operator, and none around those of templates and signs.
OPERATOR = re.compile(r"(?<=\s)(==|!=|<=|>=|<|>|&&|\|\||\+=|-=|\+|-)(?=\s|$)")
NOT = re.compile(r"(?<![\w)])!(?=[\w(*])")
NUMBER = re.compile(r"(?<![\w.'])(0x[0-9a-fA-F]+|[0-9]+)(?=[uUlL]*(?![\w.']))")
TRUTH = re.compile(r"\b(true|false)\b")
CONDITION = re.compile(r"\b(if|while) \(")
DECLARED = re.compile(r"\w[\w:<>*& ]* \w+ = (?=[^=])")  # "if (int const rc = ...)"
TERNARY = re.compile(r"(?<=\s)\?(?=\s)")
KEYWORD = re.compile(r"(return|throw|break|continue|goto|using|typedef|friend|static_assert|case|"
                     r"default|if|else|for|while|do|switch|template|class|struct|enum|extern|"
                     r"namespace|public|private|protected|co_return|static_cast<void>)\b")
CALL = re.compile(r"[\w:.\[\]*&>()-]+(<[\w:, *&]+>)?\(.*\);$")
CHANGE = re.compile(r"([\w:.\[\]*()>-]|, |->| [+-] )+ ([-+*/%&|^]|<<|>>)?= .*;$|(\+\+|--)\S+;$|"
                    r"\S+(\+\+|--);$|delete(\[\])? \S+;$")
STATEMENT_END = re.compile(r"([;{}:]|\)|\belse|\bdo)$")
LITERAL = re.compile(r'//[^\n]*|/\*.*?\*/|R"\((?:.*?)\)"|"(?:\\.|[^"\\\n])*"|'
                     r"(?<![0-9a-fA-F])'(?:\\.|[^'\\\n])*'", re.DOTALL)


@dataclass(frozen=True)
class Fault:
    """One line of one file, put wrong. `path` counts from the tree."""
    rank: str
    room: str
    path: str
    line: int
    kind: str
    before: str
    after: str


def blanked(text):
    """The code alone: comments and what quotes hold become blanks, at the same offsets."""
    def blank(match):
        found = match[0]
        if found[0] == "/":
            return re.sub(r"[^\n]", " ", found)
        return found[0] + re.sub(r"[^\n]", " ", found[1:-1]) + found[-1]
    return LITERAL.sub(blank, text)


def uncommented(text):
    return LITERAL.sub(lambda m: re.sub(r"[^\n]", " ", m[0]) if m[0][0] == "/" else m[0], text)


def closing(code, begin):
    """Where the bracket that opens at `begin` closes; -1 when on another line."""
    depth = 0
    for at in range(begin, len(code)):
        depth += (code[at] in "([{") - (code[at] in ")]}")
        if depth == 0:
            return at
    return -1


def end_of_part(code, begin, ends):
    """The first of the characters `ends`, or the first bracket closed but not opened, from `begin`."""
    depth = 0
    for at in range(begin, len(code)):
        if depth == 0 and (code[at] in ends or code[at] in ")]}"):
            return at
        depth += (code[at] in "([{") - (code[at] in ")]}")
    return -1


def swapped_choice(code, text, mark):
    """`text` with the two answers of its "?" at `mark` swapped; None when they go over the line."""
    colon = code.find(" : ", mark)
    end = end_of_part(code, colon + 3, ";,") if colon >= 0 else -1
    if end < 0 or code.count("?", mark, end) != 1 or end_of_part(code, mark, ":") != colon + 1:
        return None
    return text[:mark + 2] + text[colon + 3:end] + " : " + text[mark + 2:colon] + text[end:]


def is_statement(code, previous):
    """Is the line one whole call or change, which need not be there for the rest to compile?"""
    code = code.strip()
    if not code.endswith(";") or KEYWORD.match(code) or code.count("(") != code.count(")"):
        return False
    if previous and not STATEMENT_END.search(previous):
        return False
    return bool(CALL.match(code) or CHANGE.match(code))


def mutations(code, text, previous):
    """(kind, how-manieth of its kind in the line, the line put wrong) of each fault of a line."""
    found = []

    def add(kind, number, start, end, replacement):
        found.append((kind, number, text[:start] + replacement + text[end:]))

    for number, match in enumerate(OPERATOR.finditer(code)):
        for other in OPERATORS[match[0]]:
            add(f"{match[0]} to {other}", number, *match.span(), other)
    for number, match in enumerate(NOT.finditer(code)):
        add("no !", number, *match.span(), "")
    for number, match in enumerate(NUMBER.finditer(code)):
        value, form = int(match[0], 0 if match[0][:2] == "0x" else 10), "{}"
        if match[0][:2] == "0x":
            form = "{:#x}"
        add("one more", number, *match.span(), form.format(value + 1))
        if value > 0:
            add("one less", number, *match.span(), form.format(value - 1))
    for number, match in enumerate(TRUTH.finditer(code)):
        add("truth", number, *match.span(), "false" if match[0] == "true" else "true")
    for number, match in enumerate(CONDITION.finditer(code)):
        end = closing(code, match.end() - 1)
        if end > 0:
            declared = DECLARED.match(code, match.end(), end)
            begin = declared.end() if declared else match.end()
            add("condition", number, begin, end, "!(" + text[begin:end] + ")")
    for number, match in enumerate(TERNARY.finditer(code)):
        swapped = swapped_choice(code, text, match.start())
        if swapped:
            found.append(("choice", number, swapped))
    if is_statement(code, previous):
        indent = len(text) - len(text.lstrip())
        found.append(("dropped", 0, text[:indent] + ";"))
    return found


def normalised(line):
    """What stays when names are qualified otherwise and const stands elsewhere."""
    return re.sub(r"\s+|\bconst\b|\b\w+::", "", line)


def rank_of(*parts):
    return hashlib.sha256("\0".join(map(str, parts)).encode()).hexdigest()[:16]


def faults_of(path, tree, room, seed, seen):
    """All faults of one file; `seen` counts the lines of equal text in files of equal name."""
    text = path.read_text()
    code_lines, said_lines = blanked(text).split("\n"), uncommented(text).split("\n")
    previous, found, directive = "", [], False
    for number, (line, code, said) in enumerate(zip(text.split("\n"), code_lines, said_lines), 1):
        directive = code.lstrip().startswith("#") or directive
        if directive:
            directive = code.rstrip().endswith("\\")
        elif code.strip():
            key = normalised(said)
            seen[path.name, key] += 1
            for kind, nth, wrong in mutations(code, line, previous):
                rank = rank_of(seed, path.name, key, seen[path.name, key], kind, nth)
                where = path.relative_to(tree).as_posix()
                found.append(Fault(rank, room, where, number, kind, line.strip(), wrong.strip()))
            previous = code.strip()
    return found, sum(1 for code in code_lines if code.strip())


def room_of(path, src):
    """The first folder below src/Z, or "qcs"; None for a public header."""
    parts = path.relative_to(src).parts
    if parts[0] == "Z":
        return parts[1] if len(parts) > 2 else None
    return None if path.name == "qcs.h" else parts[0]


def ranked_faults(tree, seed):
    """{room: faults, lowest rank first, one for each line} and {room: lines of code}."""
    src, faults, lines, seen = Path(tree) / "src", defaultdict(list), Counter(), Counter()
    for path in sorted(src.rglob("*"), key=lambda p: (p.name, p.as_posix())):
        room = room_of(path, src) if path.suffix in (".cpp", ".h") else None
        if room:
            found, count = faults_of(path, Path(tree), room, seed, seen)
            faults[room] += found
            lines[room] += count
    for room, found in faults.items():
        best = {}
        for fault in sorted(found, key=lambda f: f.rank):
            best.setdefault((fault.path, fault.line), fault)
        faults[room] = list(best.values())
    return faults, lines


def quotas(lines, count):
    """`count` shared out among rooms in proportion to their lines, largest remainders first."""
    total = sum(lines.values())
    shares = {room: count * n / total for room, n in lines.items()}
    quota = {room: int(share) for room, share in shares.items()}
    rest = sorted(shares, key=lambda room: quota[room] - shares[room])
    for room in rest[:count - sum(quota.values())]:
        quota[room] += 1
    return quota
