# SPDX-License-Identifier: Apache-2.0
"""The project's files, for the rules that are checked as tests."""

from __future__ import annotations

import concurrent.futures
import os
import subprocess
import sys
from collections.abc import Callable, Iterable
from pathlib import Path
from typing import NoReturn, TypeVar

ROOT = Path(__file__).resolve().parent.parent.parent
PRODUCT = ("common", "device", "usb", "volume", "client", "platform", "tools")
INCLUDES = ("-I", str(ROOT), *(f"-I{folder}" for folder in sorted(ROOT.glob("platform/*/include"))),
            "-isystem", "/usr/include/android", "-isystem", "/usr/include/libxml2",
            "-D_FILE_OFFSET_BITS=64", '-DDEVICE_SERVICE_VERSION="0"')

T = TypeVar("T")


def files(*suffixes: str, below: Iterable[str] = ("",)) -> list[Path]:
    """Files that git knows or would add, relative to the root; of these suffixes, below these folders."""
    listed = subprocess.run(["git", "-C", str(ROOT), "-c", f"safe.directory={ROOT}", "ls-files", "-co",
                             "--exclude-standard", "-z"], check=True, stdout=subprocess.PIPE, text=True).stdout
    found = [Path(name) for name in listed.split("\0") if name]
    starts = tuple(f"{folder}/" if folder else "" for folder in below)
    return sorted(path for path in found if (not suffixes or path.suffix in suffixes)
                  and str(path).startswith(starts) and (ROOT / path).is_file())


def text_of(path: Path) -> str:
    return (ROOT / path).read_text(encoding="utf-8", errors="replace")


def in_parallel(check: Callable[[T], str], items: Iterable[T]) -> list[str]:
    """
    Runs a check that returns its complaint, or nothing, on every item. It takes half of the cores and gives way to the
    emulated machine that the test run keeps on the others.
    """
    os.nice(10)
    with concurrent.futures.ThreadPoolExecutor(max(1, (os.cpu_count() or 1) // 2)) as pool:
        return [complaint for complaint in pool.map(check, items) if complaint]


def run(command: list[str]) -> str:
    """Runs a tool; returns its output when it fails, else nothing."""
    done = subprocess.run(command, cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    return "" if done.returncode == 0 else f"{done.stdout.strip()}\n(exit status {done.returncode}: {' '.join(command)})"


def finish(complaints: list[str], checked: int, what: str) -> NoReturn:
    """Prints the complaints, or what was checked, and ends with the fitting status. Nothing checked is a failure."""
    for complaint in complaints:
        print(complaint)
    print(f"{checked} {what} checked, {len(complaints)} complaints")
    sys.exit(0 if checked > 0 and not complaints else 1)
