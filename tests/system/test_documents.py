# SPDX-License-Identifier: Apache-2.0
"""What the tutorials and the troubleshooting page tell their reader to type is typed, and must show what they show.

A block that begins with ```console guest is typed into a root shell of the virtual head unit, ```console host into
one of this machine, in a folder of the test's own. Lines that begin with "$ " are typed, with "> " continued; the
others are what must be shown: "…" stands for anything in a line, alone for any lines. A command ends with status 0
unless it complains by its name or the next command is `echo $?`. What only looks is looked at again until it shows what it must.

A block that begins with a language and a file's name, ```cpp main.cpp, is that file of the folder.

What a reader does with his hands stands in comments that he does not see, <!-- test: VERB ... -->: boot (the machine,
after what comes before it on this one), boot unit (one that systemd brings up, with the folder "image" laid over its
root), folder (enter the test's own),
plug KIND [NAME=VALUE ...], unplug NAME, start PROGRAM, kill PROGRAM [SIGNAL], run COMMAND, wait CONDITION.
"""

from __future__ import annotations

import re
import shlex
import shutil
import signal
import subprocess
import tempfile
import time
import unittest
from collections.abc import Iterator
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any, Protocol

import harness
from harness import LIMIT, POLL_STEP, ROOT, GuestTestCase
from vm.errors import HeadunitError
from vm.guestlink import GuestProcess
from vm.machine import Machine
from vm.services import Services
from vm.session import Session

FENCE = re.compile(r"^ *```(\S*) *(\S*)$")
DIRECTIVE = re.compile(r"^<!-- test: (.*) -->$")
COMMAND_LIMIT = 300.0  # seconds; a tutorial may build
BOOT_LIMIT = 400.0     # systemd brings up a whole system
LOOK_LIMIT = 180.0     # and what is looked at may be a restart of the daemon with all that belongs to it
# Commands that change nothing: what they show may need a moment to come true.
LOOKS = re.compile(r"^(devicectl (--json )?(services|volumes|usb list|dump)|systemctl (is-active|status|show)|journalctl|"
                   r"ls|cat|grep|ps|readlink|sort)\b(?!.*[;>])")
MARK = "@@ended"


DIRECTIVES = "directives"  # the place of what is done by hand


@dataclass
class Command:
    """Something to type in a place, and the lines that must come. In place of a command: a file and its lines, or what
    is done by hand."""

    line: int
    text: str
    where: str
    expected: list[str] = field(default_factory=list)
    file: str = ""


def commands_of(document: Path) -> Iterator[Command]:
    """What the document says, in its order."""
    command: Command | None = None
    where = ""
    inside = False
    for number, text in enumerate(document.read_text(encoding="utf-8").splitlines(), 1):
        fence = FENCE.match(text)
        directive = DIRECTIVE.match(text)
        if fence:
            if command is not None:
                yield command
            command = None
            inside = not inside
            where = fence[2] if inside and fence[1] == "console" else ""
            if inside and fence[2] and not where:
                command = Command(number, fence[2], "host", file=fence[2])
        elif directive and not inside:
            yield Command(number, directive[1], DIRECTIVES)
        elif command is not None and command.file:
            command.expected.append(text)
        elif where and text.startswith("$ "):
            if command is not None:
                yield command
            command = Command(number, text[2:], where)
        elif where and text.startswith("> ") and command is not None and not command.expected:
            command.text += "\n" + text[2:]
        elif where:
            assert command is not None, f"{document.name}:{number}: output without a command"
            command.expected.append(text)


def pattern_of_line(line: str) -> str:
    if line.strip() == "…":
        return r"(?:.*\n)*?"
    # How wide a column is depends on what stands in it.
    pieces = [r"[ \t]+".join(map(re.escape, re.split(r"[ \t]+", piece))) for piece in line.rstrip().split("…")]
    return ".*?".join(pieces) + r"[ \t]*\n"


def pattern_of(expected: list[str]) -> re.Pattern[str]:
    """What the shown lines stand for."""
    return re.compile("".join(map(pattern_of_line, expected)))


class Shell(Protocol):
    """A shell that keeps its folder and variables from command to command."""

    def run(self, command: str) -> tuple[str, int]:
        """Types the command; returns what it showed, and its status."""


def typed(command: str, number: int) -> str:
    """The command and a line that tells its end; the status stays for the next command to ask."""
    return f"{command}\nended=$?; printf '\\n{MARK} %d %d\\n' {number} $ended; (exit $ended)\n"


class GuestShell:
    def __init__(self, process: GuestProcess) -> None:
        self._process = process
        self._number = 0

    def run(self, command: str) -> tuple[str, int]:
        self._number += 1
        # Errors are shown with the rest: all lines are of one stream.
        start = len(self._process.lines())
        self._process.write(typed(command, self._number).encode())
        mark = f"{MARK} {self._number} "
        end = self._process.wait_for(lambda text: text.startswith(mark), COMMAND_LIMIT, stream="stdout", start=start)
        shown: list[str] = []
        for line in self._process.lines()[start:]:
            if line.text.startswith(mark):
                break
            shown.append(line.text)
        return "".join(f"{text}\n" for text in shown).removesuffix("\n"), int(end.text.split()[2])


class HostShell:
    def __init__(self, folder: Path, environment: dict[str, str]) -> None:
        self._process = subprocess.Popen(["bash", "--norc"], cwd=folder, env=environment, stdin=subprocess.PIPE,
                                         stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        self._number = 0

    def run(self, command: str) -> tuple[str, int]:
        assert self._process.stdin is not None and self._process.stdout is not None
        self._number += 1
        self._process.stdin.write(typed(command, self._number))
        self._process.stdin.flush()
        mark = f"{MARK} {self._number} "
        shown: list[str] = []
        for line in self._process.stdout:
            if line.startswith(mark):
                return "".join(shown).removesuffix("\n"), int(line.split()[2])
            shown.append(line)
        raise AssertionError(f"the shell ended at: {command}")

    def close(self) -> None:
        assert self._process.stdin is not None and self._process.stdout is not None
        self._process.stdin.close()
        self._process.wait(LIMIT)
        self._process.stdout.close()


class DocumentTestCase(GuestTestCase):
    """Follows documents, line by line."""

    boots_at_once = True  # else a comment of the document says when
    finds_build = True    # whether the programs of the build are commands

    @classmethod
    def setUpClass(cls) -> None:
        if cls.boots_at_once:
            super().setUpClass()
        else:
            unittest.TestCase.setUpClass()

    def setUp(self) -> None:
        self._shells: dict[str, Shell] = {}
        self._running: dict[str, GuestProcess] = {}
        self.folder = Path(tempfile.mkdtemp(prefix="documents."))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        if self.boots_at_once:
            super().setUp()
            self.addCleanup(self.run_guest, ["sh", "-c", harness.CLEAR_MOUNTS])
        else:
            unittest.TestCase.setUp(self)
            self._named = {}

    def boot_now(self, unit: bool) -> None:
        """Boots a machine for this test alone."""
        cls = type(self)
        cls.session = Session()
        self.addCleanup(self.give_up)
        options: dict[str, Any] = {}
        if unit:
            # As in the tests of the units themselves, which say why.
            options = {"systemd": self.folder / "image", "processors": 1, "leave_out": ["binder_linux", "sd_mod", "mmc_block"]}
        cls.machine = Machine(cls.session, **options)
        cls.machine.boot(BOOT_LIMIT)
        self.services = Services(self.guest, harness.build_dir)

    def keep_evidence(self) -> Path:
        if not self.boots_at_once and not hasattr(self, "services"):
            raise HeadunitError("no machine was booted")
        return super().keep_evidence()

    def environment(self) -> dict[str, str]:
        """What the shells find."""
        own = f"{harness.build_dir / 'bin'}:" if self.finds_build else ""
        return {"PATH": f"{own}/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
                "HOME": "/root", "LC_ALL": "C.UTF-8", "SOURCE": str(ROOT), "BUILD": str(harness.build_dir)}

    def shell(self, where: str) -> Shell:
        if where not in self._shells:
            if where == "host":
                shell = HostShell(self.folder, self.environment())
                self.addCleanup(shell.close)
                self._shells[where] = shell
            else:
                assert where == "guest", f"no shell is called {where}"
                process = self.spawn(["bash", "--norc"], name="reader", env=self.environment(),
                                     cwd="/root", stdin=True)
                self._shells[where] = GuestShell(process)
                self._shells[where].run("exec 2>&1")
        return self._shells[where]

    def follow(self, name: str) -> None:
        """Does everything that the document says, in its order."""
        document = ROOT / "docs" / name
        commands = list(commands_of(document))
        self.assertTrue([command for command in commands if command.where != DIRECTIVES], f"{name} says nothing")
        for command, after in zip(commands, [*commands[1:], None]):
            at = f"docs/{name}:{command.line}: {command.text}"
            print(f"    {at}", flush=True)
            try:
                if command.where == DIRECTIVES:
                    self.act(command.text)
                elif command.file:
                    (self.folder / command.file).write_text("\n".join([*command.expected, ""]), encoding="utf-8")
                else:
                    complains = any(re.match(r"[a-z-]+: ", line) for line in command.expected)
                    self.type_in(command, complains or (after is not None and after.text == "echo $?"))
            except AssertionError as error:
                raise AssertionError(f"{at}\n{error}") from None

    def type_in(self, command: Command, may_fail: bool) -> None:
        expected = pattern_of(command.expected)
        deadline = time.monotonic() + LOOK_LIMIT
        while True:
            text, status = self.shell(command.where).run(command.text)
            fits = expected.fullmatch(text) is not None and (status == 0 or may_fail)
            if fits or not LOOKS.match(command.text) or time.monotonic() > deadline:
                break
            time.sleep(POLL_STEP)
        if not fits:
            shown = "\n".join(command.expected)
            raise AssertionError(f"it ended with {status} and showed\n{text}\nwhere the document shows\n{shown}")

    def act(self, text: str) -> None:
        """Does what a comment says."""
        verb, _, rest = text.partition(" ")
        if verb == "plug":
            kind, *options = shlex.split(rest)
            values = dict(option.split("=", 1) for option in options)
            self.plug(kind, **{name: int(value) if value.isdigit() else value for name, value in values.items()})
        elif verb == "boot":
            self.boot_now(unit=rest == "unit")
        elif verb == "folder":
            self.shell("guest").run(f"cd {shlex.quote(str(self.folder))}")
        elif verb == "unplug":
            self.unplug(rest)
        elif verb == "start":
            self._running[rest] = self.spawn([self.program(rest)])
        elif verb == "kill":
            name, *number = rest.split()
            process = self._running.pop(name)
            process.kill(signal.Signals[number[0]] if number else signal.SIGKILL)
            process.wait(LIMIT)
        elif verb == "run":
            self.run_guest(["bash", "-c", rest], check=True, env=self.environment())
        elif verb == "wait":
            path = shlex.quote(self.environment()["PATH"])
            self.wait_guest(f"PATH={path} && {rest}")
        else:
            raise AssertionError(f"no such verb: {verb}")


class Troubleshooting(DocumentTestCase):
    # The first symptom is that there is no driver.
    machine_options = {"without_binder": True}

    def test_each_symptom(self) -> None:
        self.follow("troubleshooting.md")


class ClientTutorial(DocumentTestCase):
    boots_at_once = False

    def test_each_step(self) -> None:
        self.follow("tutorial-client.md")


class UnitTutorial(DocumentTestCase):
    boots_at_once = False
    finds_build = False

    def test_each_step(self) -> None:
        self.follow("tutorial-unit.md")


if __name__ == "__main__":
    harness.main()
