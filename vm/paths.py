# SPDX-License-Identifier: Apache-2.0
"""Where things are on the host: the checkout, the cache and the per-user run-time folder."""

from __future__ import annotations

import os
import stat
from pathlib import Path

from .errors import HeadunitError

ROOT = Path(__file__).resolve().parent.parent
GUEST_TOOLS = ROOT / "vm" / "guest"
LOGS = ROOT / "build" / "log"


def cache_dir() -> Path:
    """The folder that keeps the unpacked kernel between runs."""
    chosen = os.environ.get("HEADUNIT_CACHE")
    if chosen:
        return Path(chosen).absolute()
    base = os.environ.get("XDG_CACHE_HOME")
    return (Path(base) if base else Path.home() / ".cache").absolute() / "headunit"


def runtime_dir() -> Path:
    """The per-user folder of the running machines.

    It does not follow XDG_RUNTIME_DIR: two terminals of one user must find the same folder, also when one of
    them came up without a login session.
    """
    chosen = os.environ.get("HEADUNIT_RUNTIME")
    uid = os.getuid()
    if chosen:
        folder = Path(chosen).absolute()
    elif os.access(f"/run/user/{uid}", os.W_OK):
        folder = Path(f"/run/user/{uid}/headunit")
    else:
        folder = Path(f"/tmp/headunit-{uid}")
    folder.mkdir(mode=0o700, parents=True, exist_ok=True)
    seen = os.lstat(folder)
    if not stat.S_ISDIR(seen.st_mode) or seen.st_uid != uid or seen.st_mode & 0o022:
        raise HeadunitError(f"{folder} must be a folder that only you can write to; remove it and try again")
    return folder
