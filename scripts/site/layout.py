"""What all pages of the site share: their frame, the menu, highlighted code, and where things are.

A page is well-formed XML as well as HTML, so that the checks can read it with a strict parser.
"""
import html
import os
import re
from dataclasses import dataclass, field
from pathlib import Path
from string import Template

from pygments.lexers import get_lexer_by_name, get_lexer_for_filename
from pygments.token import Comment, Keyword, Literal, Name, Number, Operator, String
from pygments.util import ClassNotFound

TREE = Path(__file__).resolve().parents[2]
SITE = TREE / "docs/site"
# The outer token types come behind those within them.
COLOURS = [(Comment.Preproc, "n"), (Comment.PreprocFile, "s"), (Comment, "c"), (Keyword.Type, "n"),
           (Keyword, "k"), (Operator.Word, "k"), (String, "s"), (Number, "m"), (Literal, "m"),
           (Name.Attribute, "n"), (Name.Builtin, "n"), (Name.Tag, "k")]


class Complaint(Exception):
    """What is wrong with a page or with what it is made of."""


@dataclass
class Page:
    place: str  # below the site's folder
    title: str
    content: str
    headings: list = field(default_factory=list)  # (level, id, text), for the box at the side
    source: str = ""  # the guide's file, which the menu marks
    footer: str = ""


@dataclass
class Guide:
    source: str
    name: str  # in the menu
    group: str

    @property
    def place(self):
        if self.source == "README.md":
            return "index.html"
        if self.source == "src/Z/README.md":
            return "rules.html"
        path = Path(self.source)
        return (path.parent.name if path.stem == "README" else path.stem.lower()) + ".html"


def read_order():
    """The guides in the order of docs/site/order, those alone that exist."""
    guides, group = [], ""
    for line in (SITE / "order").read_text().splitlines():
        if line.startswith("["):
            group = line.strip("[] ")
        elif line.strip() and not line.startswith("#"):
            source, name = line.split(None, 1)
            guides.append(Guide(source, name.strip(), group))
    known = {guide.source for guide in guides}
    for page in sorted((TREE / "docs").glob("*.md")):
        if f"docs/{page.name}" not in known:
            raise Complaint(f"docs/{page.name}: docs/site/order has no line for it")
    return [guide for guide in guides if (TREE / guide.source).is_file()]


def escape(text):
    return html.escape(text, quote=True)


def slug(text):
    """The anchor of a heading as code hosting pages make it."""
    return re.sub(r"[^\w\- ]", "", text.lower()).replace(" ", "-")


def colour_of(kind):
    return next((colour for outer, colour in COLOURS if kind in outer), None)


def highlight(code, language="", file=""):
    try:
        lexer = get_lexer_by_name(language) if language else get_lexer_for_filename(file)
    except ClassNotFound:
        return escape(code)
    lexer.stripnl, lexer.ensurenl = False, False
    out = []
    for kind, text in lexer.get_tokens(code):
        colour = colour_of(kind)
        out.append(f'<span class="{colour}">{escape(text)}</span>' if colour else escape(text))
    return "".join(out)


def code_block(code, language="", file=""):
    # Something that scrolls has to be reached without a mouse.
    return f'<pre tabindex="0"><code>{highlight(code.rstrip(), language, file)}</code></pre>\n'


def plain(markup):
    """The text of some HTML."""
    return html.unescape(re.sub(r"<[^>]+>", "", markup)).strip()


class Frame:
    def __init__(self, guides, out):
        self.template = Template((SITE / "page.html").read_text())
        self.guides = guides
        self.out = out

    def menu(self, page, top):
        parts, group = [], None
        for guide in self.guides:
            if guide.group != group:
                parts.append(("</ul>\n" if group else "") + f"<p>{escape(guide.group)}</p>\n<ul>")
                group = guide.group
            parts.append(self.entry(page, top, guide.place, guide.name))
        parts.append("</ul>\n<p>Reference</p>\n<ul>")
        parts.append(self.entry(page, top, "reference/index.html", "Headers and classes"))
        parts.append(self.entry(page, top, "man/index.html", "Manual pages"))
        return "\n".join(parts + ["</ul>"])

    @staticmethod
    def entry(page, top, place, name):
        mark = ' aria-current="page"' if page.place == place else ""
        return f'<li><a href="{top}{place}"{mark}>{escape(name)}</a></li>'

    @staticmethod
    def contents(page):
        if len(page.headings) < 3:
            return ""
        items = "\n".join(
            f'<li{" class=" + chr(34) + "deeper" + chr(34) if level > 2 else ""}>'
            f'<a href="#{anchor}">{escape(text)}</a></li>' for level, anchor, text in page.headings)
        return ('<nav class="contents" aria-label="On this page">\n<p>On this page</p>\n'
                f"<ul>\n{items}\n</ul>\n</nav>")

    def write(self, page):
        top = "../" * page.place.count("/")
        title = page.title if page.place == "index.html" else f"{page.title} - ZFC"
        text = self.template.substitute(
            title=escape(title), top=top, menu=self.menu(page, top), content=page.content,
            contents=self.contents(page), footer=page.footer)
        file = self.out / page.place
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text)


def relative(place, start):
    """The link from one page to another, or to its anchor."""
    path, mark, anchor = place.partition("#")
    return os.path.relpath(path, os.path.dirname(start) or ".") + mark + anchor
