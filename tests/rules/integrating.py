# SPDX-License-Identifier: Apache-2.0
"""docs/integrating.md lists what the daemon needs of a unit, no more and no less: files, shell tools, environment
variables (string literals of the code), and libraries (of the program). usage: integrating.py DEVICE_SERVICE"""

from __future__ import annotations

import re
import subprocess
import sys

import tree

DOCUMENT = "docs/integrating.md"
DAEMON = ("common", "device", "usb", "volume", "platform")
# A program of its own, which needs nothing more.
OTHER_PROGRAMS = ("platform/binder/servicemanager/",)

TOKEN = re.compile(r'//[^\n]*|/\*.*?\*/|\'(?:\\.|[^\'\\])\'|"((?:\\.|[^"\\])*)"', re.DOTALL)
SAID = re.compile(r"\b(ALOG[A-Z]+|SERVICE_ASSERT\w*)\(")
INCLUDE = re.compile(r"^\s*#\s*include[^\n]*", re.MULTILINE)
PATH = re.compile(r"(?<![\w.%])/(?:sys|proc|dev|var|run|usr|etc|mnt|media|tmp|devices)(?![\w])[\w./%+-]*")
COMMAND = re.compile(r"^([a-z][a-z_0-9]*) \S")
SHELL = re.compile(r"\b(system|popen|runShell)\(")
VARIABLE = re.compile(r'\bk\w*Variable(?:\[\])? = "(\w+)"')
# Every program's, and the sanitizers'.
TOOLCHAIN = {"libc", "libm", "libstdc++", "libgcc_s", "libpthread", "libdl", "libasan", "libubsan", "libtsan"}
NEEDED = re.compile(r"\(NEEDED\).*\[(lib[\w+.-]+?)\.so")
QUOTED = re.compile(r"`([^`]+)`")


def without_messages(text: str) -> str:
    """The text without the arguments of logs and assertions: what is said is not what is run."""
    kept = []
    at = 0
    for match in SAID.finditer(text):
        if match.start() >= at:
            kept.append(text[at:match.start()])
            at = text.find(");", match.end())
    return "".join(kept) + text[at:]


def literals(text: str) -> list[str]:
    """The string literals of C++ code, those that stand side by side joined; no comment, no include."""
    found = []
    end = -1
    for match in TOKEN.finditer(INCLUDE.sub("", text)):
        if match[1] is None:
            continue
        if found and not match.string[end:match.start()].strip():
            found[-1] += match[1]
        else:
            found.append(match[1])
        end = match.end()
    return found


def uniform(path: str) -> str:
    """A controller's number is N, a name that is filled in is NAME."""
    path = re.sub(r"(?<=\.)(?:%d|[0-9])(?=/|$)", "N", path)
    return path.replace("%s", "NAME").rstrip("/.,")


def code() -> dict[str, set[str]]:
    paths, tools, variables = set(), set(), set()
    for path in tree.files(".h", ".cpp", below=DAEMON):
        if str(path).startswith(OTHER_PROGRAMS):
            continue
        text = tree.text_of(path)
        variables.update(VARIABLE.findall(text))
        for literal in literals(text):
            paths.update(uniform(match) for match in PATH.findall(literal))
        if SHELL.search(text):
            for literal in literals(without_messages(text)):
                tools.update(match[1] for part in re.split(r"[;|]", literal) if (match := COMMAND.match(part.strip())))
    return {"Files": paths, "Shell tools": tools, "Environment": variables}


def libraries(program: str) -> set[str]:
    listed = subprocess.run(["readelf", "-d", program], check=True, stdout=subprocess.PIPE, text=True).stdout
    return set(NEEDED.findall(listed)) - TOOLCHAIN


def document() -> dict[str, set[str]]:
    """What stands in backquotes in the first cells of the tables, by the sections' titles."""
    listed: dict[str, set[str]] = {}
    section = ""
    for line in tree.text_of(DOCUMENT).splitlines():
        if line.startswith("## "):
            section = line[3:]
        elif line.startswith("| "):
            listed.setdefault(section, set()).update(QUOTED.findall(line.split("|")[1]))
    return listed


def main() -> None:
    needed = code() | {"Libraries": libraries(sys.argv[1])}
    listed = document()
    complaints = []
    checked = 0
    for section, names in needed.items():
        described = listed.get(section, set()) - TOOLCHAIN
        described = {uniform(name) for name in described} if section == "Files" else described
        checked += len(names | described)
        complaints += [f"{DOCUMENT}: \"{section}\" lacks {name}" for name in sorted(names - described)]
        complaints += [f"{DOCUMENT}: \"{section}\" names {name}, which nothing uses" for name in sorted(described - names)]
        if not names:
            complaints.append(f"nothing found in the code for \"{section}\"")
    tree.finish(complaints, checked, "names")


main()
