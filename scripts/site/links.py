#!/usr/bin/env python3
"""Every page of the site is well-formed, and every link leads somewhere.

Links within the site have to name a file and an anchor of it; those that leave it are judged by
their form alone. Ids stand once, pictures have a text, headings do not skip a level, and nothing is
loaded from elsewhere.

usage: links.py SITE
"""
import re
import sys
import xml.etree.ElementTree as ElementTree
from pathlib import Path
from urllib.parse import unquote, urlsplit

OUTSIDE = re.compile(r"(https://[\w.-]+\.[a-z]+(/\S*)?|mailto:\S+@\S+)$")
LOADS = {"img": "src", "script": "src", "link": "href"}


class PageCheck:
    def __init__(self, file, site):
        self.name, self.file = file.relative_to(site).as_posix(), file
        self.complaints, self.ids = [], set()
        try:
            self.root = ElementTree.fromstring(file.read_text().split("\n", 1)[1])
        except ElementTree.ParseError as error:
            self.root = ElementTree.Element("html")
            self.complain(f"is not well-formed: {error} (the first line is not counted)")
        for element in self.root.iter():
            if (anchor := element.get("id")) is not None:
                if anchor in self.ids:
                    self.complain(f"has the id {anchor} twice")
                self.ids.add(anchor)

    def complain(self, text):
        self.complaints.append(f"{self.name}: {text}")

    def check(self, pages):
        for element in self.root.iter():
            target = element.get("href") or element.get("src")
            if target is not None:
                self.check_link(element.tag, target, pages)
            if element.tag == "img" and not element.get("alt"):
                self.complain(f"{element.get('src')} has no text")
        self.check_headings()

    def check_link(self, tag, target, pages):
        if urlsplit(target).scheme:
            if tag in LOADS:
                self.complain(f"loads {target}")
            if not OUTSIDE.match(target):
                self.complain(f"{target} is no address")
            return
        path, _, anchor = target.partition("#")
        file = (self.file.parent / unquote(path)).resolve() if path else self.file.resolve()
        if not file.is_file():
            self.complain(f"there is no {target}")
        elif anchor and (file not in pages or unquote(anchor) not in pages[file].ids):
            self.complain(f"there is no such place: {target}")

    def check_headings(self):
        levels = [int(element.tag[1]) for element in self.root.iter()
                  if re.fullmatch(r"h[1-6]", element.tag)]
        if levels.count(1) != 1 or levels[0] != 1:
            self.complain("does not begin with its one heading of the first level")
        if any(after > before + 1 for before, after in zip(levels, levels[1:])):
            self.complain("has a heading that skips a level")


def main():
    site = Path(sys.argv[1])
    pages = {file.resolve(): PageCheck(file, site) for file in sorted(site.rglob("*.html"))}
    for page in pages.values():
        page.check(pages)
    complaints = [one for page in pages.values() for one in page.complaints]
    if not pages:
        complaints.append(f"{site}: no pages")
    print("\n".join(complaints + [f"links: {len(pages)} pages, {len(complaints)} complaints"]))
    sys.exit(1 if complaints else 0)


main()
