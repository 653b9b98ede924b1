#!/usr/bin/env python3
"""Makes the site: guides from Markdown, the reference from Doxygen's XML, the manual by mandoc, and
files that pages refer to.

usage: build.py XML OUT    (XML: Doxygen's folder; OUT: the site's, which is made anew)
"""
import json
import re
import shutil
import sys
from pathlib import Path

from guides import GuideMaker, Places
from layout import (SITE, TREE, Complaint, Frame, Page, code_block, escape, read_order, relative)
from manual import manual
from reference import Reference, rooms


def neighbours(guides, guide):
    """Links to the guides before and behind."""
    at, links = guides.index(guide), []
    for words, other in (("Before", at - 1), ("Next", at + 1)):
        if 0 <= other < len(guides):
            place, name = relative(guides[other].place, guide.place), escape(guides[other].name)
            links.append(f'<span>{words}: <a href="{place}">{name}</a></span>')
    return "\n".join(links)


def file_page(path, places):
    """A file of the tree, or what is in a folder."""
    full = TREE / path
    place = f"files/{path}/index.html" if full.is_dir() else f"files/{path}.html"
    footer = f'<a href="{relative("index.html", place)}">ZFC</a>'
    title = f"<h1>{escape(path)}</h1>\n"
    if full.is_dir():
        items = []
        for file in sorted(one for one in full.iterdir() if one.is_file()):
            name = file.relative_to(TREE).as_posix()
            items.append(f'<li><a href="{file.name}.html">{escape(file.name)}</a></li>\n')
            places.files.add(name)
        content = f"{title}<ul>\n{''.join(items)}</ul>\n"
        return Page(place, path, content, [], "", footer)
    text = full.read_text(errors="replace")
    return Page(place, path, title + code_block(text, file=full.name), [], "", footer)


def write_files(frame, places):
    """Pages of the files that others refer to; a folder's page refers to more."""
    done = set()
    while missing := sorted(places.files - done):
        for path in missing:
            frame.write(file_page(path, places))
        done.update(missing)


def check_rooms():
    """The picture of the rooms has those of scripts/rooms.txt, in their order."""
    drawn = re.findall(r'class="b">(\w+)<', (TREE / "docs/pictures/rooms.svg").read_text())
    if drawn != rooms():
        raise Complaint(f"docs/pictures/rooms.svg: draws {drawn}, not the rooms of rooms.txt")


def write_names(out, pages, names):
    """What the search knows."""
    entries = [[page.title, page.place, "page"] for page in pages]
    entries += [[text, f"{page.place}#{anchor}", page.title] for page in pages
                for _, anchor, text in page.headings]
    entries += sorted({tuple(name) for name in names})
    lines = ",\n".join(json.dumps(entry) for entry in entries)
    (out / "names.js").write_text(f"window.zfcNames = [\n{lines}\n];\n")


def build(xml, out):
    shutil.rmtree(out, ignore_errors=True)
    out.mkdir(parents=True)
    guides = read_order()
    places, frame = Places(guides), Frame(guides, out)
    maker = GuideMaker(places)
    pages = [maker.make(guide, neighbours(guides, guide)) for guide in guides]
    reference = Reference(xml)
    pages += manual()
    for page in [*pages, *reference.pages()]:
        frame.write(page)
    places.files.add("examples")
    check_rooms()
    write_files(frame, places)
    write_names(out, pages, reference.names)
    for picture in places.pictures:
        (out / picture).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(TREE / picture, out / picture)
    for file in ("style.css", "search.js", "icon.svg"):
        shutil.copy(SITE / file, out / file)
    return len(list(out.rglob("*.html")))


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    try:
        print(f"site: {build(Path(sys.argv[1]), Path(sys.argv[2]))} pages")
    except Complaint as complaint:
        sys.exit(f"{complaint}")
