# SPDX-License-Identifier: Apache-2.0
"""What is missing is said in one line, at once, by every program."""

from __future__ import annotations

import time

import harness
from harness import GuestTestCase

UNAVAILABLE = 69
PROMPT = 10.0  # seconds; nothing may wait for a driver that is not there


class OneLine(GuestTestCase):
    def assert_one_line(self, program: str, arguments: list[str], status: int, *words: str) -> None:
        begin = time.monotonic()
        done = self.run_guest([self.program(program), *arguments])
        self.assertLess(time.monotonic() - begin, PROMPT)
        self.assertEqual(status, done.returncode, done.error_text)
        # The daemon's signal catcher reports the two signals that the kernel refuses before anything else.
        lines = [line for line in done.error_text.splitlines() if not line.startswith("SIG")]
        self.assertEqual(1, len(lines), done.error_text)
        for word in words:
            self.assertIn(word, lines[0])
        self.assertEqual("", done.text)


class NoModule(OneLine):
    machine_options = {"without_binder": True}

    def test_each_program_says_what_to_do(self) -> None:
        for program, arguments, status in (("device-service", [], UNAVAILABLE), ("servicemanager", [], UNAVAILABLE),
                                           ("devicectl", ["services"], 5)):
            with self.subTest(program=program):
                self.assert_one_line(program, arguments, status, "/dev/binder", "modprobe binder_linux")


class NoPermissionNoManager(OneLine):
    def test_unreadable_node(self) -> None:
        # Root may read anything but a node that forbids it by its kind: another one in its place.
        self.run_guest(["sh", "-c", "mv /dev/binder /dev/binder.away && mknod /dev/binder c 1 3"], check=True)
        self.addCleanup(self.run_guest, ["mv", "-f", "/dev/binder.away", "/dev/binder"], check=True)
        for program, arguments, status in (("device-service", [], UNAVAILABLE), ("servicemanager", [], UNAVAILABLE),
                                           ("devicectl", ["services"], 5)):
            with self.subTest(program=program):
                self.assert_one_line(program, arguments, status, "/dev/binder")

    def test_permission(self) -> None:
        self.run_guest(["chmod", "0600", "/dev/binder"], check=True)
        done = self.run_guest(["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                               self.program("devicectl"), "services"])
        self.assertEqual(5, done.returncode, done.error_text)
        self.assertIn("Permission denied", done.error_text)

    def test_no_service_manager(self) -> None:
        self.assert_one_line("device-service", [], UNAVAILABLE, "servicemanager")
        self.assert_one_line("devicectl", ["services"], 3, "servicemanager")


if __name__ == "__main__":
    harness.main()
