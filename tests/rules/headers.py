# SPDX-License-Identifier: Apache-2.0
"""Every header of the product compiles alone; every source compiles without a warning with g++ for 32 bits, and
without precompiled headers (the build itself is g++'s for 64 bits, and rules.tidy shows clang's warnings)."""

from __future__ import annotations

import re
from pathlib import Path

import tree

FLAGS = ["-std=c++17", "-fsyntax-only", "-Wall", "-Wextra", "-Werror", *tree.INCLUDES]
COMPILER = {".h": ["g++", "-m64"], ".cpp": ["g++", "-m32"]}
INCLUDE = re.compile(r'^\s*#\s*include\s+[<"]([^>"]+)[>"]', re.MULTILINE)
DEFINE = re.compile(r"^\s*#\s*define\s+(\w+)", re.MULTILINE)


def shown_by_source(source: Path) -> Path | None:
    """The header that the source includes before all else: where it does not compile alone, the source does not
    either. Not so when it uses a macro that the source has defined by then."""
    text = tree.text_of(source)
    first = INCLUDE.search(text)
    if not first or not (tree.ROOT / first[1]).is_file():
        return None
    words = set(re.findall(r"\w+", tree.text_of(Path(first[1]))))
    return None if words & set(DEFINE.findall(text[:first.start()])) else Path(first[1])


def compile_alone(path: Path) -> str:
    # A header is included by an empty file: as the main file its "#pragma once" would be warned of.
    subject = ["-x", "c++", "-include", str(path), "/dev/null"] if path.suffix == ".h" else [str(path)]
    return tree.run([*COMPILER[path.suffix], *FLAGS, *subject])


def main() -> None:
    sources = tree.files(".cpp", below=tree.PRODUCT)
    shown = {shown_by_source(source) for source in sources}
    headers = [path for path in tree.files(".h", below=tree.PRODUCT) if path not in shown]
    complaints = tree.in_parallel(compile_alone, sources + headers)
    tree.finish(complaints, len(sources) + len(headers), "compilations")


main()
