"""The manual pages of docs/man as pages of the site, from what mandoc makes of them."""
import re
import subprocess

from layout import TREE, Complaint, Page, escape

MAN = TREE / "docs/man"
SECTIONS = {"1": "Commands", "3": "Functions", "5": "Files", "7": "What they share"}


def pages_of_manual():
    """The files, without those that only name another one."""
    return [file for file in sorted(MAN.glob("*.[1-9]")) if not file.read_text().startswith(".so")]


def place_of(file):
    return f"man/{file.name}.html"


def page_of(file, known):
    text = subprocess.run(["mandoc", "-T", "html", "-O", "fragment", file], text=True, check=True,
                          capture_output=True).stdout
    name = file.stem + f"({file.suffix[1:]})"
    text = re.sub(r'<table class="(head|foot)">.*?</table>\n?', "", text, flags=re.S)
    # The page's own name is the heading of the first level.
    text = re.sub(r"(</?h)([12])\b", lambda found: found[1] + str(int(found[2]) + 1), text)
    text = text.replace('class="permalink"', 'class="here"').replace("<pre", '<pre tabindex="0"')
    text = re.sub(r'<a class="Xr">(.*?)</a>', lambda found: cross_reference(found[1], known), text)
    if "<h2" not in text:
        raise Complaint(f"docs/man/{file.name}: mandoc finds no sections in it")
    side = [(2, anchor, re.sub("<.*?>", "", title).capitalize()) for anchor, title in
            re.findall(r'<h2 class="Sh" id="([^"]*)">(.*?)</h2>', text, re.S)]
    footer = '<a href="index.html">All manual pages</a>'
    return Page(place_of(file), name, f"<h1>{escape(name)}</h1>\n{text}", side, "", footer)


def cross_reference(name, known):
    file = re.sub(r"\((\d)\)", r".\1", name)
    return f'<a href="{file}.html">{name}</a>' if file in known else name


def index_of(files):
    parts, side = ["<h1>Manual pages</h1>\n"], []
    for section, title in SECTIONS.items():
        here = [file for file in files if file.suffix == f".{section}"]
        if not here:
            continue
        items = "".join(f'<li><a href="{file.name}.html">{file.stem}({section})</a></li>\n'
                        for file in here)
        parts.append(f'<h2 id="section-{section}">{title}</h2>\n<ul>\n{items}</ul>\n')
        side.append((2, f"section-{section}", title))
    return Page("man/index.html", "Manual pages", "".join(parts), side)


def manual():
    files = pages_of_manual()
    known = {file.name for file in files}
    return [index_of(files), *(page_of(file, known) for file in files)]
