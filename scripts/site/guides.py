"""Pages from Markdown: the guides of docs/ and those at the root of the tree."""
import os
import posixpath
import re

from layout import TREE, Complaint, Page, code_block, escape, relative, slug
from manual import pages_of_manual, place_of
from markdown_it import MarkdownIt

EXAMPLE = re.compile(r"^<!--\s*(examples/\S+)")


class Places:
    """Where the site has what is in the tree; remembers what pages refer to."""

    def __init__(self, guides):
        self.guides = {guide.source: guide.place for guide in guides}
        # Those that hold version tags alone are no pages of the reference.
        self.headers = {f"src/Z/{header.name}": f"reference/{header.stem}.html"
                        for header in (TREE / "src/Z").glob("*.h")
                        if header.name not in ("ztags.h", "zuntag.h")}
        self.manual = pages_of_manual()
        self.files, self.pictures = set(), set()

    def of(self, path):
        """The place of a file or folder of the tree, null when there is none."""
        if path in self.guides:
            return self.guides[path]
        if path == "src/Z":
            return "reference/index.html"
        if f"{path}/README.md" in self.guides:
            return self.guides[f"{path}/README.md"]
        if path in self.headers:
            return self.headers[path]
        full = TREE / path
        if not full.exists():
            return None
        if full in self.manual:
            return place_of(full)
        if path.endswith((".svg", ".png")):
            self.pictures.add(path)
            return path
        self.files.add(path)
        return f"files/{path}/index.html" if full.is_dir() else f"files/{path}.html"


class GuideMaker:
    def __init__(self, places):
        self.places = places
        self.parser = MarkdownIt("commonmark", {"html": True, "xhtmlOut": True}).enable("table")
        for rule in ("fence", "code_block", "html_block", "html_inline", "heading_open",
                     "heading_close", "link_open", "image", "table_open", "table_close",
                     "blockquote_open", "blockquote_close", "paragraph_open", "paragraph_close"):
            self.parser.renderer.rules[rule] = getattr(self, rule)

    def make(self, guide, footer):
        self.guide, self.anchors, self.headings = guide, {}, []
        self.example, self.ends = None, []
        tokens = self.parser.parse((TREE / guide.source).read_text())
        self.name_headings(tokens)
        drop_empty_heads(tokens)
        content = self.parser.renderer.render(tokens, self.parser.options, {})
        title = next((text for level, _, text in self.headings if level == 1), None)
        if title is None:
            raise Complaint(f"{guide.source}: the page has no heading of the first level")
        side = [heading for heading in self.headings if heading[0] in (2, 3)]
        return Page(guide.place, title, content, side, guide.source, footer)

    def name_headings(self, tokens):
        last = 0
        for opening, inline in zip(tokens, tokens[1:]):
            if opening.type != "heading_open":
                continue
            level, text = int(opening.tag[1]), plain_text(inline)
            if level > last + 1:
                raise Complaint(f"{self.guide.source}: the heading \"{text}\" skips a level")
            last = level
            anchor = slug(text)
            count = self.anchors[anchor] = self.anchors.get(anchor, -1) + 1
            opening.attrSet("id", f"{anchor}-{count}" if count else anchor)
            self.headings.append((level, opening.attrs["id"], text))

    def link(self, target):
        """What a link of the Markdown is on the site."""
        if re.match(r"(https?|mailto):", target) or target.startswith("#"):
            return target
        path, mark, anchor = target.partition("#")
        path = posixpath.normpath(posixpath.join(os.path.dirname(self.guide.source), path))
        place = self.places.of(path)
        if place is None:
            raise Complaint(f"{self.guide.source}: there is no {path}")
        return relative(place, self.guide.place) + mark + anchor

    # What the renderer calls for each token.

    def fence(self, tokens, i, options, env):
        source, self.example = self.example, None
        head = ""
        if source:
            link = relative(self.places.of(source), self.guide.place)
            head = f'<p class="from"><a href="{link}">{escape(source)}</a></p>\n'
        return head + code_block(tokens[i].content, tokens[i].info.strip().split(" ")[0])

    def code_block(self, tokens, i, options, env):
        return code_block(tokens[i].content)

    def html_block(self, tokens, i, options, env):
        text = tokens[i].content.strip()
        if not re.fullmatch(r"<!--.*-->", text, re.S):
            raise Complaint(f"{self.guide.source}: HTML other than comments: {text[:40]}")
        found = EXAMPLE.match(text)
        self.example = found[1] if found else None
        return ""

    html_inline = html_block

    def heading_open(self, tokens, i, options, env):
        anchor = tokens[i].attrs["id"]
        here = f'<a class="here" href="#{anchor}">' if tokens[i].tag != "h1" else ""
        if here and any(child.type == "link_open" for child in tokens[i + 1].children):
            here = ""  # no link within a link
        self.ends.append("</a>" if here else "")
        return f'<{tokens[i].tag} id="{anchor}">{here}'

    def heading_close(self, tokens, i, options, env):
        return f"{self.ends.pop()}</{tokens[i].tag}>\n"

    def link_open(self, tokens, i, options, env):
        return f'<a href="{escape(self.link(tokens[i].attrs["href"]))}">'

    def image(self, tokens, i, options, env):
        source, words = self.link(tokens[i].attrs["src"]), plain_text(tokens[i])
        if not words:
            raise Complaint(f"{self.guide.source}: the picture {source} has no text")
        return f'<img src="{escape(source)}" alt="{escape(words)}"/>'

    def table_open(self, tokens, i, options, env):
        return '<div class="table" role="region" aria-label="Table" tabindex="0"><table>\n'

    def table_close(self, tokens, i, options, env):
        return "</table></div>\n"

    def blockquote_open(self, tokens, i, options, env):
        inline = next(token for token in tokens[i:] if token.type == "inline")
        is_why = inline.content.startswith("**Why:**")
        self.ends.append("</aside>\n" if is_why else "</blockquote>\n")
        return '<aside class="why" aria-label="Why">\n' if is_why else "<blockquote>\n"

    def blockquote_close(self, tokens, i, options, env):
        return self.ends.pop()

    def paragraph_open(self, tokens, i, options, env):
        if tokens[i].hidden:
            self.ends.append("")
            return ""
        children = [child for child in tokens[i + 1].children if child.type != "softbreak"]
        if children and all(child.type == "image" for child in children):
            plot = all("benchmarks/" in child.attrs["src"] for child in children)
            self.ends.append("</figure>\n")
            kind = ' class="plot"' if plot else ""
            return f'<figure{kind} role="group" aria-label="Picture" tabindex="0">'
        self.ends.append("</p>\n")
        return "<p>"

    def paragraph_close(self, tokens, i, options, env):
        return self.ends.pop()


def plain_text(inline):
    return "".join(child.content for child in inline.children or []
                   if child.type in ("text", "code_inline"))


def drop_empty_heads(tokens):
    """A table whose heads are empty has none: nothing would read it aloud."""
    begin = 0
    while begin < len(tokens):
        if tokens[begin].type == "thead_open":
            end = next(i for i in range(begin, len(tokens)) if tokens[i].type == "thead_close")
            if not any(token.content.strip() for token in tokens[begin:end]):
                del tokens[begin:end + 1]
        begin += 1
