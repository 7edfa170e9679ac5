# SPDX-License-Identifier: Apache-2.0
"""The shells' completion of devicectl, in real shells on a terminal of their own. usage: test_completion.py COMPLETER

Types as a user does, with the tabulator, and looks at what the program is run with.
"""

from __future__ import annotations

import os
import pty
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from collections.abc import Callable
from pathlib import Path

FOLDER = Path(__file__).resolve().parent.parent.parent.parent / "tools/devicectl/completion"
LIMIT = 60.0  # seconds
END = "end of the line"
READY = "the shell is ready"
SAY_READY = "echo the shell is 'ready'"  # quoted, so that the echo of the keys is something else
HOSTILE = ["$(touch pwned)", "`touch pwned`", "two words", "it's \"so\"", "back\\slash", ";touch pwned #", "a&b|c>d<e",
           "$HOME*?[x]{y,z}", "~root", "!touch pwned !!", "M\u00fcsik", "colon:ed=x"]
completer = ""


class Shell:
    """An interactive shell in a folder, whose devicectl is the completer."""

    def __init__(self, argv: list[str], folder: Path) -> None:
        self.folder = folder
        environment = {"PATH": f"{folder}:{os.environ['PATH']}", "TERM": "dumb", "HOME": str(folder),
                       "LC_ALL": "C.UTF-8", "ZDOTDIR": str(folder)}
        self.pid, self.terminal = pty.fork()
        if self.pid == 0:
            os.chdir(folder)
            os.execvpe(argv[0], argv, environment)
        self.shown = b""
        self.send(SAY_READY + "\n")
        self._wait(lambda: READY.encode() in self.shown, "a shell that answers")

    def send(self, keys: str) -> None:
        os.write(self.terminal, keys.encode())

    def run(self, keys: str) -> list[str]:
        """Types the keys and Return; the words that the program is run with then."""
        before = self._lines().count(END)
        self.send(keys + "\n")
        self._wait(lambda: self._lines().count(END) > before, f"the program to be run by {keys!r}")
        lines = self._lines()
        ends = [number for number, line in enumerate(lines) if line == END]
        return lines[ends[before - 1] + 1 if before else 0:ends[before]]

    def close(self) -> None:
        os.kill(self.pid, signal.SIGKILL)
        os.waitpid(self.pid, 0)
        os.close(self.terminal)

    def _lines(self) -> list[str]:
        path = self.folder / "lines"
        return path.read_text(encoding="utf-8").splitlines() if path.exists() else []

    def _wait(self, condition: Callable[[], bool], what: str) -> None:
        deadline = time.monotonic() + LIMIT
        while not condition():
            if time.monotonic() > deadline:
                raise AssertionError(f"not within {LIMIT:g} s: {what}; shown: {self.shown!r}")
            if select.select([self.terminal], [], [], 0.05)[0]:
                self.shown += os.read(self.terminal, 65536)


class Completion(unittest.TestCase):
    def setUp(self) -> None:
        self.folder = Path(tempfile.mkdtemp(prefix="completion-"))
        self.addCleanup(shutil.rmtree, self.folder)
        (self.folder / "devicectl").symlink_to(completer)

    def labels(self, *labels: str) -> None:
        (self.folder / "labels").write_text("".join(label + "\n" for label in labels), encoding="utf-8")

    def bash(self) -> Shell:
        (self.folder / "rc").write_text(f"source {FOLDER}/devicectl.bash\nPS1=\nbind 'set bell-style none'\n",
                                        encoding="utf-8")
        shell = Shell(["bash", "--rcfile", "rc", "-i"], self.folder)
        self.addCleanup(shell.close)
        return shell

    def zsh(self) -> Shell:
        (self.folder / ".zshrc").write_text(
            f"fpath=({FOLDER} $fpath)\nautoload -Uz compinit\ncompinit -u -D\nunsetopt beep\n"
            "setopt no_always_last_prompt\nPS1=\n", encoding="utf-8")
        shell = Shell(["zsh", "-i"], self.folder)
        self.addCleanup(shell.close)
        return shell

    def complete_all(self, shell: Shell) -> None:
        """What both shells must do alike."""
        self.assertEqual(["volumes"], shell.run("devicectl volu\t"))
        self.assertEqual(["wait", "usb", "46f4:0001"], shell.run("devicectl wai\tus\t46\t"))
        self.assertEqual(["wait", "usb", "46f4:0001"], shell.run("devicectl wait usb 46f4:\t"))
        self.assertEqual(["--color=always"], shell.run("devicectl --color=al\t"))
        self.assertEqual(["--color", "never", "usb", "power", "1", "off"],
                         shell.run("devicectl --color n\tusb po\t1 of\t"))
        for label in HOSTILE:
            self.labels(label)
            with self.subTest(label=label):
                self.assertEqual(["wait", "volume", label], shell.run("devicectl wait volume \t"))
        self.labels("$(touch pwned) one", "$(touch pwned) two")
        # As far as they are alike, then the rest.
        self.assertEqual(["wait", "volume", "$(touch pwned) two"], shell.run("devicectl wait volume \ttw\t"))
        self.assertFalse((self.folder / "pwned").exists(), "a label became a command")

    def test_bash(self) -> None:
        shell = self.bash()
        self.complete_all(shell)
        for label in HOSTILE:
            self.labels(label)
            for quote in "'\"":
                with self.subTest(label=label, quote=quote):
                    self.assertEqual(["wait", "volume", label], shell.run(f"devicectl wait volume {quote}\t"))
        self.assertFalse((self.folder / "pwned").exists(), "a label became a command")

    def test_zsh(self) -> None:
        self.complete_all(self.zsh())

    def test_the_scripts_are_well_formed(self) -> None:
        for argv in (["bash", "-n", str(FOLDER / "devicectl.bash")], ["zsh", "-n", str(FOLDER / "_devicectl")]):
            done = subprocess.run(argv, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=LIMIT, check=False)
            self.assertEqual((0, b""), (done.returncode, done.stdout), argv)


if __name__ == "__main__":
    completer = sys.argv.pop(1)
    unittest.main()
