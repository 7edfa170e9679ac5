# SPDX-License-Identifier: Apache-2.0
"""What the tests on the virtual head unit share: one machine for a file, fresh programs for a test, evidence.

Each file runs alone: python3 tests/system/test_NAME.py --build build/dev [unittest arguments]
"""

from __future__ import annotations

import argparse
import contextlib
import signal
import sys
import time
import unittest
from collections.abc import Callable, Sequence
from pathlib import Path
from typing import Any, NoReturn

ROOT = Path(__file__).resolve().parent.parent.parent
if str(ROOT) not in sys.path:
    sys.path.insert(0, str(ROOT))

from vm.errors import GuestError, HeadunitError  # noqa: E402
from vm.guestlink import Completed, Guest, GuestProcess  # noqa: E402
from vm.machine import Machine  # noqa: E402
from vm.peripherals import Plugged  # noqa: E402
from vm.services import Services  # noqa: E402
from vm.session import Session  # noqa: E402

LIMIT = 60.0      # seconds that a wait may take on a busy machine unless it says otherwise
POOL_LIMIT = 16   # threads of a binder pool: the first one, and those that the driver may ask for
POLL_STEP = 0.05  # seconds between two looks at a condition that nothing announces

# As the unit does before a start of the daemon: what a killed one left mounted would keep its disk, and no later one
# would mount there.
CLEAR_MOUNTS = """for folder in $(awk '$2 ~ "^/mnt/" { print $2 }' /proc/mounts); do
    umount -l "$folder" && rmdir "$folder" && rm -f "/media/${folder##*/}"
done"""

build_dir = ROOT / "build/dev"


def wait_until(condition: Callable[[], Any], what: str, timeout: float = LIMIT) -> Any:
    """Looks at the condition until it holds; returns its value. Raises AssertionError at the limit."""
    deadline = time.monotonic() + timeout
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > deadline:
            raise AssertionError(f"not within {timeout:g} s: {what}")
        time.sleep(POLL_STEP)


class GuestTestCase(unittest.TestCase):
    """A file's tests on one machine, as long as its classes want the same. After each test everything that it started or
    plugged is gone; a test that fails takes the machine along, and the next one boots another."""

    machine_options: dict[str, Any] = {}  # what a class wants from its Machine
    has_failed = False  # known as soon as it is, before the clean-ups
    session: Session
    machine: Machine
    _standing: type[GuestTestCase] | None = None  # the class that booted the machine which now stands

    @classmethod
    def setUpClass(cls) -> None:
        super().setUpClass()
        standing = GuestTestCase._standing
        if standing is not None and standing.machine.is_running and cls._wants_as(standing):
            cls.session, cls.machine = standing.session, standing.machine
            return
        if standing is not None:
            standing.give_up()
        cls._boot_to_stand()

    @classmethod
    def _wants_as(cls, other: type[GuestTestCase]) -> bool:
        """Whether another class's machine is one that this class would boot."""
        return cls.boot.__func__ is other.boot.__func__ and cls.machine_options == other.machine_options

    @classmethod
    def _boot_to_stand(cls) -> None:
        """Boots the machine, which stands until a class wants another, a test fails or the file ends."""
        GuestTestCase._standing = cls
        unittest.addModuleCleanup(cls.give_up)
        cls.boot()

    @classmethod
    def boot(cls) -> None:
        """Boots the machine. What a class wants to have there before its first test, it adds here."""
        cls.session = Session()
        cls.machine = Machine(cls.session, **cls.machine_options)
        cls.machine.boot()

    @classmethod
    def give_up(cls) -> None:
        """Ends the machine; the next test boots another."""
        cls.machine.stop()
        cls.session.close()

    def _give_up_after_failure(self) -> None:
        if self.has_failed:
            self.give_up()

    def setUp(self) -> None:
        super().setUp()
        if not self.machine.is_running:
            self._boot_to_stand()
        self.addCleanup(self._give_up_after_failure)
        self._named: dict[str, GuestProcess] = {}
        self.services = Services(self.guest, build_dir)
        # Cleanups run in reverse: the programs end first, so that nothing reacts to what is pulled out.
        self.addCleanup(self._unplug_all)
        self.addCleanup(self.guest.kill_all)

    @property
    def guest(self) -> Guest:
        return self.machine.guest

    def run_guest(self, argv: Sequence[str], timeout: float = LIMIT, **options: Any) -> Completed:
        """Runs a command in the guest; check=True makes a result other than 0 an error."""
        return self.guest.run(argv, timeout, **options)

    def spawn(self, argv: Sequence[str], name: str | None = None, **options: Any) -> GuestProcess:
        """Starts a command; its output is evidence under the name (the program's by default)."""
        process = self.guest.spawn(argv, **options)
        self._note(name or Path(argv[0]).name, process)
        return process

    def program(self, name: str) -> str:
        """The path of a built program in the guest."""
        return self.services.program(name)

    def start_services(self, start_managers: bool = True) -> Services:
        """Starts a fresh service manager and daemon, and by default the managers; watches the uevents."""
        self.watch_uevents()
        try:
            self.services.start()
        finally:
            started = {"servicemanager": self.services.manager, "device-service": self.services.daemon}
            for name, process in started.items():
                if process is not None:
                    self._note(name, process)
        if start_managers:
            self.services.start_managers()
        return self.services

    def start_client(self) -> GuestProcess:
        """Starts a client process that prints what it hears as JSON lines, registered when this returns."""
        client = self.services.monitor()
        self._note("client", client)
        return client

    def watch_uevents(self) -> GuestProcess:
        """Starts a listener of the kernel's uevents, which is ready when this returns."""
        listener = self.spawn(["stdbuf", "-oL", "udevadm", "monitor", "--kernel", "--property"],
                              name="uevents")
        listener.wait_for("^KERNEL", LIMIT)
        return listener

    def plug(self, kind: str, **options: Any) -> Plugged:
        return self.machine.peripherals.plug(kind, **options)

    def unplug(self, name: str) -> None:
        self.machine.peripherals.unplug(name)

    def wait_guest(self, shell_condition: str, timeout: float = LIMIT) -> None:
        """Waits until a shell condition holds in the guest, looked at there."""
        script = f"until {shell_condition}; do sleep {POLL_STEP}; done"
        try:
            self.run_guest(["sh", "-c", script], timeout, check=True)
        except GuestError as error:
            raise AssertionError(f"the guest did not come to: {shell_condition} ({error})") from None

    def resources_of(self, process: GuestProcess) -> dict[str, int]:
        """What a process has: descriptors, threads of its own, threads of the binder pool, resident memory."""
        names = f"cat /proc/{process.pid}/task/*/comm"
        script = (f"ls /proc/{process.pid}/fd | wc -l; {names} | grep -vc ^Binder:; {names} | grep -c ^Binder:; "
                  f"sed -n 's/^VmRSS:[^0-9]*\\([0-9]*\\).*/\\1/p' /proc/{process.pid}/status")
        descriptors, threads, pool, resident = map(int, self.run_guest(["sh", "-c", script], check=True).text.split())
        return {"descriptors": descriptors, "threads": threads, "pool": pool, "resident KiB": resident}

    def keep_evidence(self) -> Path:
        """Writes what is known into the artefacts folder of this test and returns it."""
        folder = build_dir / "artefacts" / self.id().replace("__main__", Path(sys.argv[0]).stem)
        folder.mkdir(parents=True, exist_ok=True)
        (folder / "console.log").write_text(self.machine.console_text(), encoding="utf-8")
        (folder / "emulator.log").write_text(self.machine.emulator_text(), encoding="utf-8")
        for name, process in getattr(self, "_named", {}).items():
            lines = "".join(f"{line.time:.6f} {line.stream} {line.text}\n" for line in process.lines())
            state = "still running" if process.returncode is None else f"ended with {process.returncode}"
            (folder / f"{name}.log").write_text(f"{lines}-- {' '.join(process.argv)}: {state}\n",
                                                encoding="utf-8", errors="surrogateescape")
        with contextlib.suppress(HeadunitError):
            (folder / "dmesg.log").write_bytes(self.guest.run(["dmesg"], 20.0).stdout)
        return folder

    def _unplug_all(self) -> None:
        """Pulls out what is left, and waits until the guest has seen it, so that the next test does not."""
        if not self.machine.is_running or not self.machine.peripherals.list():
            return
        self.run_guest(["sh", "-c", CLEAR_MOUNTS], check=True)
        self.machine.peripherals.unplug_all()
        self.wait_guest("! ls /sys/bus/usb/devices /sys/block | grep -qE '^([0-9]+-[1-9]|sd|mmcblk)'")
        self.wait_guest("udevadm settle")

    def _note(self, name: str, process: GuestProcess) -> None:
        number = 1
        label = name
        while label in self._named:
            number += 1
            label = f"{name}-{number}"
        self._named[label] = process


class EvidenceResult(unittest.TextTestResult):
    """Tells how long each test took. Keeps the evidence of a failed one while its machine still stands, and names it in
    the report."""

    def startTest(self, test: unittest.TestCase) -> None:  # noqa: N802
        self._begin = time.monotonic()
        super().startTest(test)

    def addSuccess(self, test: unittest.TestCase) -> None:  # noqa: N802
        unittest.TestResult.addSuccess(self, test)
        self.stream.writeln(f"ok {time.monotonic() - self._begin:.1f} s")

    def addFailure(self, test: unittest.TestCase, err: Any) -> None:  # noqa: N802
        super().addFailure(test, err)
        self._name_evidence(test, self.failures)

    def addError(self, test: unittest.TestCase, err: Any) -> None:  # noqa: N802
        super().addError(test, err)
        self._name_evidence(test, self.errors)

    def addSubTest(self, test: unittest.TestCase, subtest: unittest.TestCase, err: Any) -> None:  # noqa: N802
        super().addSubTest(test, subtest, err)
        if err is not None:
            failed = issubclass(err[0], test.failureException)
            self._name_evidence(test, self.failures if failed else self.errors)

    def _name_evidence(self, test: unittest.TestCase, reports: list[Any]) -> None:
        if not isinstance(test, GuestTestCase):
            return
        test.has_failed = True
        try:
            note = f"evidence: {test.keep_evidence()}"
        except (HeadunitError, OSError) as error:
            note = f"the evidence could not be kept: {error}"
        subject, text = reports[-1]
        reports[-1] = (subject, f"{text}\n{note}\n")


def main() -> NoReturn:
    """Runs the tests of the calling file; exit status 0 only if all passed."""
    global build_dir
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", type=Path, default=build_dir,
                        help="the build folder whose programs are tested")
    arguments, rest = parser.parse_known_args()
    build_dir = arguments.build.absolute()
    # unittest would take an exit for a failed test and go on; the interrupt ends the whole run.
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    program = unittest.main(module="__main__", argv=[sys.argv[0], *rest], exit=False, verbosity=2,
                            testRunner=unittest.TextTestRunner(resultclass=EvidenceResult, verbosity=2))
    sys.exit(0 if program.result.wasSuccessful() and program.result.testsRun > 0 else 1)
