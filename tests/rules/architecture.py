# SPDX-License-Identifier: Apache-2.0
"""The tables of docs/architecture.md have every folder of the project, every named thread and every mutex of the daemon,
and nothing else; the files that the page names are there."""

from __future__ import annotations

import re

import tree

DOCUMENT = "docs/architecture.md"
DAEMON = ("common", "device", "usb", "volume")
COMMENT = re.compile(r"//[^\n]*|/\*.*?\*/", re.DOTALL)
MUTEX = re.compile(r"^\s*(?:mutable )?(?:android::)?Mutex (m\w+)( [A-Z_]+\([^)]*\))?;", re.MULTILINE)
CLASS = re.compile(r"^(?:class|struct) (\w+)[^;{]*\{", re.MULTILINE)
QUEUE = re.compile(r'new MessageQueue\([^;]*?"(\w+)"\)', re.DOTALL)
NAMED = re.compile(r'kThreadName\[\] = "(\w+)"')
TAGGED = re.compile(r"pthread_setname_np\(pthread_self\(\), LOG_TAG\)")
TAG = re.compile(r'#define LOG_TAG "(\w+)"')
LOCK_ROW = re.compile(r"`(\w+::m\w+)`")
THREAD_ROW = re.compile(r'"(\w+(?:…)?)"')
ROOM_ROW = re.compile(r"`([\w]+)/[\w/]*`")
SOURCE = re.compile(r"`((?:common|device|usb|volume|tools|tests|platform)/[\w/]+\.\w+)`")


def section(title: str) -> str:
    return re.search(rf"^## {title}$(.*?)(?=^## |\Z)", tree.text_of(DOCUMENT), re.DOTALL | re.MULTILINE)[1]


def first_cells(title: str) -> str:
    return "\n".join(line.split("|")[1] for line in section(title).splitlines() if line.startswith("| "))


def locks_of(text: str) -> set[str]:
    """The mutexes with the class whose body they stand in: the last one that began before."""
    classes = [(match.start(), match[1]) for match in CLASS.finditer(text)]
    return {f"{[name for start, name in classes if start < match.start()][-1]}::{match[1]}"
            for match in MUTEX.finditer(text)}


def threads_of(text: str) -> set[str]:
    names = {*QUEUE.findall(text), *NAMED.findall(text)}
    if TAGGED.search(text):
        names.add(TAG.search(text)[1])
    return names


def main() -> None:
    locks, threads = set(), set()
    for path in tree.files(".h", ".cpp", below=DAEMON):
        text = COMMENT.sub("", tree.text_of(path))
        locks |= locks_of(text)
        threads |= threads_of(text)
    complaints = []
    described = set(LOCK_ROW.findall(first_cells("Locks")))
    complaints += [f"{DOCUMENT}: no row for the lock {name}" for name in sorted(locks - described)]
    complaints += [f"{DOCUMENT}: there is no lock {name}" for name in sorted(described - locks)]
    rows = [name for name in THREAD_ROW.findall(first_cells("Threads of the daemon")) if not name.startswith("Binder")]
    meant = {row: [name for name in threads if name == row or (row[-1] == "…" and name.startswith(row[:-1]))]
             for row in rows}
    complaints += [f"{DOCUMENT}: no thread is called {row}" for row, names in meant.items() if not names]
    complaints += [f"{DOCUMENT}: no row for the thread {name}" for name in sorted(threads)
                   if not any(name in names for names in meant.values())]
    rooms = set(ROOM_ROW.findall(first_cells("Rooms")))
    folders = {path.parts[0] for path in tree.files() if len(path.parts) > 1 and not path.parts[0].startswith(".")}
    complaints += [f"{DOCUMENT}: no room for {name}/" for name in sorted(folders - rooms)]
    complaints += [f"{DOCUMENT}: there is no folder {name}/" for name in sorted(rooms - folders)]
    named = SOURCE.findall(tree.text_of(DOCUMENT))
    complaints += [f"{DOCUMENT}: there is no {name}" for name in named if not (tree.ROOT / name).exists()]
    checked = len(locks) + len(threads) + len(folders) + len(named)
    if not locks or not threads:
        complaints.append("no lock or no thread was found in the code")
    tree.finish(complaints, checked, "locks, threads, folders and files")


main()
