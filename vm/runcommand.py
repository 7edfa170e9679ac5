# SPDX-License-Identifier: Apache-2.0
"""`headunit run`: a stick, a card, a hub and a phone come and go, and a client process in the guest hears of it."""

from __future__ import annotations

import time
from dataclasses import dataclass
from pathlib import Path

from .control import ControlServer
from .errors import HeadunitError
from .events import EventTable, Expected
from .guestlink import GuestProcess
from .machine import Machine
from .paths import LOGS
from .progress import elapsed, say, step
from .services import Services

EVENT_LIMIT = 60.0  # seconds for what takes about one
WATCH_STEP = 0.5    # seconds between two looks at daemon and machine


@dataclass(frozen=True)
class Show:
    """Something to plug in, what a user is told about it, and whose events have to come: for each, what an event
    is called before "-added" or "-attached", the subsystem and the node."""

    kind: str
    options: dict[str, object]
    told: str
    nodes: tuple[tuple[str, str, str], ...]


SHOWN = (
    Show("stick", {"size_mib": 64, "fs": "vfat", "label": "STICK"}, "64 MiB, vfat", (
        ("device", "block", r"sd[a-z]+"), ("device", "block", r"sd[a-z]+1"), ("device", "usb", r"bus/usb/\d+/\d+"),
        ("volume", "volume", r"sd[a-z]+1"), ("usb", "usb", "46f4:0001"))),
    Show("card", {"size_mib": 64, "fs": "vfat", "label": "CARD"}, "64 MiB, vfat", (
        ("device", "mmc", r"mmc\d+:[0-9a-f]+"), ("device", "block", r"mmcblk\d+"), ("device", "block", r"mmcblk\d+p1"),
        ("volume", "volume", r"mmcblk\d+p1"))),
    Show("hub", {}, "8 ports", (("device", "usb", r"bus/usb/\d+/\d+"), ("usb", "usb", "0409:55aa"))),
    Show("phone", {}, "05ac:12a8", (("device", "usb", r"bus/usb/\d+/\d+"), ("usb", "usb", "05ac:12a8"))),
)
CHANGES = {"device": ("added", "removed"), "volume": ("added", "removed"), "usb": ("attached", "detached")}


class Run:
    """One run. The machine is booted and stopped by the caller."""

    def __init__(self, machine: Machine, build: Path) -> None:
        self._machine = machine
        self._services = Services(machine.guest, build)
        self._clients: list[GuestProcess] = []
        self._table: EventTable

    def execute(self, seconds: float | None, interactive: bool) -> None:
        """Shows the events; raises when an expected one does not come. seconds counts from the first plug."""
        try:
            with step("start servicemanager and device-service"):
                self._services.start()
            with step("start the managers and a client"):
                # Its bus comes up with the first phone else, amid the phone's own events.
                self._machine.peripherals.prepare_virtual_bus()
                self._services.start_managers()
                self._clients.append(self._services.monitor())
            self._table = EventTable(self._clients[0], time.time() - elapsed())
            self._table.begin()
            with ControlServer(self._machine.session.control_socket, self._machine.peripherals):
                self._show(seconds, interactive)
        finally:
            self._keep_logs()

    def _show(self, seconds: float | None, interactive: bool) -> None:
        begin = time.monotonic()
        plugged = [(self._plug(show), show) for show in SHOWN]
        for name, show in plugged:
            self._unplug(name, show)
        say("all expected events came")
        if seconds is None and not interactive:
            return
        if interactive:
            say("in a second terminal: ./headunit plug stick, ./headunit unplug NAME; Ctrl-C ends")
        try:
            while seconds is None or time.monotonic() < begin + seconds:
                self._check()
                time.sleep(WATCH_STEP if seconds is None
                           else max(0.0, min(WATCH_STEP, begin + seconds - time.monotonic())))
        except KeyboardInterrupt:
            print(flush=True)

    def _plug(self, show: Show) -> str:
        since = self._table.count()
        plugged = self._machine.peripherals.plug(show.kind, **show.options)
        say(f"plugged {plugged.name} into {plugged.place} ({show.told})")
        self._expect(show, 0, since)
        return plugged.name

    def _unplug(self, name: str, show: Show) -> None:
        since = self._table.count()
        say(f"pull out {name}")
        self._machine.peripherals.unplug(name)
        self._expect(show, 1, since)

    def _expect(self, show: Show, change: int, since: int) -> None:
        expected = [Expected(f"{source}-{CHANGES[source][change]}", subsystem, node)
                    for source, subsystem, node in show.nodes]
        missing = self._table.wait(expected, since, EVENT_LIMIT)
        if missing:
            self._check()
            raise HeadunitError(f"these events did not come within {EVENT_LIMIT:g} s: "
                                f"{'; '.join(map(str, missing))}; logs are in {LOGS / 'run'}")

    def _check(self) -> None:
        """Raises when something ended that should still run."""
        processes = [self._services.manager, self._services.daemon, *self._clients]
        for process in processes:
            if process is not None and process.returncode is not None:
                raise HeadunitError(f"{Path(process.argv[0]).name} ended with {process.returncode}; "
                                    f"logs are in {LOGS / 'run'}")
        if not self._machine.is_running:
            raise HeadunitError(f"the machine ended; its console's log is {LOGS / 'run' / 'console.log'}")

    def _keep_logs(self) -> None:
        folder = LOGS / "run"
        folder.mkdir(parents=True, exist_ok=True)
        logs = {"servicemanager": self._services.manager, "device-service": self._services.daemon}
        logs.update({f"client{number}": client for number, client in enumerate(self._clients, 1)})
        for name, process in logs.items():
            if process is not None:
                text = "".join(f"{line.time:.6f} {line.stream} {line.text}\n" for line in process.lines())
                (folder / f"{name}.log").write_text(text, encoding="utf-8", errors="surrogateescape")
        (folder / "console.log").write_text(self._machine.console_text(), encoding="utf-8")
