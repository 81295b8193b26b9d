#!/usr/bin/env python3
"""site_source.py DIRECTORY: writes public headers and pages there, with the marks that Doxygen needs. site_source.py FILE: prints
one. site_source.py --linked: prints what the pages link and Doxygen doesn't make.

A header states a thing once: in a comment of its own for all that follows, above the first of several declarations for all of them,
and behind a member for that member. Doxygen applies a comment to the next declaration only, so marks are added. The target of a
link is a part of the reference, if it is a header, or in the folder "tree" of the site, where scripts/docs.sh copies it."""

import os
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]


def is_comment(line):
    return bool(re.match(r"\s*//(/? |/?$)", line))


def is_documentation(line):
    return bool(re.match(r"\s*///( |$)", line))


def split_comment(lines):
    """The comment in front of a paragraph, and the rest."""
    end = 0
    while end < len(lines) and is_comment(lines[end]):
        end += 1
    return lines[:end], lines[end:]


def declarations(lines):
    """How many a paragraph has, without a comment of their own; 0 if it opens or closes what it does not close or open."""
    if any(map(is_documentation, lines)):
        return 0
    code = "\n".join(re.sub(r"//.*", "", line) for line in lines)
    if code.count("{") != code.count("}") or re.search(r"^\s*(#|namespace|static_assert|public:|private:|protected:)", code, re.M):
        return 0
    depth, count = 0, 0
    for character in code:
        depth += {"{": 1, "}": -1}.get(character, 0)
        count += depth == 0 and character in ";}"
    return count


def documented(comment, lines):
    """What a comment says of each declaration of a paragraph."""
    indentation = re.match(r"\s*", lines[0])[0]
    comment = [indentation + "///" + re.sub(r"\s*///?", "", line) for line in comment]
    return [indentation + "///@{", *comment, *document_members(lines), indentation + "///@}"]


def document_members(lines):
    return [re.sub(r"^(\s+[^/\s][^/]*[;,]|\s+\w+)\s+// (?!namespace)(.*)$", r"\1  ///< \2", line) for line in lines]


def links(file, text):
    """Those of a page that lead to something of the tree: the match, with the words in group 1, and the path from its top."""
    for match in re.finditer(r"\[([^]]*)\]\(([^)#\s]+)(#[^)\s]*)?\)", text):
        target = pathlib.Path(os.path.normpath(file.resolve().parent / match[2]))
        if target.is_relative_to(ROOT) and target.exists():
            yield match, target.relative_to(ROOT)


def is_in_the_tree_only(target):
    """Whether Doxygen makes neither a page nor a part of the reference of it."""
    return target.suffix not in (".h", ".md", ".svg")


def page(file, text):
    """A page whose links are from the top, where Doxygen finds pages, headers and drawings, or into the folder "tree"."""
    said, end = "", 0
    for match, target in links(file, text):
        if target.suffix == ".h":
            link = f'@ref {target} "{match[1]}"'
        else:
            link = f"[{match[1]}]({'tree/' if is_in_the_tree_only(target) else ''}{target}{match[3] or ''})"
        said += text[end:match.start()] + link
        end = match.end()
    return said + text[end:]


def without_private(text):
    """What is private is not shown, but Doxygen makes a link to private classes."""
    lines, label = [], None
    for line in text.split("\n"):
        if match := re.fullmatch(r"(\s*)private:", line):
            label = match[1]
        elif label is None or re.match(label + r"(};|public:|protected:)", line):
            label = None
            lines.append(line)
    return "\n".join(lines)


def header(text):
    paragraphs = []
    said_before = []  # a comment of its own, directly before this paragraph
    for block in without_private(text).split("\n\n"):
        lines = block.split("\n")
        comment, rest = split_comment(lines)
        count = declarations(rest)
        if comment and not rest:
            paragraphs.append(["/// @file", *("///" + line.lstrip("/") for line in lines)] if lines[0].startswith("//") else [])
            said_before = comment
            continue
        if comment and (count > 1 or count == 1 and not is_documentation(comment[0])):
            lines = documented(comment, rest)
        elif said_before and not comment and count > 0:
            lines = documented(said_before, rest)
        else:
            lines = comment + document_members(rest)
        said_before = []
        paragraphs.append(lines)
    return "\n\n".join("\n".join(lines) for lines in paragraphs)


def read(file):
    text = file.read_text(encoding="utf-8")
    return page(file, text) if file.suffix == ".md" else header(text)


def sources():
    """Public headers and pages, from the top of the tree."""
    for pattern in ("Base/**/*.h", "ZLiteXML/**/*.h", "*.md", "docs/**/*.md"):
        yield from (file for file in ROOT.glob(pattern) if not {"os", "detail"} & set(file.relative_to(ROOT).parts))


def linked():
    """What the folder "tree" of the site needs, as paths from the top."""
    pages = (file for file in sources() if file.suffix == ".md")
    targets = {target for file in pages for _, target in links(file, file.read_text(encoding="utf-8"))}
    return sorted(str(target) for target in targets if is_in_the_tree_only(target))


def main():
    if sys.argv[1] == "--linked":
        print("\n".join(linked()))
        return
    place = pathlib.Path(sys.argv[1])
    if place.is_file():
        sys.stdout.write(read(place))
        return
    for file in sources():
        target = place / file.relative_to(ROOT)
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_text(read(file), encoding="utf-8")


main()
