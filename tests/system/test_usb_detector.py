# SPDX-License-Identifier: Apache-2.0
"""The USB detector on real host controllers: what it says of real devices, and what it publishes of them."""

from __future__ import annotations

import json
from typing import Any

import harness
from harness import LIMIT, GuestTestCase, wait_until
from vm.guestlink import GuestProcess

STORE = "/run/detector-store"
CLASS_HUB = 9
CLASS_STORAGE = 8
CLASS_HID = 3
# Looks at sysfs as one line for each device: its name, then the attributes in this order.
ATTRIBUTES = ("busnum", "idVendor", "idProduct", "bDeviceClass", "bDeviceSubClass", "bDeviceProtocol")
LOOK = ("for d in /sys/bus/usb/devices/*-*; do case $d in *:*) continue;; esac; echo ${d##*/} $(cd $d && cat "
        + " ".join(ATTRIBUTES) + "); done")
# Offset of bMaxPower in the file of descriptors: behind the device's 18 bytes, the 9th of the configuration's.
MAX_POWER = 18 + 8


class Detector(GuestTestCase):
    def setUp(self) -> None:
        super().setUp()
        self.run_guest(["rm", "-rf", STORE], check=True)
        self.run_guest(["mkdir", STORE], check=True)

    def start_probe(self) -> GuestProcess:
        return self.spawn([self.program("usb-detector-probe")], stdin=True, env={"VELTA_PPS_DIR": STORE})

    @staticmethod
    def said(probe: GuestProcess, key: str) -> list[Any]:
        """What the probe has printed under a key, in order."""
        printed = [json.loads(line.text) for line in probe.lines("stdout")]
        return [entry[key] for entry in printed if key in entry]

    def ask(self, probe: GuestProcess, order: str) -> Any:
        key = order.split()[0]
        before = len(self.said(probe, key))
        probe.write(f"{order}\n".encode())
        wait_until(lambda: len(self.said(probe, key)) > before, f"an answer to {order}")
        return self.said(probe, key)[before]

    def wait_for(self, probe: GuestProcess, key: str, device_class: int, interface_class: int, since: int = 0) -> Any:
        """The device of these classes that the probe reports; earlier reports do not count."""
        def find() -> Any:
            return next((device for device in self.said(probe, key)[since:]
                         if device["class"] == device_class
                         and interface_class in [interface[0] for interface in device["interfaces"]]), None)
        return wait_until(find, f"a device {key} of class {device_class} with an interface of {interface_class}")

    def real_device(self, reported: dict[str, Any]) -> str:
        """Name in sysfs of the one device that is as reported; fails unless there is exactly one."""
        found = []
        for line in self.run_guest(["sh", "-c", LOOK], check=True).text.splitlines():
            name, bus, *values = line.split()
            fields = [int(bus), *(int(value, 16) for value in values)]
            if fields == [reported[key] for key in ("bus", "vendor", "product", "class", "subClass", "protocol")]:
                found.append(name)
        self.assertEqual(1, len(found), f"{reported} in sysfs")
        return found[0]

    def assert_as_in_sysfs(self, reported: dict[str, Any]) -> str:
        name = self.real_device(reported)
        folder = f"/sys/bus/usb/devices/{name}"
        descriptors = self.guest.read_file(f"{folder}/descriptors")
        self.assertEqual(descriptors[MAX_POWER], reported["maxPower"])
        script = (f"for i in {folder}/{name}:*; do echo $(cat $i/bInterfaceClass $i/bInterfaceSubClass "
                  "$i/bInterfaceProtocol); done")
        lines = self.run_guest(["sh", "-c", script], check=True).text.splitlines()
        interfaces = sorted([int(value, 16) for value in line.split()] for line in lines)
        self.assertEqual(interfaces, sorted(reported["interfaces"]))
        return name

    def record(self, bus: int) -> str:
        """Text of the device record of a bus, empty if there is none."""
        return self.run_guest(["sh", "-c", f"cat {STORE}/usbdev.bus.{bus}.dev 2>/dev/null || true"]).text

    def string(self, name: str, attribute: str) -> str:
        return self.run_guest(["cat", f"/sys/bus/usb/devices/{name}/{attribute}"], check=True).text.strip()

    def assert_record_of(self, name: str, bus: int) -> None:
        text = self.record(bus)
        for key, attribute in (("MANUFACTURER", "manufacturer"), ("PRODUCT", "product"), ("SERVIAL", "serial")):
            self.assertIn(self.string(name, attribute), text, f"{key} of {name}")
            self.assertIn(key, text)

    def test_stick_hub_and_keyboard_come_and_go(self) -> None:
        self.plug("stick")
        self.wait_guest("test -b /dev/sda1")
        probe = self.start_probe()

        stick = self.wait_for(probe, "attached", 0, CLASS_STORAGE)
        self.assertEqual(1, stick["id"], "the root hubs are not counted")
        name = self.assert_as_in_sysfs(stick)
        self.assert_record_of(name, stick["bus"])
        self.assertIn("skip root usb hub[9]", "\n".join(line.text for line in probe.lines("stderr")))

        plugged_hub = self.plug("hub", bus="xhci")
        hub = self.wait_for(probe, "attached", CLASS_HUB, CLASS_HUB)
        hub_name = self.assert_as_in_sysfs(hub)
        self.assertNotEqual(stick["bus"], hub["bus"])
        self.assert_record_of(hub_name, hub["bus"])
        self.assert_record_of(name, stick["bus"])

        plugged_keyboard = self.plug("keyboard", bus="xhci", behind=plugged_hub.name)
        keyboard = self.wait_for(probe, "attached", 0, CLASS_HID)
        keyboard_name = self.assert_as_in_sysfs(keyboard)
        self.assertTrue(keyboard_name.startswith(f"{hub_name}."), f"{keyboard_name} behind {hub_name}")
        self.assert_record_of(keyboard_name, keyboard["bus"])
        self.assertEqual([1, 2, 3], sorted(device["id"] for device in self.ask(probe, "list")))
        self.assertEqual(hub["bus"], self.ask(probe, f"bus {hub['id']}"))
        self.assertEqual(-1, self.ask(probe, "bus 99"))
        # Real devices refuse what only phones answer.
        self.assertFalse(self.ask(probe, f"aoa {stick['id']}"))
        self.assertFalse(self.ask(probe, f"carplay {keyboard['id']}"))
        self.assertIn("Line:[979],libusb control transfer fail! errorType[LIBUSB_ERROR_PIPE]",
                      "\n".join(line.text for line in probe.lines("stderr")))

        self.unplug(plugged_keyboard.name)
        self.assertEqual(keyboard["id"], self.wait_for(probe, "detached", 0, CLASS_HID)["id"])
        wait_until(lambda: self.record(keyboard["bus"]) == "", "the record of the bus to go with the keyboard")

        before = len(self.said(probe, "attached"))
        self.plug("keyboard", bus="xhci", behind=plugged_hub.name)
        again = self.wait_for(probe, "attached", 0, CLASS_HID, since=before)
        self.assertEqual(4, again["id"], "a number is not given twice")
        # The hub takes along what hangs on it.
        self.unplug(plugged_hub.name)
        self.wait_for(probe, "detached", CLASS_HUB, CLASS_HUB)
        wait_until(lambda: len(self.said(probe, "detached")) == 3, "hub and keyboard to be gone")
        self.assertEqual([stick["id"]], [device["id"] for device in self.ask(probe, "list")])
        self.assert_record_of(name, stick["bus"])
        self.assertEqual([], self.said(probe, "event"))

        probe.close_stdin()
        self.assertEqual(0, probe.wait(LIMIT))
        self.assertEqual([[]], self.said(probe, "ended"))

    def test_stops_and_starts_again(self) -> None:
        self.plug("stick")
        self.wait_guest("test -b /dev/sda1")
        probe = self.start_probe()
        self.wait_for(probe, "attached", 0, CLASS_STORAGE)
        probe.write(b"restart\n")
        again = self.wait_for(probe, "attached", 0, CLASS_STORAGE, since=1)
        self.assertEqual(2, again["id"])
        self.assertEqual([[]], self.said(probe, "stopped"))
        self.assertEqual([], self.said(probe, "detached"))
        probe.close_stdin()
        self.assertEqual(0, probe.wait(LIMIT))

    def test_ten_times_in_and_out(self) -> None:
        probe = self.start_probe()
        for round_number in range(10):
            stick = self.plug("stick")
            wait_until(lambda: len(self.said(probe, "attached")) == round_number + 1, "the stick to be reported")
            self.unplug(stick.name)
            wait_until(lambda: len(self.said(probe, "detached")) == round_number + 1, "the stick to be gone")
        self.assertEqual(list(range(1, 11)), [device["id"] for device in self.said(probe, "attached")])
        self.assertEqual(list(range(1, 11)), [device["id"] for device in self.said(probe, "detached")])
        script = f"ls /proc/{probe.pid}/fd -l | grep -c bus/usb || true"
        self.assertEqual("0", self.run_guest(["sh", "-c", script]).text.strip(), "device nodes left open")
        self.assertEqual([], self.ask(probe, "list"))


if __name__ == "__main__":
    harness.main()
