# SPDX-License-Identifier: Apache-2.0
"""What a client process hears: its JSON lines, shown as a table and kept for questions."""

from __future__ import annotations

import json
import re
import threading
import time
from dataclasses import dataclass, field

from .errors import GuestError
from .guestlink import GuestProcess

FOR_EVER = 1e8  # seconds


@dataclass(frozen=True)
class Event:
    """One event of a device, a volume (subsystem "volume", its access path, its attributes) or a USB device
    (subsystem "usb", its bus, its numbers). time is the wall clock at which the client got it."""

    name: str
    time: float
    subsystem: str
    path: str
    params: dict[str, str] = field(default_factory=dict)

    @property
    def node(self) -> str:
        """The device's name in /dev, or the last part of its path."""
        return self.params.get("DEVNAME", "") or self.params.get("name", "") or self.path.rsplit("/", 1)[-1]

    @property
    def what(self) -> str:
        """What kind of thing it is, and its node."""
        kind = self.params.get("DEVTYPE", "") or self.params.get("format", "")
        return ", ".join(part for part in (kind, self.node) if part)

    @property
    def where(self) -> str:
        """The device's path, or under which path the volume's files are, with its label."""
        label = self.params.get("label", "")
        return f"{self.path} {label!a}" if label else self.path


@dataclass(frozen=True)
class Expected:
    """An event that has to come: the node's name matches the whole expression."""

    name: str
    subsystem: str
    node: str

    def matches(self, event: Event) -> bool:
        return (event.name == self.name and event.subsystem == self.subsystem
                and re.fullmatch(self.node, event.node) is not None)

    def __str__(self) -> str:
        return f"{self.name} {self.subsystem} {self.node}"


def parse(line: str) -> dict[str, object] | None:
    """The object of a line, or None for anything else."""
    try:
        value = json.loads(line)
    except ValueError:
        return None
    return value if isinstance(value, dict) else None


def usb_name(fields: dict[str, object]) -> str:
    """A USB device's vendor and product as usual, such as 05ac:12a8."""
    numbers = (fields.get("vendor"), fields.get("product"))
    return ":".join(f"{number:04x}" if isinstance(number, int) else "?" for number in numbers)


class EventTable:
    """Follows one client on a thread of its own and prints each event as it comes."""

    def __init__(self, client: GuestProcess, start: float) -> None:
        """start is the wall clock that the shown times count from."""
        self._client = client
        self._start = start
        self._changed = threading.Condition()  # guards the list
        self._events: list[Event] = []
        self._thread = threading.Thread(target=self._follow, name="events", daemon=True)

    def begin(self) -> None:
        """Prints the heading and goes on with what the client prints."""
        print(f"{'time':>10}  {'event':<15} {'subsystem':<10} {'type, node':<28} path", flush=True)
        self._thread.start()

    def count(self) -> int:
        """Number of events so far: where a later wait begins."""
        with self._changed:
            return len(self._events)

    def wait(self, expected: list[Expected], since: int, timeout: float) -> list[Expected]:
        """Waits until each has come after the event number since; returns those that did not."""
        deadline = time.monotonic() + timeout
        with self._changed:
            while True:
                fresh = self._events[since:]
                missing = [wanted for wanted in expected if not any(wanted.matches(event) for event in fresh)]
                left = deadline - time.monotonic()
                if not missing or left <= 0 or self._client.returncode is not None:
                    return missing
                self._changed.wait(min(left, 0.5))

    def _follow(self) -> None:
        try:
            for line in self._client.follow(FOR_EVER, "stdout"):
                self._take(parse(line.text), line.time)
        except GuestError:
            return  # the machine ended, which the main thread sees for itself

    def _take(self, fields: dict[str, object] | None, received: float) -> None:
        if not fields:
            return
        if fields.get("event") == "service":
            moment = self._moment(received)
            what = f"{fields.get('service', '')} {fields.get('state', '')}"
            print(f"{moment}  {'service':<15} {what}", flush=True)
            return
        sent = fields.get("time")
        moment_told = float(sent) if isinstance(sent, (int, float)) else received
        if fields.get("event") in ("volume-added", "volume-removed"):
            attributes = {key: str(value) for key, value in fields.items()
                          if key not in ("schemaVersion", "event", "time")}
            event = Event(str(fields["event"]), moment_told, "volume", attributes.get("access_path", ""), attributes)
        elif fields.get("event") in ("device-added", "device-removed"):
            params = fields.get("params")
            named = params if isinstance(params, dict) else {}
            event = Event(str(fields["event"]), moment_told, str(fields.get("subsystem", "")),
                          str(fields.get("path", "")), {str(key): str(value) for key, value in named.items()})
        elif fields.get("event") in ("usb-attached", "usb-detached"):
            event = Event(str(fields["event"]), moment_told, "usb", f"bus {fields.get('bus', '')}",
                          {"name": usb_name(fields), "DEVTYPE": f"id {fields.get('id', '')}"})
        else:
            return
        print(f"{self._moment(event.time)}  {event.name:<15} {event.subsystem:<10} {event.what:<28} {event.where}",
              flush=True)
        with self._changed:
            self._events.append(event)
            self._changed.notify_all()

    def _moment(self, wall: float) -> str:
        return f"{wall - self._start:8.3f} s"
