"""Pages of the public headers, from Doxygen's XML: one for each header, and an index by rooms.

Doxygen complains of names without a contract; what it passes over is looked for here.
"""
import re
import textwrap
import xml.etree.ElementTree as ElementTree
from dataclasses import dataclass, field

from layout import TREE, Complaint, Page, code_block, escape, highlight, plain, relative

ABOVE = "As the one above."
COMPILER = "Member by member, as the compiler makes it."
SHOWN = {"public", "protected"}
TAGS = {"bold": "strong", "emphasis": "em", "itemizedlist": "ul", "orderedlist": "ol",
        "listitem": "li", "superscript": "sup", "subscript": "sub"}


@dataclass
class Entry:
    """Members that one contract holds for."""
    signatures: list
    ids: list
    text: str
    is_protected: bool = False


@dataclass
class Header:
    name: str
    room: str
    brief: str
    text: str
    entries: list = field(default_factory=list)  # outside of classes
    classes: list = field(default_factory=list)

    @property
    def place(self):
        return f"reference/{self.name[:-2]}.html"


class Reference:
    def __init__(self, xml):
        self.compounds = {}
        for file in sorted(xml.glob("*.xml")):
            for compound in ElementTree.parse(file).getroot().findall("compounddef"):
                self.compounds[compound.get("id")] = compound
        self.members = {member.get("id"): member for compound in self.compounds.values()
                        for member in compound.iter("memberdef")}
        self.anchors = self.find_anchors()
        self.names, self.complaints = [], []

    def of_kind(self, *kinds):
        return [one for one in self.compounds.values() if one.get("kind") in kinds]

    # ------------------------------------------------------------------------------- where it is

    def find_anchors(self):
        """Doxygen's id of everything that is shown: its page and a readable anchor."""
        anchors, used = {}, set()
        for compound in self.compounds.values():
            if compound.get("kind") in ("dir", "page") or compound.get("prot") == "private":
                continue
            own = readable(name_of(compound))
            if compound.get("kind") in ("class", "struct", "union") and "@" not in own:
                anchors[compound.get("id")] = (header_of(compound), own)
                used.add((header_of(compound), own))
            if compound.get("kind") == "file":
                anchors[compound.get("id")] = (compound.findtext("compoundname"), "")
            prefix = own + "." if compound.get("kind") in ("class", "struct", "union") else ""
            for member in shown_members(compound):
                wish = prefix + readable(member.findtext("name"))
                anchor, count = wish, 1
                while (header_of(member), anchor) in used:
                    count += 1
                    anchor = f"{wish}-{count}"
                used.add((header_of(member), anchor))
                anchors[member.get("id")] = (header_of(member), anchor)
                for value in member.findall("enumvalue"):
                    anchors[value.get("id")] = (header_of(member), anchor)
        return anchors

    def link(self, refid, start):
        if refid not in self.anchors:
            return None
        header, anchor = self.anchors[refid]
        place = f"reference/{header[:-2]}.html" + (f"#{anchor}" if anchor else "")
        return relative(place, start)

    # ---------------------------------------------------------------------------------- contracts

    def text_of(self, element, start):
        """The contract of a compound or member, as HTML."""
        parts = [self.block(part, start) for name in ("briefdescription", "detaileddescription")
                 for part in element.findall(name)]
        return "".join(parts).strip()

    def block(self, element, start):
        out = [escape((element.text or "").strip("\n"))]
        for child in element:
            out.append(self.convert(child, start))
            out.append(escape(child.tail or ""))
        return "".join(out)

    def convert(self, element, start):
        tag = element.tag
        if tag == "para":
            return self.paragraph(element, start)
        if tag == "computeroutput":
            return f"<code>{self.block(element, start)}</code>"
        if tag == "ref":
            return self.reference(element, start)
        if tag in TAGS:
            return f"<{TAGS[tag]}>{self.block(element, start)}</{TAGS[tag]}>"
        if tag == "table":
            return self.table(element, start)
        if tag in ("ndash", "mdash"):
            return "-"
        if tag == "sp":
            return " "
        if tag == "ulink":
            return f'<a href="{escape(element.get("url"))}">{self.block(element, start)}</a>'
        raise Complaint(f"a contract on {start} has the markup <{tag}>, which is not known here")

    def paragraph(self, element, start):
        """Lists stand between paragraphs, not in them; contracts.py has packed what is code."""
        if code := re.fullmatch("zfccode([0-9a-f]+)", (element.text or "").strip()):
            text = textwrap.dedent(bytes.fromhex(code[1]).decode())
            return code_block(text, "cpp" if re.search(r"[;{]\s*(//.*)?$", text, re.M) else "")
        out, line = [], escape(element.text or "")
        for child in element:
            markup = self.convert(child, start)
            if child.tag in ("itemizedlist", "orderedlist", "table"):
                out += [line, markup]
                line = ""
            else:
                line += markup
            line += escape(child.tail or "")
        out.append(line)
        return "".join(
            part if part.startswith(("<ul", "<ol", "<div")) else f"<p>{part.strip()}</p>\n"
            for part in out if part.strip())

    def table(self, element, start):
        rows = []
        for row in element.findall("row"):
            cells = [(entry.get("thead") == "yes", self.block(entry, start))
                     for entry in row.findall("entry")]
            if any(plain(text) for _, text in cells):
                rows.append("".join(f"<th>{text}</th>" if head else f"<td>{text}</td>"
                                    for head, text in cells))
        lines = "\n".join(f"<tr>{row}</tr>" for row in rows)
        return framed_table("Table", lines)

    def reference(self, element, start):
        text = escape("".join(element.itertext()))
        link = self.link(element.get("refid"), start)
        return f'<a href="{link}">{text}</a>' if link else text

    # ------------------------------------------------------------------------------------ members

    def entries(self, members, place):
        """Members with their contracts, those that share one together."""
        out = []
        for member in sorted(members, key=line_of):
            if self.is_deleted(member) or self.says_nothing_new(member):
                continue
            text = self.text_of(member, place)
            self.require(member, text)
            signature = signature_of(member)
            if member.get("kind") == "enum":
                text += self.enum_values(member, place)
            if out and text and (plain(text) == ABOVE or text == out[-1].text):
                out[-1].signatures.append(signature)
                out[-1].ids.append(member.get("id"))
            else:
                out.append(Entry([signature], [member.get("id")], text))
            out[-1].is_protected = member.get("prot") == "protected"
            self.note(member)
        return out

    def note(self, member):
        """Puts the name where the search finds it."""
        name = member.findtext("qualifiedname") or member.findtext("name")
        if "operator" in name or "@" in name:
            return
        header, anchor = self.anchors[member.get("id")]
        self.names.append((name.replace("zrelease::", ""), f"reference/{header[:-2]}.html#{anchor}",
                           member.get("kind").replace("define", "macro")))

    @staticmethod
    def is_deleted(member):
        return re.search(r"=\s*delete$", member.findtext("argsstring") or "") is not None

    def says_nothing_new(self, member):
        """Whether an override's contract is that of what it overrides."""
        base = member.find("reimplements")
        if base is None or base.get("refid") not in self.members:
            return False
        return plain(self.text_of(member, "")) == plain(self.text_of(
            self.members[base.get("refid")], ""))

    def require(self, member, text):
        """What Doxygen lets pass without a contract: only what the class's own covers."""
        name = member.findtext("name")
        bare = name.startswith("~") or (member.findtext("argsstring") or "").startswith("()")
        bare = bare or name.startswith("@")  # its values have contracts of their own
        if not plain(text) and not (bare and not member.findtext("type")):
            self.complain(member, name)

    def complain(self, element, name):
        file = element.find("location").get("file")
        self.complaints.append(f"src/{file}:{line_of(element)}: {name} has no contract")

    def enum_values(self, member, place):
        rows = []
        for value in member.findall("enumvalue"):
            text = self.text_of(value, place)
            if not plain(text) and not plain(self.text_of(member, place)):
                self.complain(member, value.findtext("name"))
            initial = (value.findtext("initializer") or "").lstrip("= ")
            rows.append(f"<tr><td><code>{escape(value.findtext('name'))}</code></td>"
                        f"<td>{escape(initial)}</td><td>{text}</td></tr>\n")
            header, anchor = self.anchors[value.get("id")]
            self.names.append((value.findtext("name"), f"reference/{header[:-2]}.html#{anchor}",
                               "value"))
        return framed_table("Values", "".join(rows))

    def show(self, entry):
        anchors = [self.anchors[one][1] for one in entry.ids]
        marks = "".join(f'<span id="{escape(anchor)}"></span>' for anchor in anchors[1:])
        code = highlight("\n".join(entry.signatures), "cpp")
        note = '<p class="lead">For derived classes.</p>\n' if entry.is_protected else ""
        text = "" if plain(entry.text) == COMPILER else entry.text
        return (f'<div class="member" id="{escape(anchors[0])}">{marks}'
                f'<pre tabindex="0"><code>{code}</code></pre>\n{text}{note}</div>\n')

    # -------------------------------------------------------------------------------------- pages

    def pages(self):
        headers = self.headers()
        for header in headers:
            yield self.header_page(header)
        yield self.index(headers)
        if self.complaints:
            raise Complaint("\n".join(sorted(set(self.complaints))))

    def headers(self):
        headers = []
        files = {file.findtext("compoundname"): file for file in self.of_kind("file")}
        for name, file in sorted(files.items(), key=lambda item: item[0].lower()):
            place = f"reference/{name[:-2]}.html"
            text = self.text_of(file, place)
            # The first sentence; one that introduces a table or list ends with a colon.
            brief = escape(re.match(r".*?(?:[.:](?=\s|$)|$)", plain(text), re.S)[0])
            brief = re.sub(":$", ".", brief)
            if not brief:
                self.complaints.append(f"src/Z/{name}:1: the header begins without a comment")
            header = Header(name, room_of(name), brief, text)
            header.entries = self.entries(self.free_members(file, name), place)
            header.classes = self.classes_of(name)
            headers.append(header)
            self.names.append((name, place, "header"))
        return headers

    def free_members(self, file, name):
        """What the header declares outside of classes, in namespaces as well."""
        found = {member.get("id"): member for member in shown_members(file)}
        for space in self.of_kind("namespace"):
            found.update((member.get("id"), member) for member in shown_members(space)
                         if header_of(member) == name)
        return found.values()

    def classes_of(self, name):
        return sorted((one for one in self.of_kind("class", "struct", "union")
                       if one.get("prot") in SHOWN and header_of(one) == name
                       and not re.search("[@.]", name_of(one)) and one.get("id") in self.anchors
                       and self.is_reached(one)),
                      key=line_of)

    def is_reached(self, compound):
        """Whether no class around it is private."""
        outer = name_of(compound)
        while "::" in outer:
            outer = outer.rpartition("::")[0]
            if any(name_of(one) == outer and one.get("prot") not in SHOWN
                   for one in self.of_kind("class", "struct")):
                return False
        return True

    def header_page(self, header):
        parts = [f"<h1>{escape(header.name)}</h1>\n",
                 code_block(f'#include "Z/{header.name}"', "cpp"), header.text]
        side = []
        for compound in header.classes:
            parts.append(self.class_section(compound, header.place))
            if "<" not in short_name(compound):
                side.append((2, self.anchors[compound.get("id")][1], short_name(compound)))
        if header.entries:
            title = "Functions and names" if header.classes else "Contents"
            parts.append(f'<section>\n<h2 id="functions">{title}</h2>\n'
                         + "".join(map(self.show, header.entries)) + "</section>\n")
            side.append((2, "functions", title))
        footer = '<a href="index.html">All headers and classes</a>'
        return Page(header.place, header.name, "".join(parts), side, "", footer)

    def class_section(self, compound, place):
        anchor = self.anchors[compound.get("id")][1]
        name = short_name(compound)
        text = self.text_of(compound, place)
        if not plain(text):
            self.complain(compound, name)
        self.names.append((name, f"{place}#{anchor}", compound.get("kind")))
        parts = [f'<section>\n<h2 id="{escape(anchor)}"><a class="here" href="#{escape(anchor)}">'
                 f'{compound.get("kind")} {escape(name)}</a></h2>\n',
                 self.bases(compound, place), text]
        members = list(shown_members(compound))
        parts += map(self.show, self.entries(members, place))
        parts.append(self.quiet_members(members, place))
        return "".join(parts) + "</section>\n"

    def bases(self, compound, place):
        out = []
        for words, tag in (("Is a", "basecompoundref"), ("Base of", "derivedcompoundref")):
            links = []
            for base in compound.findall(tag):
                if base.get("prot") == "private" or "@" in base.text:
                    continue
                link = self.link(base.get("refid"), place) if base.get("refid") else None
                text = f"<code>{escape(base.text.replace('zrelease::', ''))}</code>"
                links.append(f'<a href="{link}">{text}</a>' if link else text)
            if links:
                out.append(f'{words} {", ".join(links)}.')
        return f'<p class="lead">{" ".join(out)}</p>\n' if out else ""

    def quiet_members(self, members, place):
        """The overrides whose contract is their base's, in one line."""
        links = []
        for member in members:
            if self.says_nothing_new(member):
                base = self.origin(member)
                link = self.link(base.get("id"), place)
                anchor = escape(self.anchors[member.get("id")][1])
                name = f'<code id="{anchor}">{escape(member.findtext("name"))}()</code>'
                links.append(f'<a href="{link}">{name}</a>' if link else name)
        return f'<p>As the base says: {", ".join(links)}.</p>\n' if links else ""

    def origin(self, member):
        while self.says_nothing_new(member):
            member = self.members[member.find("reimplements").get("refid")]
        return member

    def index(self, headers):
        parts = ["<h1>Headers and classes</h1>\n<p>Every public name stands in its header, with "
                 "its contract. The <a href=\"../rules.html\">rules that all of them share</a> are "
                 "said once. The search above finds classes, functions and values by any part of "
                 "their names.</p>\n"]
        side = []
        for room in rooms():
            here = [header for header in headers if header.room == room]
            if not here:
                continue
            title = room.replace("_", " ")
            parts.append(f'<h2 id="{room}">{title}</h2>\n<dl>\n')
            parts += map(self.index_entry, here)
            parts.append("</dl>\n")
            side.append((2, room, title))
        return Page("reference/index.html", "Headers and classes", "".join(parts), side)

    def index_entry(self, header):
        page = header.place.partition("/")[2]
        links = [f'<a href="{page}#{escape(self.anchors[one.get("id")][1])}">'
                 f"<code>{escape(short_name(one))}</code></a>" for one in header.classes
                 if "<" not in name_of(one)]
        classes = f'<br/>{", ".join(links)}' if links else ""
        return (f'<dt><a href="{page}"><code>{header.name}</code></a></dt>\n'
                f"<dd>{header.brief}{classes}</dd>\n")


def framed_table(label, rows):
    """Something that scrolls has to be reached without a mouse."""
    return (f'<div class="table" role="region" aria-label="{label}" tabindex="0"><table>\n'
            f"<tbody>\n{rows}</tbody>\n</table></div>\n")


def name_of(compound):
    return compound.findtext("compoundname").replace("zrelease::", "")


def short_name(compound):
    return re.sub(r"< (.*) >", r"<\1>", name_of(compound))


def readable(name):
    """An anchor: what XML and addresses take as it stands."""
    name = name.replace("<", "lt").replace(">", "gt") if "operator" in name else name
    return re.sub(r"[^\w:.~=!+*()-]+", "-", name.replace(" ", ""))


def header_of(element):
    return element.find("location").get("file").rpartition("/")[2]


def line_of(element):
    return int(element.find("location").get("line"))


def shown_members(compound):
    for member in compound.iter("memberdef"):
        if member.get("prot") not in SHOWN or "@" in (member.findtext("name") or "") \
                and member.get("kind") != "enum":
            continue
        if member.get("kind") == "friend" and not member.findtext("argsstring"):
            continue
        yield member


def signature_of(member):
    """The declaration, as a reader of the header would see it."""
    kind, name = member.get("kind"), member.findtext("name")
    if kind == "define":
        arguments = [param.findtext("defname") or "" for param in member.findall("param")]
        return f"#define {name}" + (f"({', '.join(arguments)})" if arguments else "")
    if kind == "enum":
        named = "" if name.startswith("@") or not name else f" {name}"
        return f"enum{' class' if member.get('strong') == 'yes' else ''}{named}"
    type_ = "".join(member.find("type").itertext()) if member.find("type") is not None else ""
    type_ = tidy(re.sub(r"\[\[\w+\]\]\s*", "", type_))
    if kind == "typedef":
        return f"using {name} = {type_}"
    parameters = [
        "".join(param.find("type").itertext()) + (
            f" {param.findtext('declname')}" if param.find("declname") is not None else "") + (
            f" = {''.join(param.find('defval').itertext())}" if param.find("defval") is not None
            else "")
        for param in member.findall("templateparamlist/param")]
    template = f"template <{', '.join(parameters)}>\n" if parameters else ""
    words = ["static"] if member.get("static") == "yes" and kind != "friend" else []
    words += ["virtual"] if member.get("virt") in ("virtual", "pure-virtual") else []
    words += ["friend"] if kind == "friend" else []
    arguments = re.sub(r"\s*\b(override|ZNO_THREAD_SAFETY_ANALYSIS)\b", "",
                       member.findtext("argsstring") or "")
    arguments = tidy(re.sub(r"=0$", " = 0", re.sub(r"\s*=\s*default$", "", arguments)))
    initial = member.findtext("initializer") or ""
    if kind == "variable" and 0 < len(initial) < 30 and "\n" not in initial:
        arguments += " " + initial
    return template + " ".join(words + ([type_] if type_ else []) + [name + arguments])


def tidy(code):
    """References and pointers as the house writes them."""
    return re.sub(r" +([&*]+) ?(?=([\w.])|[),]|$)",
                  lambda found: found[1] + (" " if found[2] else ""), code)


def rooms_file():
    return [words for line in (TREE / "scripts/rooms.txt").read_text().splitlines()
            if (words := line.split("#")[0].split())]


def rooms():
    """The rooms from the ground up."""
    return [words[0] for words in rooms_file() if len(words) == 1]


def room_of(header):
    """The room of the source that bears the header's name, else the one that rooms.txt gives."""
    for source in sorted((TREE / "src/Z").rglob(f"{header[:-2]}.cpp")):
        return source.relative_to(TREE / "src/Z").parts[0]
    return dict(words for words in rooms_file() if len(words) == 2).get(header, rooms()[0])
