# SPDX-License-Identifier: Apache-2.0
"""What must not stand in a file: licence line missing, words about how the project came to be, places of one machine."""

from __future__ import annotations

import re

import tree

# Joined here so that this file passes its own check.
FORBIDDEN = [
    (r"\bspecifica" + r"tions?\b", "say what the system does, not what a document says"),
    (r"\bas speci" + r"fied\b", "say what the system does"),
    (r"\bPar" + r"ts? [0-9]+\.[0-9]+\b", "no numbers of a document"),
    (r"\bissue" + r" #?[0-9]+\b", "no numbers of a tracker"),
    (r"\.\./sha" + r"red\b", "nothing outside the project"),
    (r"/wo" + r"rk/(main|shared)\b", "no path of one machine"),
    (r"\bdeb\.deb" + r"ian\.org\b", "no host of a package registry"),
    (r"\bregistry\.np" + r"mjs\b", "no host of a package registry"),
    (r"\b(TO" + r"DO|FIX" + r"ME|X" + r"XX)\b", "finish it or leave it"),
    (r"\bGTEST_SK" + r"IP\b", "a test that does not run must not pass"),
    (r"\bunittest\.sk" + r"ip", "a test that does not run must not pass"),
]
PATTERNS = [(re.compile(pattern, re.IGNORECASE if pattern.islower() else 0), why) for pattern, why in FORBIDDEN]
LICENCE = "SPDX-License-Identifier: Apache-2.0"
LICENSED = (".h", ".cpp", ".py", ".cmake")
BINARY = "\0"


def complaints_about(path: str, text: str) -> list[str]:
    found = []
    head = text.splitlines()[:3]
    named = path.endswith(LICENSED) or path.endswith("CMakeLists.txt") or text.startswith("#!")
    if named and not any(LICENCE in line for line in head):
        found.append(f"{path}:1: no licence line")
    for number, line in enumerate(text.splitlines(), 1):
        found.extend(f"{path}:{number}: \"{match[0]}\": {why}" for pattern, why in PATTERNS
                     for match in [pattern.search(line)] if match)
    return found


def main() -> None:
    complaints = []
    checked = 0
    for path in tree.files():
        text = tree.text_of(path)
        if BINARY in text or "corpus" in path.parts:
            continue
        checked += 1
        complaints.extend(complaints_about(str(path), text))
    tree.finish(complaints, checked, "files")


main()
