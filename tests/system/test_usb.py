# SPDX-License-Identifier: Apache-2.0
"""The USB service on the real driver: real hubs and devices, phones that answer, clients in processes of their own."""

from __future__ import annotations

import json
import re
import signal
from typing import Any

import harness
from harness import LIMIT, GuestTestCase, wait_until
from vm import usbmodels
from vm.guestlink import GuestProcess
from vm.peripherals import Plugged

STORE = "/run/velta-pps"
VENDOR_DATA = "/var/lib/vx-vendor-data"

HUB = 9  # device class
KEYBOARD, SERIAL, STICK = (0x0627, 0x0001), (0x0403, 0x6001), (0x46F4, 0x0001)
PHONE, ANDROID = (usbmodels.APPLE, 0x12A8), (usbmodels.GOOGLE, 0x4EE1)

# Codes of the service's requests.
CHECK_AOA, SWITCH_STATE, ROLE_SWITCH, CARPLAY, COUNT, SET_MODE, GET_MODE = 9, 13, 17, 18, 22, 31, 32
NORMAL, TEST_DEVICES = ord("O"), ord("T")
UNSUPPORTED_DEVICE = 4  # event of the certification mode

# What the kernel has, apart from the root hubs: vendor and product of every device.
KERNEL_DEVICES = ("cd /sys/bus/usb/devices; for device in *; do case $device in usb*|*:*|'*') ;; *) "
                  "echo $(cat $device/idVendor $device/idProduct) ;; esac; done")


class UsbClient:
    """A client process, what it hears, and what it is answered."""

    def __init__(self, process: GuestProcess) -> None:
        self.process = process

    @property
    def pid(self) -> int:
        return self.process.pid

    def printed(self) -> list[dict[str, Any]]:
        return [json.loads(line.text) for line in self.process.lines("stdout")]

    def answers(self, step: str) -> list[Any]:
        return [entry["result"] for entry in self.printed() if entry.get("step") == step]

    def begin(self, step: str) -> None:
        """Has it take a step, whose answer may come later."""
        self.process.write(step.encode() + b"\n")

    def ask(self, step: str) -> Any:
        """Has it take a step and returns the result."""
        before = len(self.answers(step))
        self.begin(step)
        return wait_until(lambda: self.answers(step)[before:], f"the answer to {step}")[0]

    def call(self, *numbers: int) -> int:
        """A request with these numbers; its answer, which follows a zero."""
        result = self.ask("call=" + ",".join(map(str, numbers)))
        assert result["status"] == 0 and result["reply"][0] == 0 and len(result["reply"]) == 2, result
        number: int = result["reply"][1]
        return number

    def records(self, event: str) -> list[dict[str, Any]]:
        """The devices of the "attached" or "detached" events so far."""
        return [entry["device"] for entry in self.printed() if entry.get("event") == event]

    def wait_record(self, event: str, device: tuple[int, int], number: int = 1) -> dict[str, Any]:
        """Waits for the event of a vendor and product for the so manyeth time."""
        return wait_until(lambda: [record for record in self.records(event)
                                   if (record["vendor"], record["product"]) == device][number - 1:],
                          f"{event} of {device[0]:04x}:{device[1]:04x}")[0]

    def codes(self) -> list[tuple[str, int, int]]:
        """The events with code and value, by the notifier that heard them."""
        return [(entry["notifier"], entry["code"], entry["value"]) for entry in self.printed()
                if entry.get("event") == "event"]


def number(record: dict[str, Any]) -> tuple[int, int]:
    return record["vendor"], record["product"]


class UsbTestCase(GuestTestCase):
    @classmethod
    def boot(cls) -> None:
        super().boot()
        cls.machine.peripherals.prepare_virtual_bus()

    def client(self, *steps: str, name: str = "client") -> UsbClient:
        """A client that has taken its steps and waits for more."""
        process = self.spawn([self.program("usb-test-client"), *steps, "hold"], name=name, stdin=True)
        process.wait_for(lambda line: json.loads(line).get("step") == "hold", LIMIT, stream="stdout")
        return UsbClient(process)

    def daemon(self) -> GuestProcess:
        assert self.services.daemon is not None
        return self.services.daemon

    def wait_logged(self, text: str) -> None:
        self.daemon().wait_for(re.escape(text), LIMIT, stream="stderr")

    def logged(self) -> str:
        return "\n".join(line.text for line in self.daemon().lines("stderr"))

    def shell(self, script: str) -> str:
        return self.run_guest(["sh", "-c", script], check=True).text

    def kernel_devices(self) -> list[tuple[int, int]]:
        words = [line.split() for line in self.shell(KERNEL_DEVICES).splitlines()]
        # A device that goes while it is read leaves a line of less.
        return sorted((int(pair[0], 16), int(pair[1], 16)) for pair in words if len(pair) == 2)

    def listed(self) -> list[tuple[int, int]]:
        """What the daemon has."""
        answer = json.loads(self.services.devicectl("--json", "usb", "list", check=True).text)
        return sorted(number(device) for device in answer["usb_devices"])

    def wait_agreement(self, count: int) -> None:
        """Waits until daemon and kernel have the same devices, so many."""
        def agree() -> bool:
            listed = self.listed()
            return len(listed) == count and listed == self.kernel_devices()

        wait_until(agree, f"daemon and kernel to agree on {count} devices")

    def store_record(self, bus: int) -> str:
        return self.shell(f"cat {STORE}/usbdev.bus.{bus}.dev 2>/dev/null || echo none")

    def dump(self, *arguments: str) -> str:
        return self.services.devicectl("dump", "UsbManager", *arguments, check=True).text


class Devices(UsbTestCase):
    def test_a_phone_comes_and_goes_before_two_processes(self) -> None:
        self.start_services()
        clients = [self.client("query-inside", "add-host", name=name) for name in ("first", "second")]
        self.assertEqual(0, clients[0].call(COUNT))
        phone = self.plug("phone")
        records = [client.wait_record("attached", PHONE) for client in clients]
        bus = int(phone.place.split()[1])
        wanted = {"bus": bus, "class": 0, "subclass": 0, "protocol": 0, "vendor": 0x05AC, "product": 0x12A8,
                  "power": 250, "count": 2, "left": 0}
        for record in records:
            self.assertEqual(wanted, {key: record[key] for key in wanted})
            self.assertEqual([[6, 1, 1], [255, 254, 2]], sorted(record["interfaces"]))
            self.assertGreater(record["id"], 0)
        self.assertEqual(records[0], records[1])
        self.assertEqual(f"MANUFACTURER=Apple Inc.\nPRODUCT=iPhone\nSERVIAL=HEADUNIT-{phone.name}\n",
                         self.store_record(bus))

        wait_until(lambda: clients[0].call(COUNT) == 1, "the phone to be counted")
        self.assertEqual(records[0], clients[1].ask("query=0")["device"])
        for index in (1, -1, 0x7FFFFFFF):
            self.assertNotIn("device", clients[1].ask(f"query={index}"))
        for client in clients:
            self.assertEqual([0, 0], [entry["count"]["status"] for entry in client.printed() if "inside" in entry]
                             + [entry["first"]["status"] for entry in client.printed() if "inside" in entry])

        self.unplug(phone.name)
        for client in clients:
            self.assertEqual(records[0], client.wait_record("detached", PHONE))
        self.assertEqual("none\n", self.store_record(bus))
        wait_until(lambda: clients[0].call(COUNT) == 0, "the phone not to be counted")

        self.plug("phone")
        again = clients[0].wait_record("attached", PHONE, 2)
        self.assertGreater(again["id"], records[0]["id"], "numbers are not used again")

    def test_one_store_record_for_a_bus(self) -> None:
        self.start_services()
        client = self.client("add-host")
        android = self.plug("android")
        bus = client.wait_record("attached", ANDROID)["bus"]
        self.assertIn("PRODUCT=Pixel\n", self.store_record(bus))
        self.plug("phone")
        client.wait_record("attached", PHONE)
        self.assertIn("PRODUCT=iPhone\n", self.store_record(bus))
        # The one that goes takes the other's record along: there is one for a bus.
        self.unplug(android.name)
        client.wait_record("detached", ANDROID)
        self.assertEqual("none\n", self.store_record(bus))
        self.wait_agreement(1)

    def test_a_keyboard_a_serial_adapter_and_a_stick_behind_one_hub(self) -> None:
        self.start_services()
        client = self.client("add-host")
        hub = self.plug("hub")
        for kind in ("keyboard", "serial", "stick"):
            self.plug(kind, behind=hub.name)
        for device in (KEYBOARD, SERIAL, STICK):
            client.wait_record("attached", device)
        self.wait_agreement(4)
        wait_until(lambda: len(client.records("attached")) == 4, "hub and devices to be reported")
        records = client.records("attached")
        self.assertEqual(1, len({record["bus"] for record in records}))
        self.assertEqual([HUB], [record["class"] for record in records if record["class"] != 0])
        interfaces = {number(record): record["interfaces"] for record in records}
        self.assertEqual([[3, 1, 1]], interfaces[KEYBOARD])
        self.assertEqual([[255, 255, 255]], interfaces[SERIAL])
        self.assertEqual([[8, 6, 80]], interfaces[STICK])

        self.unplug(hub.name)
        wait_until(lambda: len(client.records("detached")) == 4, "everything to be reported gone")
        self.assertEqual(sorted(record["id"] for record in records),
                         sorted(record["id"] for record in client.records("detached")))
        self.wait_agreement(0)

    def test_a_chain_of_hubs_as_deep_as_the_bus_allows(self) -> None:
        self.start_services()
        client = self.client("add", "add-host")
        names: list[str] = []
        for _ in range(5):
            names.append(self.plug("hub", **({"behind": names[-1]} if names else {})).name)
        self.plug("keyboard", behind=names[-1])
        client.wait_record("attached", KEYBOARD)
        self.wait_agreement(6)
        for depth in range(2, 7):
            self.assertRegex(self.logged(), rf"add devce  HUB \[0x[0-9a-f]{{8}}\] num\[{depth}\]")
        self.unplug(names[0])
        wait_until(lambda: len(client.records("detached")) == 6, "the chain to be reported gone")
        self.wait_agreement(0)
        self.assertEqual([], client.codes(), "no hub was nested too deep")


class Phones(UsbTestCase):
    """What is asked of phones, and what they make of it."""

    def plug_all(self, client: UsbClient, *manners: str) -> dict[str, int]:
        """Plugs in a phone of each manner; their ids at the service."""
        ids = {}
        self.phones: dict[str, Plugged] = {}
        for product, manner in enumerate(manners, 0x1201):
            self.phones[manner] = self.plug("phone", manner=manner, product=product)
        for product, manner in enumerate(manners, 0x1201):
            ids[manner] = client.wait_record("attached", (usbmodels.APPLE, product))["id"]
        wait_until(lambda: client.call(COUNT) == len(ids), "all to be counted")
        return ids

    def wait_answer(self, client: UsbClient, wanted: int, *request: int, logged: str = "") -> None:
        """Asks until the answer is the wanted one and the line was logged: a phone has 100 ms or a second to answer,
        which on a busy machine may be over before its program even runs."""
        wait_until(lambda: client.call(*request) == wanted and logged in self.logged(),
                   f"the answer {wanted} to {request} {logged}")

    def test_support_queries(self) -> None:
        self.start_services()
        client = self.client("add-host")
        manners = ("plain", "no", "short", "empty", "overflow", "stall", "silent")
        ids = self.plug_all(client, *manners)
        # One byte of the answer is enough for the word that counts, and none leaves it at zero.
        wanted = {"plain": 1, "no": 0, "short": 1, "empty": 0, "overflow": 0, "stall": 0, "silent": 0}
        for manner in manners:
            self.wait_answer(client, wanted[manner], CARPLAY, ids[manner])
        for manner, error in (("overflow", "OVERFLOW"), ("stall", "PIPE"), ("silent", "TIMEOUT")):
            self.wait_answer(client, 0, CARPLAY, ids[manner], logged="Line:[942],libusb control transfer fail! "
                             f"errorType[LIBUSB_ERROR_{error}]")
        self.plug("android")
        android = client.wait_record("attached", ANDROID)["id"]
        self.wait_answer(client, 1, CHECK_AOA, android)
        self.wait_answer(client, 0, CHECK_AOA, ids["plain"],
                         logged="Line:[979],libusb control transfer fail! errorType[LIBUSB_ERROR_PIPE]")
        for code in (CARPLAY, CHECK_AOA, ROLE_SWITCH):
            self.assertEqual(-1 if code == ROLE_SWITCH else 0, client.call(code, 4711))
        self.wait_logged("Error! Can't get UsbDevice with ID:4711.")

    def test_role_switch(self) -> None:
        self.start_services()
        client = self.client("add-host")
        ids = self.plug_all(client, "plain", "no", "stall", "silent")

        def switches(manner: str) -> set[tuple[int, int, int]]:
            return {(entry["type"], entry["request"], entry["value"]) for entry in self.phones[manner].said()
                    if entry["event"] == "request" and entry["request"] == usbmodels.ROLE_SWITCH[1]}

        self.assertEqual(-1, client.call(ROLE_SWITCH, ids["plain"]))
        self.wait_logged("Error! Other usb device type,shouldn't role switch.")
        self.assertEqual(set(), switches("plain"))

        self.assertEqual(0, client.call(SWITCH_STATE, 1))
        self.wait_answer(client, 0, ROLE_SWITCH, ids["plain"])
        self.assertEqual({(0x40, 0x51, 0)}, switches("plain"))
        self.wait_logged("echo -n s > /sys/devices/platform/vx4410-udc.1/full_spd")
        self.wait_answer(client, -9, ROLE_SWITCH, ids["stall"],
                         logged="Line:[904],libusb control transfer fail! errorType[LIBUSB_ERROR_PIPE]")
        self.assertEqual(-7, client.call(ROLE_SWITCH, ids["silent"]))
        self.wait_logged("Line:[904],libusb control transfer fail! errorType[LIBUSB_ERROR_TIMEOUT]")
        self.wait_logged("AppleDevice roleSwitch fail!")

        self.assertEqual(0, client.call(SWITCH_STATE, 0))
        self.wait_answer(client, 0, ROLE_SWITCH, ids["plain"])
        self.assertEqual({(0x40, 0x51, 0), (0x40, 0x51, 1)}, switches("plain"))
        self.assertEqual(-1, client.call(ROLE_SWITCH, ids["no"]))
        self.wait_logged(f"The device(deviceId={ids['no']}) don't Support Carplay role switch")
        self.assertEqual(set(), switches("no"))

    def test_a_phone_pulled_out_in_the_middle_of_a_request(self) -> None:
        self.start_services()
        asking = self.client("add-host", name="asking")
        other = self.client("add-host", name="other")
        ids = self.plug_all(asking, "leave", "silent")
        self.assertEqual(0, asking.call(CARPLAY, ids["leave"]))
        asking.wait_record("detached", (usbmodels.APPLE, 0x1201))
        # On a machine so busy that the request's own second ends first, it is that which is logged.
        self.daemon().wait_for(r"Line:\[942\],libusb control transfer fail! "
                               r"errorType\[LIBUSB_ERROR_(NO_DEVICE|IO|TIMEOUT)\]", LIMIT, stream="stderr")

        step = f"call={CARPLAY},{ids['silent']}"
        asking.begin(step)
        wait_until(lambda: any(entry["event"] == "request" for entry in self.phones["silent"].said()),
                   "the request at the phone")
        self.unplug(self.phones["silent"].name)
        self.assertGreaterEqual(other.call(COUNT), 0)
        result = wait_until(lambda: asking.answers(step), "the answer for the phone that is gone")[0]
        self.assertEqual({"status": 0, "reply": [0, 0]}, result)
        other.wait_record("detached", (usbmodels.APPLE, 0x1202))
        self.unplug(self.phones["leave"].name)
        self.plug("phone")
        id_of_next = asking.wait_record("attached", PHONE)["id"]
        wait_until(lambda: asking.call(CARPLAY, id_of_next) == 1, "the next phone to answer")


class Registries(UsbTestCase):
    """The removal of a host notifier, which by its code reaches the manager's notifiers."""

    def test_removal_by_a_process_that_has_both(self) -> None:
        self.start_services()
        client = self.client("add", "add-host")
        self.assertIn("notifier size[1]\nnotifier[", self.dump("notifier"))
        self.assertEqual({"status": 0, "reply": [0, 0]}, client.ask("remove-host"))
        self.assertIn("notifier size[0]\n", self.dump("notifier"))
        self.plug("phone")
        client.wait_record("attached", PHONE)
        client.process.kill(signal.SIGKILL)
        self.wait_logged(f"Application PID[{client.pid}] die")
        self.wait_agreement(1)

    def test_removal_by_a_process_that_has_a_host_notifier_alone(self) -> None:
        self.start_services()
        client = self.client("add-host")
        client.begin("remove-host")
        self.assertEqual(0, self.daemon().wait(LIMIT))
        self.assertIn('assertion "index >= 0" failed: file "IUsbManager", line ', self.logged())


class Certification(UsbTestCase):
    def restart_daemon(self) -> None:
        self.services.stop()
        self.services.start()
        self._note("device-service", self.daemon())
        self.services.start_managers()

    def test_test_devices(self) -> None:
        self.addCleanup(self.run_guest, ["rm", "-rf", VENDOR_DATA])
        self.start_services()
        client = self.client(name="sets")
        self.assertEqual(NORMAL, client.call(GET_MODE))
        self.assertEqual(0, client.call(SET_MODE, TEST_DEVICES))
        self.assertEqual(NORMAL, client.call(GET_MODE), "it is the next start that reads it")
        self.restart_daemon()
        client = self.client("add", "add-host", name="hears")
        self.assertEqual(TEST_DEVICES, client.call(GET_MODE))
        # The first of these begins the logo test, which is all that comes of it.
        for product in (258, 513, 514):
            self.plug("testdevice", product=product)
            client.wait_record("attached", (usbmodels.CERTIFICATION, product))
        wait_until(lambda: client.codes() == [("manager", UNSUPPORTED_DEVICE, 3)] * 2, "two findings")


class Overview(UsbTestCase):
    """The whole daemon."""

    def monitored(self, client: GuestProcess, *events: str) -> list[dict[str, Any]]:
        entries = [json.loads(line.text) for line in client.lines("stdout")]
        return [entry for entry in entries if entry["event"] in events]

    def test_daemon_killed_and_restarted_under_living_clients(self) -> None:
        self.start_services()
        monitor = self.start_client()
        raw = self.client("add-host")
        stick = self.plug("stick")
        self.plug("phone")

        def attached() -> list[tuple[int, int]]:
            return [number(entry) for entry in self.monitored(monitor, "usb-attached")]

        def services(state: str) -> int:
            return [entry["state"] for entry in self.monitored(monitor, "service")].count(state)

        wait_until(lambda: sorted(attached()) == sorted((STICK, PHONE)), "both devices")
        wait_until(lambda: self.monitored(monitor, "volume-added"), "the volume")
        self.daemon().kill(signal.SIGKILL)
        self.daemon().wait(LIMIT)
        wait_until(lambda: services("down") == 3, "the client to hear of the three services' end")
        self.shell(harness.CLEAR_MOUNTS)
        before = len(self.monitored(monitor, "device-added", "volume-added"))
        self.services.daemon = self.spawn([self.program("device-service")])
        self.services.wait_daemon()
        wait_until(lambda: services("up") == 6, "the client to be registered again")
        self.services.start_managers()
        wait_until(lambda: sorted(attached()) == sorted((STICK, PHONE) * 2), "both devices again, by the first scan")
        self.assertNotEqual(0, raw.ask(f"call={COUNT}")["status"], "who keeps to the dead service has none")
        self.assertEqual(before, len(self.monitored(monitor, "device-added", "volume-added")),
                         "devices and volumes that were there before are not enumerated")
        self.unplug(stick.name)
        self.plug("stick")
        wait_until(lambda: len(self.monitored(monitor, "volume-added")) == 2, "the volume with the next plug")
        self.wait_agreement(2)

    def test_the_road_of_one_event(self) -> None:
        self.start_services()
        monitor = self.start_client()
        uevents = self._named["uevents"]
        stick = self.plug("stick")

        # The kernel's uevents for the device, its interface and the block devices.
        def uevent(ending: str) -> str:
            line = uevents.wait_for(rf"^KERNEL\[[\d.]+\] add +\S+{ending} \(", LIMIT, stream="stdout")
            return line.text.split()[2]

        device = uevent(r"/usb\d+/[\d.-]+")
        interface = uevent(r"/usb\d+/[\d.-]+/[\d.-]+:1\.0")
        disk = uevent("/block/sd[a-z]")
        partition = uevent("/block/sd[a-z]/sd[a-z]1")
        name = partition.rsplit("/", 1)[1]
        self.assertTrue(interface.startswith(device) and disk.startswith(interface))

        # The device manager passes on those of the subsystems that it watches, in the kernel's order.
        def added() -> list[str]:
            return [entry["path"] for entry in self.monitored(monitor, "device-added")]

        wait_until(lambda: partition in added(), "the devices at the client")
        self.assertEqual([device, interface, disk, partition],
                         [path for path in added() if path in (device, interface, disk, partition)])

        # The USB side: a scan, the device's record in the store, and the clients.
        record = wait_until(lambda: self.monitored(monitor, "usb-attached"), "the USB device at the client")[0]
        self.assertEqual(STICK, number(record))
        for line in (r"^UsbDetector I .*add device\[0x[0-9a-f]{8}\]$", "^UsbDetector I .*notify attach$"):
            self.daemon().wait_for(line, LIMIT, stream="stderr")
        self.assertIn(f"SERVIAL=HEADUNIT-{stick.name}\n", self.store_record(record["bus"]))

        # A node below the interface is published for the interface.
        bus = record["bus"]
        self.run_guest([self.program("uevent-inject"), "--action", "add", "--path", f"{interface}/usbmisc/node0",
                        "--subsystem", "usb", "DEVNAME=node0"], check=True)
        self.wait_guest(f"grep -qsx DEVNAME=node0 {STORE}/usbdev.bus.{bus}.itf.*")
        self.assertIn(f"DEVPATH={interface}/usbmisc/node0\n", self.shell(f"cat {STORE}/usbdev.bus.{bus}.itf.*"))

        # The volumes: polling of media, the mount, the link, and the clients.
        volume = wait_until(lambda: self.monitored(monitor, "volume-added"), "the volume at the client")[0]
        self.assertEqual((name, f"/mnt/{name}", f"/media/{name}"),
                         (volume["name"], volume["mount_path"], volume["access_path"]))
        self.shell(f"mountpoint -q /mnt/{name} && [ $(readlink /media/{name}) = /mnt/{name} ]")
        self.assertEqual("1000\n", self.shell("cat /sys/module/block/parameters/events_dfl_poll_msecs"))

        self.unplug(stick.name)
        for event in ("usb-detached", "volume-removed"):
            wait_until(lambda: self.monitored(monitor, event), event)
        wait_until(lambda: {device, interface, disk, partition}
                   <= {entry["path"] for entry in self.monitored(monitor, "device-removed")}, "the devices' removal")
        self.wait_guest(f"[ ! -e /mnt/{name} ] && [ ! -L /media/{name} ]")
        self.wait_guest(f"! ls {STORE} | grep -q 'bus.{bus}.'")
        self.wait_agreement(0)


if __name__ == "__main__":
    harness.main()
