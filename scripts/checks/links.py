#!/usr/bin/env python3
"""links.py [DIRECTORY]: follows every link of the Markdown pages of the tree; given a directory, of the HTML pages in it. Only
local ones: links with a scheme are skipped. Of the tree it also checks the files that each decision of docs/decisions.md governs.
Prints each that leads nowhere, and then exits with 1."""

import html.parser
import itertools
import os
import pathlib
import re
import sys
import urllib.parse

ROOT = pathlib.Path(__file__).resolve().parents[2]


def anchor_of(heading):
    """What a heading of a Markdown page is called in a link."""
    text = re.sub(r"\[([^]]*)\]\([^)]*\)", r"\1", heading).strip().lower()
    return re.sub(r"[^\w\- ]", "", text).replace(" ", "-")


def read_markdown(page):
    """The links of a page with their lines, and its anchors."""
    links, anchors, fenced = [], set(), False
    for number, line in enumerate(page.read_text(encoding="utf-8").split("\n"), 1):
        if line.startswith("```"):
            fenced = not fenced
        elif not fenced:
            if heading := re.match(r"#+ (.*)", line):
                anchors.add(anchor_of(heading[1]))
            links += [(number, target) for target in re.findall(r"\]\(([^)\s]+)\)", re.sub(r"`[^`]*`", "", line))]
    return links, anchors


class HtmlPage(html.parser.HTMLParser):
    def __init__(self, page):
        super().__init__()
        self.links, self.anchors = [], set()
        self.feed(page.read_text(encoding="utf-8", errors="replace"))

    def handle_starttag(self, tag, attributes):
        values = dict(attributes)
        for name in ("href", "src", "data"):
            if values.get(name):
                self.links.append((self.getpos()[0], values[name]))
        for name in ("id", "name"):
            if values.get(name):
                self.anchors.add(values[name])

    handle_startendtag = handle_starttag


def read_html(page):
    parsed = HtmlPage(page)
    return parsed.links, parsed.anchors


def broken_links(pages, read):
    contents = {page.resolve(): read(page) for page in pages}
    for page, (links, _) in contents.items():
        for line, target in links:
            parts = urllib.parse.urlsplit(target)
            if parts.scheme or target.startswith("//"):
                continue
            file = (page.parent / urllib.parse.unquote(parts.path)).resolve() if parts.path else page
            anchor = urllib.parse.unquote(parts.fragment)
            if not file.exists():
                yield f"{page}:{line}: there is no {target}"
            elif anchor and file in contents and anchor not in contents[file][1]:
                yield f"{page}:{line}: there is no such place in {target}"


def governs_nothing(page):
    """The decisions of a page that name no file right behind their heading, or one that is not there. A file may be named by its
    stem, as a component is."""
    lines = page.read_text(encoding="utf-8").split("\n") if page.exists() else []
    for number, line in enumerate(lines, 1):
        if line.startswith("## ") and not next(filter(str.strip, lines[number:]), "").startswith("### "):
            yield f"{page}:{number}: text that is not of a decision under a subsystem"
        if line.startswith("### "):
            named = list(itertools.takewhile(str.strip, lines[number:]))
            files = re.findall(r"`([^`]*)`", " ".join(named)) if named and named[0].startswith("Governs `") else []
            if not files:
                yield f"{page}:{number}: governs no file"
            for file in files:
                if not (ROOT / file).exists() and not list((ROOT / file).parent.glob(pathlib.Path(file).name + ".*")):
                    yield f"{page}:{number}: there is no {file}"


def markdown_pages():
    """Those of the tree, without what is built or others'."""
    for directory, directories, files in os.walk(ROOT):
        directories[:] = sorted(set(directories) - {".git", "build", "third_party"})
        yield from (pathlib.Path(directory) / file for file in sorted(files) if file.endswith(".md"))


def main():
    if len(sys.argv) > 1:
        pages, read = sorted(pathlib.Path(sys.argv[1]).rglob("*.html")), read_html
    else:
        pages, read = list(markdown_pages()), read_markdown
    broken = list(broken_links(pages, read))
    if read is read_markdown:
        broken += governs_nothing(ROOT / "docs/decisions.md")
    print("\n".join(broken + [f"{len(pages)} pages, {len(broken)} links that lead nowhere"]))
    return 1 if broken or not pages else 0


if __name__ == "__main__":
    sys.exit(main())
