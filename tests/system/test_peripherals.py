# SPDX-License-Identifier: Apache-2.0
"""The USB peripherals that answer, asked without the daemon: what they are and what they say."""

from __future__ import annotations

import json
from typing import Any

import harness
from harness import LIMIT, GuestTestCase, wait_until
from vm import usbmodels
from vm.errors import HeadunitError
from vm.peripherals import Plugged

ASK_LIMIT = 5000  # milliseconds for an answer that comes
ASK_BRIEFLY = 200  # milliseconds for one that does not
ROLE_SWITCH, CARPLAY_SUPPORT, ACCESSORY_PROTOCOL = (
    usbmodels.ROLE_SWITCH, usbmodels.CARPLAY_SUPPORT, usbmodels.ACCESSORY_PROTOCOL)
PHONE = (usbmodels.APPLE, 0x12A8)
ANDROID = (usbmodels.GOOGLE, 0x4EE1)


class Peripherals(GuestTestCase):
    @classmethod
    def boot(cls) -> None:
        super().boot()
        cls.machine.peripherals.prepare_virtual_bus()

    def devices(self) -> dict[str, dict[str, Any]]:
        """What libusb finds, by serial number."""
        listed = self.run_guest([self.program("usb-ask"), "list"], check=True).text
        found = map(json.loads, listed.splitlines())
        return {device.get("serial", ""): device for device in found}

    def ask(self, device: tuple[int, int], request: tuple[int, int], length: int, value: int = 0,
            limit: int = ASK_LIMIT) -> tuple[Any, str]:
        """The result, a number of bytes or an error's name, and the data in hexadecimal."""
        numbers = map(str, (*device, *request, value, 0, length, limit))
        answer = json.loads(self.run_guest([self.program("usb-ask"), "control", *numbers], check=True).text)
        return answer["result"], answer["data"]

    def plug_known(self, kind: str, **options: Any) -> Plugged:
        """Plugs in and waits until the guest has found out what it is."""
        plugged = self.plug(kind, **options)
        wait_until(lambda: self.told(plugged, "configured"), f"{plugged.name} to be configured")
        return plugged

    @staticmethod
    def told(plugged: Plugged, event: str) -> list[dict[str, Any]]:
        return [entry for entry in plugged.said() if entry["event"] == event]

    def assert_gone(self, plugged: Plugged) -> None:
        self.wait_guest(f"! grep -qsx HEADUNIT-{plugged.name} /sys/bus/usb/devices/*/serial")

    def test_what_they_are(self) -> None:
        wanted = {
            "phone": (0x05AC, 0x12A8, 250, [[6, 1, 1], [255, 254, 2]], "Apple Inc.", "iPhone"),
            "android": (0x18D1, 0x4EE1, 250, [[6, 1, 1], [255, 66, 1]], "Google", "Pixel"),
            "testdevice": (6666, 258, 50, [[255, 0, 0]], "Certification", "Test device"),
            "hungry": (0x1209, 0x0500, 250, [[255, 0, 0]], "Headunit", "Hungry device"),
        }
        self.assertEqual(set(wanted), set(usbmodels.MODELS))
        plugged = {kind: self.plug_known(kind) for kind in wanted}
        devices = self.devices()
        for kind, expected in wanted.items():
            found = devices[f"HEADUNIT-{plugged[kind].name}"]
            self.assertEqual(expected, (found["vendor"], found["product"], found["power"], found["interfaces"],
                                        found["manufacturer"], found["name"]), kind)
            self.assertEqual(0, found["class"])
            self.assertEqual(f"bus {found['bus']}", plugged[kind].place.split(" port")[0])
        for one in plugged.values():
            self.unplug(one.name)
            self.assert_gone(one)

    def test_the_kernels_own_drivers_stay_away(self) -> None:
        # They would talk to a phone themselves, or put the port of a certification device into a test mode.
        for kind in ("phone", "testdevice"):
            self.plug_known(kind)
        self.wait_guest("udevadm settle")
        modules = self.run_guest(["cat", "/proc/modules"], check=True).text
        self.assertIn("vhci_hcd", modules)
        for name in ("ehset", "apple_mfi_fastcharge"):
            self.assertNotIn(name, modules)
            self.run_guest(["modinfo", name], check=True)  # it would be there

    def test_every_certification_product(self) -> None:
        self.assertEqual((257, 258, 259, 260, 261, 262, 263, 264, 513, 514), usbmodels.CERTIFICATION_PRODUCTS)
        first, second = usbmodels.CERTIFICATION_PRODUCTS[:5], usbmodels.CERTIFICATION_PRODUCTS[5:]
        for products in (first, second):
            plugged = [self.plug_known("testdevice", product=product) for product in products]
            devices = self.devices()
            found = [devices[f"HEADUNIT-{one.name}"] for one in plugged]
            self.assertEqual([(6666, product) for product in products],
                             [(device["vendor"], device["product"]) for device in found])
            for one in plugged:
                self.unplug(one.name)

    def test_answers(self) -> None:
        phone = self.plug_known("phone")
        self.assertEqual((4, "01000000"), self.ask(PHONE, CARPLAY_SUPPORT, 4))
        self.assertEqual((0, ""), self.ask(PHONE, ROLE_SWITCH, 0, value=1))
        self.assertEqual(("LIBUSB_ERROR_PIPE", ""), self.ask(PHONE, ACCESSORY_PROTOCOL, 4))
        requests = [(entry["type"], entry["request"], entry["value"], entry["length"], entry["answer"])
                    for entry in self.told(phone, "request")]
        self.assertEqual([(0xC0, 0x53, 0, 4, "01000000"), (0x40, 0x51, 1, 0, ""), (0xC0, 0x33, 0, 4, "stall")],
                         requests)

        self.plug_known("android")
        self.assertEqual((2, "0200"), self.ask(ANDROID, ACCESSORY_PROTOCOL, 4))
        self.assertEqual((1, "02"), self.ask(ANDROID, ACCESSORY_PROTOCOL, 1))
        self.assertEqual(("LIBUSB_ERROR_PIPE", ""), self.ask(ANDROID, CARPLAY_SUPPORT, 4))

    def test_manners(self) -> None:
        wanted = {
            "no": ((4, "00000000"), (0, "")),
            "short": ((1, "01"), (0, "")),
            "empty": ((0, ""), (0, "")),
            "overflow": (("LIBUSB_ERROR_OVERFLOW", ""), (0, "")),
            "stall": (("LIBUSB_ERROR_PIPE", ""), ("LIBUSB_ERROR_PIPE", "")),
        }
        for product, (manner, (query, switch)) in enumerate(wanted.items(), 0x1201):
            self.plug_known("phone", product=product, manner=manner)
            device = (usbmodels.APPLE, product)
            self.assertEqual(query, self.ask(device, CARPLAY_SUPPORT, 4), manner)
            self.assertEqual(switch, self.ask(device, ROLE_SWITCH, 0), manner)

    def test_no_answer_at_all(self) -> None:
        phone = self.plug_known("phone", manner="silent")
        self.assertEqual(("LIBUSB_ERROR_TIMEOUT", ""), self.ask(PHONE, CARPLAY_SUPPORT, 4, limit=ASK_BRIEFLY))
        self.assertEqual(("LIBUSB_ERROR_TIMEOUT", ""), self.ask(PHONE, ROLE_SWITCH, 0, limit=ASK_BRIEFLY))
        wait_until(lambda: [entry["request"] for entry in self.told(phone, "cancelled")] == [0x53, 0x51],
                   "both requests to be cancelled")

    def test_pulled_out_in_the_middle_of_a_request(self) -> None:
        for how in ("leave", "silent"):
            phone = self.plug_known("phone", manner=how)
            asking = self.spawn([self.program("usb-ask"), "control",
                                 *map(str, (*PHONE, *CARPLAY_SUPPORT, 0, 0, 4, 60000))], name=f"asking-{how}")
            wait_until(lambda: self.told(phone, "request"), "the request at the phone")
            if how == "silent":
                self.unplug(phone.name)
            self.assertEqual(0, asking.wait(LIMIT), "ended long before its own limit")
            answer = json.loads(asking.output())
            self.assertIn(answer["result"], ("LIBUSB_ERROR_NO_DEVICE", "LIBUSB_ERROR_IO"), how)
            self.assert_gone(phone)
            if how == "leave":
                self.unplug(phone.name)

    def test_a_port_is_used_again(self) -> None:
        places = []
        for _ in range(3):
            phone = self.plug_known("phone")
            places.append(phone.place)
            self.unplug(phone.name)
            self.wait_guest("! grep -qE '^hs +[0-9]+ 00[56]' /sys/devices/platform/vhci_hcd.0/status")
        self.assertEqual(1, len(set(places)), places)

    def test_refusals(self) -> None:
        refused = {
            "phone cannot have the product 514": lambda: self.plug("phone", product=514),
            "testdevice cannot have the product 265": lambda: self.plug("testdevice", product=265),
            "no manner rude": lambda: self.plug("phone", manner="rude"),
            "hungry is asked nothing that it could answer silent": lambda: self.plug("hungry", manner="silent"),
            "phone cannot have that option": lambda: self.plug("phone", bus="xhci"),
        }
        for text, action in refused.items():
            with self.subTest(text), self.assertRaisesRegex(HeadunitError, text):
                action()
        self.assertEqual([], self.machine.peripherals.list())


if __name__ == "__main__":
    harness.main()
