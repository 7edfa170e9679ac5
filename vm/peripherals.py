# SPDX-License-Identifier: Apache-2.0
"""What can be plugged into the head unit, and how it is pulled out again without a word to the guest."""

from __future__ import annotations

import functools
import threading
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from . import media, usbmodels
from .errors import HeadunitError
from .guestlink import Guest
from .ports import PortMap
from .qmp import Qmp
from .usbplayer import UsbPlayer

CARD_SLOT = "slot0"     # the reader's drive in the emulator
CARD_DEVICE = "reader0"  # the reader's device in the emulator
UNPLUG_LIMIT = 30.0     # seconds


@dataclass
class Plugged:
    """One thing that is plugged in. said tells what it was asked so far and what became of it: the lines of
    vm/guest/usbplayer.py, nothing for what the emulator plays."""

    name: str
    kind: str
    place: str
    remove: Callable[[], None]
    said: Callable[[], list[dict[str, Any]]] = list


class Peripherals:
    """The peripherals of one machine. Any thread may plug and unplug."""

    def __init__(self, qmp: Qmp, work: Path, guest: Guest) -> None:
        self._qmp = qmp
        self._work = work
        self._player = UsbPlayer(guest)
        self._lock = threading.Lock()  # guards all below; a plug or unplug is one step
        self._ports = PortMap()
        self._plugged: dict[str, Plugged] = {}
        self._counts: dict[str, int] = {}
        self._kinds: dict[str, Callable[..., Plugged]] = {
            "stick": self._plug_stick, "card": self._plug_card, "hub": self._plug_hub,
            "keyboard": self._plug_keyboard, "serial": self._plug_serial, "mtp": self._plug_mtp,
            "reader": self._plug_reader,
            **{kind: functools.partial(self._plug_player, kind) for kind in usbmodels.MODELS},
        }

    # Each with the words that tell a user what it is.
    KINDS = {
        "stick": "a USB memory stick", "card": "a card in the reader", "reader": "a USB card reader without a card",
        "hub": "a USB hub with 8 ports", "keyboard": "a USB keyboard", "serial": "a USB serial adapter",
        "mtp": "a USB media player",
        **{kind: model.help for kind, model in usbmodels.MODELS.items()},
    }

    def plug(self, kind: str, **options: Any) -> Plugged:
        """Plugs in one of KINDS. Options: those of media.make() for a stick or a card, or image, a file that is
        removed with it; write_protected for a stick; bus ("ehci", "xhci") and behind (the name of a hub) for
        USB; product and manner for what vm/usbmodels.py describes."""
        with self._lock:
            action = self._kinds.get(kind)
            if action is None:
                raise HeadunitError(f"no kind {kind}: choose one of {', '.join(self.KINDS)}")
            number = self._counts.get(kind, 0) + 1
            name = f"{kind}{number}"
            try:
                plugged = action(name, **options)
            except TypeError as error:
                raise HeadunitError(f"{kind} cannot have that option: {error}") from error
            self._counts[kind] = number
            self._plugged[name] = plugged
            return plugged

    def prepare_virtual_bus(self) -> None:
        """Brings up the bus of what vm/usbmodels.py describes, which else comes up with the first such plug."""
        with self._lock:
            self._player.prepare()

    def unplug(self, name: str) -> Plugged:
        """Pulls it out by surprise; what stood behind a hub goes with the hub."""
        with self._lock:
            plugged = self._plugged.get(name)
            if plugged is None:
                known = ", ".join(self._plugged) or "nothing"
                raise HeadunitError(f"{name} is not plugged in ({known} is)")
            self._take_out(plugged)
            return plugged

    def unplug_all(self) -> None:
        """Pulls out everything, the last first."""
        with self._lock:
            while self._plugged:
                self._take_out(next(reversed(self._plugged.values())))

    def list(self) -> list[Plugged]:
        with self._lock:
            return list(self._plugged.values())

    def _take_out(self, plugged: Plugged) -> None:
        # What hangs on a hub goes just before it, the farthest first: the emulator aborts when a hub leaves
        # while a transfer to something behind it is under way. The guest sees the same removals, milliseconds
        # apart.
        behind = self._ports.release(plugged.name)
        for name in [*reversed(behind), plugged.name]:
            self._plugged.pop(name).remove()

    def _image(self, name: str, image: Path | None = None, **options: Any) -> Path:
        return image or media.make(self._work / f"{name}.img", **options)

    def _open_image(self, name: str, image: Path, read_only: bool = False) -> None:
        self._qmp.execute("blockdev-add", node_name=name, driver="raw", read_only=read_only,
                          file={"driver": "file", "filename": str(image), "read-only": read_only})

    def _close_image(self, name: str, image: Path) -> None:
        self._qmp.execute("blockdev-del", node_name=name)
        image.unlink(missing_ok=True)

    def _plug_usb(self, name: str, kind: str, driver: str, bus: str, behind: str | None,
                  after: Callable[[], None], **properties: Any) -> Plugged:
        """Adds a USB device at the next free port; after gives back its backend once it is gone."""
        try:
            port = self._ports.take(name, bus, behind, is_hub=kind == "hub")
            self._qmp.execute("device_add", driver=driver, id=name, bus=port.bus, port=port.path,
                              **properties)
        except HeadunitError:
            self._ports.release(name)
            after()
            raise

        def remove() -> None:
            self._delete_device(name)
            after()

        return Plugged(name, kind, f"{port.bus} port {port.path}", remove)

    def _delete_device(self, name: str) -> None:
        """Deletes a device and waits for its end."""
        self._qmp.execute("device_del", id=name)
        self._qmp.wait_event("DEVICE_DELETED", lambda data: data.get("device") == name, UNPLUG_LIMIT)

    def _plug_stick(self, name: str, bus: str = "ehci", behind: str | None = None,
                    write_protected: bool = False, **options: Any) -> Plugged:
        image = self._image(name, **options)
        self._open_image(name, image, write_protected)
        return self._plug_usb(name, "stick", "usb-storage", bus, behind,
                              lambda: self._close_image(name, image), drive=name, removable=True,
                              serial=f"HEADUNIT-{name}")

    def _plug_reader(self, name: str, bus: str = "ehci", behind: str | None = None) -> Plugged:
        """A card reader at USB without a card in it."""
        slot = f"{name}-slot"
        self._qmp.execute("human-monitor-command", command_line=f"drive_add 0 if=none,id={slot}")
        return self._plug_usb(name, "reader", "usb-storage", bus, behind, lambda: None, drive=slot,
                              removable=True, serial=f"HEADUNIT-{name}")

    def _plug_hub(self, name: str, bus: str = "ehci", behind: str | None = None) -> Plugged:
        return self._plug_usb(name, "hub", "usb-hub", bus, behind, lambda: None)

    def _plug_keyboard(self, name: str, bus: str = "ehci", behind: str | None = None) -> Plugged:
        return self._plug_usb(name, "keyboard", "usb-kbd", bus, behind, lambda: None)

    def _plug_serial(self, name: str, bus: str = "ehci", behind: str | None = None) -> Plugged:
        self._qmp.execute("chardev-add", id=f"{name}-line", backend={"type": "null", "data": {}})
        return self._plug_usb(name, "serial", "usb-serial", bus, behind,
                              lambda: self._qmp.execute("chardev-remove", id=f"{name}-line"),
                              chardev=f"{name}-line", always_plugged=True)

    def _plug_mtp(self, name: str, bus: str = "ehci", behind: str | None = None) -> Plugged:
        folder = self._work / name
        folder.mkdir()
        (folder / "readme.txt").write_text("A phone's storage.\n", encoding="ascii")
        return self._plug_usb(name, "mtp", "usb-mtp", bus, behind, lambda: None, rootdir=str(folder))

    def _plug_player(self, kind: str, name: str, product: int | None = None, manner: str = "plain") -> Plugged:
        """Has the guest play the peripheral on its virtual host controller."""
        process, place = self._player.plug(name, usbmodels.describe(kind, name, product, manner))
        return Plugged(name, kind, place, lambda: self._player.unplug(name, process),
                       lambda: UsbPlayer.said(name, process))

    def _plug_card(self, name: str, size_mib: int = 64, image: Path | None = None,
                   **options: Any) -> Plugged:
        taken = next((other.name for other in self._plugged.values() if other.kind == "card"), None)
        if taken:
            raise HeadunitError(f"the card slot is taken by {taken}")
        if image is not None:
            size_mib = image.stat().st_size // media.MIB
        if size_mib & (size_mib - 1):
            raise HeadunitError(f"a card of {size_mib} MiB does not exist: choose a power of 2")
        image = self._image(name, image, size_mib=size_mib, **options)
        self._open_image(name, image)
        self._qmp.execute("blockdev-open-tray", id=CARD_DEVICE, force=True)
        self._qmp.execute("blockdev-insert-medium", id=CARD_DEVICE, node_name=name)
        self._qmp.execute("blockdev-close-tray", id=CARD_DEVICE)

        def remove() -> None:
            self._qmp.execute("blockdev-open-tray", id=CARD_DEVICE, force=True)
            self._qmp.execute("blockdev-remove-medium", id=CARD_DEVICE)
            self._close_image(name, image)

        return Plugged(name, "card", "card slot", remove)
