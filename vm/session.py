# SPDX-License-Identifier: Apache-2.0
"""The folders of one machine, and the removal of what dead owners left behind.

A session is an entry of the per-user run-time folder: a lock file that its owner holds for life, the control
socket, and the name of the work folder with media and logs. The kernel drops the lock with the owner's
process, so whoever gets the lock of a session knows that its owner is dead, even after kill -9.
"""

from __future__ import annotations

import atexit
import contextlib
import fcntl
import os
import shutil
import tempfile
from collections.abc import Iterator
from pathlib import Path

from .paths import runtime_dir

WORK_PREFIX = "headunit-work-"


@contextlib.contextmanager
def _registry_lock(base: Path) -> Iterator[None]:
    """Keeps a session that is being made from being taken for a dead one."""
    with open(base / "registry.lock", "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield


def _is_dead(entry: Path) -> bool:
    try:
        with open(entry / "lock", "r+", encoding="ascii") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except FileNotFoundError:
        return True
    except BlockingIOError:
        return False
    return True


def _entries(base: Path) -> list[Path]:
    return sorted(entry for entry in base.iterdir() if entry.is_dir() and entry.name.startswith("vm-"))


def _remove(entry: Path) -> None:
    with contextlib.suppress(OSError):
        work = Path((entry / "work").read_text(encoding="utf-8"))
        if work.name.startswith(WORK_PREFIX) and not work.is_symlink() and work.stat().st_uid == os.getuid():
            shutil.rmtree(work, ignore_errors=True)
    shutil.rmtree(entry, ignore_errors=True)


def clean_dead_sessions() -> int:
    """Removes the folders of owners that are gone; returns how many there were."""
    base = runtime_dir()
    removed = 0
    with _registry_lock(base):
        for entry in _entries(base):
            if _is_dead(entry):
                _remove(entry)
                removed += 1
    return removed


def control_sockets() -> list[Path]:
    """The control sockets of the machines that run now, oldest first."""
    base = runtime_dir()
    with _registry_lock(base):
        living = [entry for entry in _entries(base) if not _is_dead(entry)]
    sockets = [entry / "control.sock" for entry in living if (entry / "control.sock").exists()]
    return sorted(sockets, key=lambda path: path.stat().st_mtime)


class Session:
    """One owner's folders. Use as a context manager; everything in them goes at the end."""

    def __init__(self) -> None:
        clean_dead_sessions()
        base = runtime_dir()
        with _registry_lock(base):
            self.work = Path(tempfile.mkdtemp(prefix=WORK_PREFIX))
            self.entry = Path(tempfile.mkdtemp(prefix="vm-", dir=base))
            (self.entry / "work").write_text(str(self.work), encoding="utf-8")
            self._lock = open(self.entry / "lock", "w", encoding="ascii")
            fcntl.flock(self._lock, fcntl.LOCK_EX)
        atexit.register(self.close)

    @property
    def control_socket(self) -> Path:
        return self.entry / "control.sock"

    def close(self) -> None:
        """Removes the folders. Safe to call twice."""
        if self._lock.closed:
            return
        atexit.unregister(self.close)
        _remove(self.entry)
        self._lock.close()

    def __enter__(self) -> Session:
        return self

    def __exit__(self, *exc: object) -> None:
        self.close()
