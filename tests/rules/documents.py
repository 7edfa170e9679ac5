# SPDX-License-Identifier: Apache-2.0
"""The documents hang together: links lead somewhere, the index names every page, pictures are well-formed, what they name
of the code is there, and what the tutorials have their reader type is typed by a test (tests/system/test_documents.py)."""

from __future__ import annotations

import re
import xml.etree.ElementTree
from pathlib import Path

import tree

INDEX = Path("docs/README.md")
LINK = re.compile(r"(?<!\\)!?\[[^\]]*\]\(([^)\s]+)\)")
FENCE = re.compile(r"^ *```(\S*) *(\S*)$")
FENCED = re.compile(r"^ *```.*?^ *```$", re.DOTALL | re.MULTILINE)
CODE = re.compile(r"`[^`\n]*`")
TYPED = re.compile(r"^docs/(tutorial-.*|troubleshooting)\.md$")
SHELLS = ("sh", "bash", "console", "shell", "")
# What a class, an operation or a member is called, alone or as a part of what stands in backquotes.
NAME = re.compile(r"(?<![\w\\*])(?:[A-Z]\w*[a-z]\w*[A-Z]\w*|[a-z]+[A-Z]\w*)\b")
WORD = re.compile(r"\w+")
# The example of an operation to be, and what the bundled libbinder is said not to have.
OF_NO_CODE = {"getHubTier", "Parcelable"}
SVG = "{http://www.w3.org/2000/svg}"


def anchors_of(text: str) -> set[str]:
    """What the headings are called in a link."""
    titles = re.findall(r"^#+ (.*)$", FENCED.sub("", text), re.MULTILINE)
    return {re.sub(r"[^\w\- ]", "", title.lower()).strip().replace(" ", "-") for title in titles}


def broken_links(path: Path) -> list[str]:
    complaints = []
    for target in LINK.findall(CODE.sub("", FENCED.sub("", tree.text_of(path)))):
        if re.match(r"[a-z]+:", target):
            continue
        name, _, anchor = target.partition("#")
        page = Path(str((tree.ROOT / path.parent / name).resolve().relative_to(tree.ROOT))) if name else path
        if not (tree.ROOT / page).exists():
            complaints.append(f"{path}: {target} leads nowhere")
        elif anchor and anchor not in anchors_of(tree.text_of(page)):
            complaints.append(f"{path}: {target}: no such heading")
    return complaints


def untyped_commands(path: Path) -> list[str]:
    """Blocks of commands that no test would type."""
    complaints = []
    inside = False
    for number, line in enumerate(tree.text_of(path).splitlines(), 1):
        fence = FENCE.match(line)
        if fence:
            inside = not inside
            if inside and fence[1] in SHELLS and (fence[1], fence[2]) not in (("console", "guest"), ("console", "host")):
                complaints.append(f"{path}:{number}: begin it with ```console guest or ```console host, or say what it is")
    return complaints


def words_of_the_tree() -> set[str]:
    """Every word of every file but the pages, and of the files' names."""
    here = Path(__file__).relative_to(tree.ROOT)
    paths = [path for path in tree.files() if path.suffix not in (".md", ".svg") and path != here]
    words = {word for path in paths for word in WORD.findall(str(path))}
    for path in paths:
        words.update(WORD.findall((tree.ROOT / path).read_bytes().decode("utf-8", "replace")))
    return words


def vanished_names(path: Path, words: set[str]) -> list[str]:
    """What is named in backquotes like a part of the code and is none."""
    complaints = []
    for number, line in enumerate(tree.text_of(path).splitlines(), 1):
        names = {name for code in CODE.findall(line) for name in NAME.findall(code)}
        complaints += [f"{path}:{number}: nothing is called {name}" for name in sorted(names - words - OF_NO_CODE)]
    return complaints


def broken_picture(path: Path) -> str:
    try:
        picture = xml.etree.ElementTree.parse(tree.ROOT / path).getroot()
    except xml.etree.ElementTree.ParseError as error:
        return f"{path}: {error}"
    if picture.tag != f"{SVG}svg" or picture.find(f"{SVG}title") is None or picture.find(f"{SVG}desc") is None:
        return f"{path}: an svg with title and desc is wanted"
    drawn = [element for element in picture.iter() if element.tag in (f"{SVG}text", f"{SVG}path", f"{SVG}rect")]
    return "" if drawn else f"{path}: nothing is drawn"


def main() -> None:
    pages = tree.files(".md")
    pictures = tree.files(".svg")
    complaints = [complaint for page in pages for complaint in broken_links(page)]
    complaints += [complaint for page in pages if TYPED.match(str(page)) for complaint in untyped_commands(page)]
    complaints += [complaint for picture in pictures if (complaint := broken_picture(picture))]
    words = words_of_the_tree()
    complaints += [complaint for page in pages for complaint in vanished_names(page, words)]
    named = {(INDEX.parent / target.partition("#")[0]) for target in LINK.findall(tree.text_of(INDEX))}
    complaints += [f"{INDEX}: does not name {page}" for page in pages
                   if page.parent == INDEX.parent and page != INDEX and page not in named]
    tree.finish(complaints, len(pages) + len(pictures), "pages and pictures")


main()
