# SPDX-License-Identifier: Apache-2.0
"""Steps, announced with their duration; the clock starts with the script that called us."""

from __future__ import annotations

import contextlib
import os
import sys
import time
from collections.abc import Iterator

_START = float(os.environ.get("HEADUNIT_START", "").replace(",", ".") or time.time())


def elapsed() -> float:
    """Seconds since the command was entered."""
    return time.time() - _START


def say(text: str) -> None:
    """One line with the time since the start."""
    print(f"[{elapsed():6.1f} s] {text}", flush=True)


@contextlib.contextmanager
def step(name: str) -> Iterator[None]:
    """Announces a step, and how it ended after how long."""
    print(f"[{elapsed():6.1f} s] {name} ... ", end="", flush=True)
    start = time.monotonic()
    try:
        yield
    except BaseException:
        print(f"FAILED {time.monotonic() - start:.1f} s", flush=True)
        raise
    print(f"ok {time.monotonic() - start:.1f} s", flush=True)


def complain(text: str) -> None:
    """One line on standard error."""
    sys.stdout.flush()
    print(f"headunit: {text}", file=sys.stderr, flush=True)
