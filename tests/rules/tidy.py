# SPDX-License-Identifier: Apache-2.0
"""clang-tidy finds nothing in the product, and clang warns of nothing, its thread-safety analysis included.
usage: tidy.py BUILD_DIR

A file that passed is not looked at again until it, one of the headers it includes, or the configuration changes.
"""

from __future__ import annotations

import hashlib
import json
import re
import subprocess
import sys
from pathlib import Path

import tree

# What g++'s commands say about precompiled headers: clang can read none of g++'s.
PRECOMPILED = re.compile(r" -Winvalid-pch| -fpch-preprocess| -include \S*/cmake_pch\.hxx")
INCLUDE = re.compile(r'^\s*#\s*include\s+[<"]([^>"]+)[>"]', re.MULTILINE)
SEARCH = (tree.ROOT, *sorted(tree.ROOT.glob("platform/*/include")))


def closure(path: Path, seen: set[Path]) -> set[Path]:
    """The file and every header of the project that it reaches."""
    if path not in seen:
        seen.add(path)
        for name in INCLUDE.findall(path.read_text(encoding="utf-8", errors="replace")):
            for folder in SEARCH:
                if (folder / name).is_file():
                    closure(folder / name, seen)
    return seen


def fingerprint(path: Path, version: str) -> str:
    digest = hashlib.sha256(version.encode())
    digest.update((tree.ROOT / ".clang-tidy").read_bytes())
    for part in sorted(closure(path, set())):
        digest.update(str(part.relative_to(tree.ROOT)).encode() + b"\0" + part.read_bytes())
    return digest.hexdigest()


def main() -> None:
    build = Path(sys.argv[1]).resolve()
    passed = build / "tidy-passed"
    passed.mkdir(exist_ok=True)
    version = subprocess.run(["clang-tidy", "--version"], check=True, stdout=subprocess.PIPE, text=True).stdout
    database = json.loads((build / "compile_commands.json").read_text(encoding="utf-8"))
    for entry in database:
        entry["command"] = PRECOMPILED.sub("", entry["command"])
    (passed / "compile_commands.json").write_text(json.dumps(database), encoding="utf-8")
    compiled = {Path(entry["directory"], entry["file"]).resolve() for entry in database}
    sources = [tree.ROOT / path for path in tree.files(".cpp", below=tree.PRODUCT)]
    sources = [path for path in sources if path in compiled]

    def check(path: Path) -> str:
        stamp = passed / fingerprint(path, version)
        if stamp.exists():
            return ""
        # g++'s commands, with flags that clang does not know.
        complaint = tree.run(["clang-tidy", "--quiet", "-p", str(passed), "--extra-arg=-Wno-unknown-warning-option",
                              "--extra-arg=-Wthread-safety", str(path)])
        if not complaint:
            stamp.touch()
        return complaint

    tree.finish(tree.in_parallel(check, sources), len(sources), "sources")


main()
