# SPDX-License-Identifier: Apache-2.0
"""The host's side of the program that plays USB peripherals in the guest (vm/guest/usbplayer.py)."""

from __future__ import annotations

import json
from typing import Any

from .errors import GuestError, HeadunitError
from .guestlink import Guest, GuestProcess
from .paths import GUEST_TOOLS

PROGRAM = ["/usr/bin/python3", "-I", "-S", "-B", str(GUEST_TOOLS / "usbplayer.py")]
LIMIT = 60.0  # seconds for the program to begin or to answer

# The module brings up eight controllers, two buses each. One is enough; every bus more is one more that each
# scan of the daemon walks over.
BRING_UP = """set -e
modprobe vhci_hcd
cd /sys/bus/platform/drivers/vhci_hcd
for controller in vhci_hcd.[1-9]*; do
    [ ! -e "$controller" ] || echo "$controller" >unbind
done
"""


class UsbPlayer:
    """Plugs in and pulls out what the program plays. The program starts with the first peripheral, and again
    when it was killed; everything that it played is gone then. One caller at a time."""

    def __init__(self, guest: Guest) -> None:
        self._guest = guest
        self._process: GuestProcess | None = None
        self._ready = False

    def prepare(self) -> None:
        """Brings the virtual host controller up, once."""
        if not self._ready:
            self._guest.run(["sh", "-c", BRING_UP], LIMIT, check=True)
            self._ready = True

    def plug(self, name: str, description: dict[str, Any]) -> tuple[GuestProcess, str]:
        """Returns the program that plays it, and where it sits."""
        self.prepare()
        if self._process is None or self._process.returncode is not None:
            self._process = self._guest.spawn(PROGRAM, stdin=True)
        self._send("plug", name, model=description)
        answer = self._wait(name, "plugged", "refused")
        if answer["event"] == "refused":
            raise HeadunitError(f"{name} cannot be plugged in: {answer['text']}")
        return self._process, f"bus {answer['bus']} port {answer['port'] + 1}"

    def unplug(self, name: str, process: GuestProcess) -> None:
        """Pulls it out. process is the program that plays it: what one that is killed played is out."""
        if process.returncode is None:
            try:
                self._send("unplug", name)
                self._wait(name, "unplugged")
            except GuestError:
                if process.returncode is None:
                    raise

    @staticmethod
    def said(name: str, process: GuestProcess) -> list[dict[str, Any]]:
        """What the host asked of the peripheral so far, and what became of it."""
        entries = [json.loads(line.text) for line in process.lines("stdout")]
        return [entry for entry in entries if entry["name"] == name]

    def _send(self, operation: str, name: str, **fields: Any) -> None:
        assert self._process is not None
        self._process.write(json.dumps({"op": operation, "name": name, **fields}).encode() + b"\n")

    def _wait(self, name: str, *events: str) -> dict[str, Any]:
        assert self._process is not None
        found: dict[str, Any] = {}

        def accepts(text: str) -> bool:
            entry = json.loads(text)
            if entry["name"] != name or entry["event"] not in events:
                return False
            found.update(entry)
            return True

        self._process.wait_for(accepts, LIMIT, stream="stdout")
        return found
