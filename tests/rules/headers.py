# SPDX-License-Identifier: Apache-2.0
"""Every header of the product compiles alone; every source compiles without a warning with g++ for 32 bits and with
clang++ under its thread-safety analysis (the build itself is g++'s for 64 bits)."""

from __future__ import annotations

from pathlib import Path

import tree

FLAGS = ["-std=c++17", "-fsyntax-only", "-Wall", "-Wextra", "-Werror", *tree.INCLUDES]
COMPILERS = {
    ".h": (["g++", "-m64"],),
    ".cpp": (["g++", "-m32"], ["clang++", "-m64", "-Wthread-safety"]),
}


def compile_alone(job: tuple[list[str], Path]) -> str:
    compiler, path = job
    # A header is included by an empty file: as the main file its "#pragma once" would be warned of.
    subject = ["-x", "c++", "-include", str(path), "/dev/null"] if path.suffix == ".h" else [str(path)]
    return tree.run([*compiler, *FLAGS, *subject])


def main() -> None:
    sources = tree.files(".h", ".cpp", below=tree.PRODUCT)
    jobs = [(compiler, path) for path in sources for compiler in COMPILERS[path.suffix]]
    tree.finish(tree.in_parallel(compile_alone, jobs), len(jobs), "compilations")


main()
