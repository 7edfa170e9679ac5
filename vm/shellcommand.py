# SPDX-License-Identifier: Apache-2.0
"""`headunit shell`: a shell of the guest on the user's terminal."""

from __future__ import annotations

import contextlib
import os
import select
import shutil
import signal
import sys
import termios
import threading
import tty
from collections.abc import Iterator
from pathlib import Path

from .errors import GuestTimeout
from .guestlink import Guest, GuestProcess
from .paths import ROOT

LOOK_STEP = 0.1  # seconds between two looks whether the shell still runs


def run_shell(guest: Guest, build: Path) -> int:
    """Runs a shell to its end and returns its exit status."""
    env = {"TERM": os.environ.get("TERM", "dumb"), "PS1": r"headunit:\w# ",
           "PATH": f"{build / 'bin'}:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"}
    if sys.stdin.isatty() and sys.stdout.isatty():
        return _on_terminal(guest, env)
    shell = guest.spawn(["/bin/bash"], env=env, cwd=str(ROOT), stdin=True)
    shell.on_output(lambda stream, data: _put(sys.stderr if stream == "stderr" else sys.stdout, data))
    threading.Thread(target=_feed, args=(shell,), name="stdin", daemon=True).start()
    return _result(shell)


def _on_terminal(guest: Guest, env: dict[str, str]) -> int:
    shell = guest.spawn(["/bin/bash", "--norc", "-i"], env=env, cwd=str(ROOT), tty=_size())
    shell.on_output(lambda stream, data: _put(sys.stdout, data))
    signal.signal(signal.SIGWINCH, lambda number, frame: shell.resize(*_size()))
    with _raw_terminal():
        while shell.returncode is None:
            ready, _, _ = select.select([sys.stdin], [], [], LOOK_STEP)
            if ready:
                data = os.read(sys.stdin.fileno(), 4096)
                if not data:
                    break
                shell.write(data)
    signal.signal(signal.SIGWINCH, signal.SIG_DFL)
    if shell.returncode is None:  # the user's terminal is gone
        shell.kill(signal.SIGHUP, group=True)
    return _result(shell)


def _result(shell: GuestProcess) -> int:
    """Waits as long as the user likes, in slices, since the main thread has to see signals now and then."""
    while True:
        try:
            code = shell.wait(1.0)
        except GuestTimeout:
            continue
        return code if code >= 0 else 128 - code


def _feed(shell: GuestProcess) -> None:
    while data := os.read(sys.stdin.fileno(), 65536):
        shell.write(data)
    shell.close_stdin()


def _put(stream: object, data: bytes) -> None:
    buffer = getattr(stream, "buffer")
    buffer.write(data)
    buffer.flush()


def _size() -> tuple[int, int]:
    size = shutil.get_terminal_size()
    return size.lines, size.columns


@contextlib.contextmanager
def _raw_terminal() -> Iterator[None]:
    kept = termios.tcgetattr(sys.stdin)
    tty.setraw(sys.stdin)
    try:
        yield
    finally:
        termios.tcsetattr(sys.stdin, termios.TCSADRAIN, kept)
