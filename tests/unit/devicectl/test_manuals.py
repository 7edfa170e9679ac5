# SPDX-License-Identifier: Apache-2.0
"""The manual pages tell of the options, commands and exit statuses that there are, and of no others.

usage: test_manuals.py DEVICECTL DEVICE-SERVICE SERVICEMANAGER
"""

from __future__ import annotations

import os
import re
import shlex
import subprocess
import sys
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent.parent
PAGES = {"devicectl": "devicectl.1", "device-service": "device-service.8", "servicemanager": "servicemanager.8"}
OPTION = re.compile(r"(?<![\w-])-{1,2}[a-z][a-z-]*")
programs: dict[str, str] = {}


def call(argv: list[str]) -> subprocess.CompletedProcess[str]:
    """Runs a program on a machine without a driver."""
    environment = {**os.environ, "BINDER_DEVICE": "/nonexistent/binder"}
    return subprocess.run(argv, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=60, check=False,
                          env=environment)


def page(name: str) -> str:
    return (ROOT / "docs/man" / PAGES[name]).read_text(encoding="utf-8")


def section(name: str, title: str) -> str:
    return re.split(r"^\.Sh ", page(name).split(f".Sh {title}\n", 1)[1], maxsplit=1, flags=re.MULTILINE)[0]


def documented_options(text: str) -> set[str]:
    """Those that have an item of their own."""
    found = set()
    for item in re.findall(r"^\.It (Fl .*)$", text, re.MULTILINE):
        for flag in re.findall(r"\bFl (-?[a-z]\S*)", item):
            found.add("-" + flag)
    return found


def plain_item(item: str) -> tuple[str, ...]:
    """A command and its arguments, as the help's usage writes them: no macros, options left out."""
    words = re.sub(r"Oo .*? Oc|Op Fl \S+", "", item).split()
    return tuple(word for word in words if word not in ("Ar", "Cm", "Op", "..."))


def documented_commands() -> set[tuple[str, ...]]:
    return {plain_item(item) for item in re.findall(r"^\.It Cm (.*)$", section("devicectl", "COMMANDS"), re.MULTILINE)}


class Help:
    """What devicectl's help tells, by command."""

    def __init__(self) -> None:
        self.commands: set[tuple[str, ...]] = set()
        self.options: set[str] = set()
        self._read(())

    def _read(self, command: tuple[str, ...]) -> None:
        done = call([programs["devicectl"], *command, "--help"])
        assert done.returncode == 0 and done.stderr == "", (command, done.stderr)
        lines = done.stdout.splitlines()
        for line in self._block(lines, "Options:"):
            self.options |= set(OPTION.findall(line.split("  ")[1]))
        subcommands = [line.split()[0] for line in self._block(lines, "Subcommands:")]
        for name in subcommands:
            self._read((*command, name))
        if not subcommands:
            arguments = [line.split()[0] for line in self._block(lines, "Positionals:")]
            self.commands.add((*command, *arguments))

    @staticmethod
    def _block(lines: list[str], title: str) -> list[str]:
        if title not in lines:
            return []
        rest = lines[lines.index(title) + 1:]
        return rest[:rest.index("") if "" in rest else len(rest)]


class Manuals(unittest.TestCase):
    def test_pages_are_well_formed(self) -> None:
        for name in PAGES:
            with self.subTest(name):
                done = call(["mandoc", "-Tlint", "-Wwarning", str(ROOT / "docs/man" / PAGES[name])])
                self.assertEqual((0, "", ""), (done.returncode, done.stdout, done.stderr))
                shown = call(["mandoc", "-Tutf8", str(ROOT / "docs/man" / PAGES[name])]).stdout
                self.assertIn("EXIT STATUS", re.sub(r".\x08", "", shown))

    def test_devicectl_commands(self) -> None:
        told = Help()
        self.assertGreater(len(told.commands), 30, "the help was read")
        self.assertEqual(told.commands, documented_commands())

    def test_devicectl_options(self) -> None:
        told = Help()
        self.assertIn("--properties", told.options)
        self.assertEqual(told.options, documented_options(page("devicectl")))

    def test_devicectl_exit_statuses(self) -> None:
        text = call([programs["devicectl"], "--help"]).stdout.split("Exit status:\n")[1].split("\n\n")[0]
        told = {number: what for number, what in re.findall(r"^  (\d)  (.*)$", text, re.MULTILINE)}
        self.assertGreaterEqual(len(told), 7)
        items = re.findall(r"^\.It (\d+)\n((?:[^.].*\n)+)", section("devicectl", "EXIT STATUS"), re.MULTILINE)
        written = {number: what.replace("\n", " ").strip() for number, what in items}
        self.assertEqual({number: f"{what[0].upper()}{what[1:]}." for number, what in told.items()}, written)
        guide = (ROOT / "docs/devicectl.md").read_text(encoding="utf-8").split("## Exit statuses")[1]
        self.assertEqual(sorted(told), re.findall(r"^\| (\d) \|", guide.split("\n## ")[0], re.MULTILINE))

    def test_devicectl_guide_names_every_command(self) -> None:
        guide = (ROOT / "docs/devicectl.md").read_text(encoding="utf-8")
        missing = []
        for command in Help().commands:
            words = [word for word in command if not word.isupper() and ":" not in word]
            if not re.search(rf"`[^`\n]*\b{re.escape(words[-1])}\b", guide):
                missing.append(command)
        self.assertEqual([], missing)

    def test_commands_of_all_pages_are_understood(self) -> None:
        """What a reader may copy is a command line of this program; without a driver it gets as far as status 5."""
        placeholders = {word.strip("[].") for command in Help().commands for word in command if word.isupper()}
        tried = 0
        for document in [ROOT / "README.md", ROOT / "CONTRIBUTING.md", *sorted((ROOT / "docs").glob("*.md"))]:
            for number, line in enumerate(document.read_text(encoding="utf-8").splitlines(), 1):
                shown = re.match(r"^(?: {4,}|\$ )(?:\$ )?(devicectl [^#&|;>]*?)\s*(?: # .*|[&|;>].*)?$", line)
                if shown is None:
                    continue
                words = shlex.split(shown[1])[1:]
                if placeholders & set(words) or any(word.startswith("[") or word == "..." for word in words):
                    continue
                with self.subTest(f"{document.name}:{number}"):
                    done = call([programs["devicectl"], *words])
                    self.assertEqual((5, ""), (done.returncode, done.stdout), done.stderr)
                tried += 1
        self.assertGreater(tried, 30)

    def test_servicemanager(self) -> None:
        done = call([programs["servicemanager"], "--help"])
        self.assertEqual((0, ""), (done.returncode, done.stderr))
        self.assertEqual(set(OPTION.findall(done.stdout.splitlines()[0])), documented_options(page("servicemanager")))
        statuses = re.findall(r"\b(\d+) [a-z]", done.stdout.split("Exit status:")[1], re.IGNORECASE)
        self.assertEqual(statuses, re.findall(r"^\.It (\d+)$", section("servicemanager", "EXIT STATUS"), re.MULTILINE))

    def test_device_service_environment(self) -> None:
        """The page has the variables that the integrators' page lists, which a rule compares with the code."""
        guide = (ROOT / "docs/integrating.md").read_text(encoding="utf-8")
        listed = re.findall(r"^\| `(\w+)` \|", guide.split("\n## Environment\n")[1].split("\n## ")[0], re.MULTILINE)
        self.assertIn("BINDER_DEVICE", listed)
        written = re.findall(r"^\.It Ev (\w+)$", section("device-service", "ENVIRONMENT"), re.MULTILINE)
        self.assertEqual(sorted(listed), sorted(written))

    def test_device_service_has_no_options(self) -> None:
        self.assertEqual(set(), documented_options(page("device-service")))
        plain = call([programs["device-service"]])
        self.assertIn("69", re.findall(r"^\.It (\d+)$", section("device-service", "EXIT STATUS"), re.MULTILINE))
        self.assertEqual(69, plain.returncode)
        for argument in ("--help", "--version", "start"):
            done = call([programs["device-service"], argument])
            self.assertEqual((plain.returncode, plain.stdout, plain.stderr), (done.returncode, done.stdout, done.stderr))


if __name__ == "__main__":
    for program in PAGES:
        programs[program] = sys.argv.pop(1)
    unittest.main()
