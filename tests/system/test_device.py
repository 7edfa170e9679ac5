# SPDX-License-Identifier: Apache-2.0
"""The device service on the real driver: real devices, several client processes, hostile ones among them."""

from __future__ import annotations

import json
import re
import signal
import time
from typing import Any

import harness
from harness import LIMIT, GuestTestCase, wait_until
from vm.guestlink import GuestProcess

WATCHED = ("block", "usb", "usb_device", "mmc")
UNKNOWN_TRANSACTION = -74
WRONG_TOKEN = -1
REMOVABLE_DISK = re.compile(r"/block/(sd[a-z]+|mmcblk[0-9]+)$")
KERNEL_LINE = re.compile(r"^KERNEL\[[0-9.]+\] +(\S+) +(\S+) +\((\S+)\)$")


class DeviceTestCase(GuestTestCase):
    """Clients of the device service and what they print."""

    def client(self, *steps: str, name: str = "client") -> GuestProcess:
        return self.spawn([self.program("device-test-client"), *steps], name=name, stdin=True)

    def holding_client(self, *steps: str, name: str = "client") -> GuestProcess:
        """A client that has taken its steps and stays until its input ends."""
        process = self.client(*steps, "hold", name=name)
        process.wait_for(lambda line: json.loads(line).get("step") == steps[-1], LIMIT, stream="stdout")
        return process

    @staticmethod
    def printed(process: GuestProcess) -> list[dict[str, Any]]:
        return [json.loads(line.text) for line in process.lines("stdout")]

    def events(self, process: GuestProcess) -> list[tuple[str, str, str]]:
        """What a client heard: (action, path, subsystem) in its order."""
        actions = {"added": "add", "removed": "remove"}
        return [(actions[entry["event"]], entry["path"], entry["subsystem"])
                for entry in self.printed(process) if entry.get("event") in actions]

    def disk_events(self, process: GuestProcess) -> list[tuple[str, str, str]]:
        """Those of whole removable disks. A disk that is still open somewhere keeps its letter from the next."""
        return [event for event in self.events(process) if REMOVABLE_DISK.search(event[1])]

    def in_and_out(self, witness: GuestProcess, kind: str) -> None:
        """Plugs in, pulls out as soon as the witness knows, and waits until it knows that too."""
        before = len(self.disk_events(witness))
        plugged = self.plug(kind)
        wait_until(lambda: len(self.disk_events(witness)) == before + 1, f"the {kind} to be announced")
        self.unplug(plugged.name)
        wait_until(lambda: len(self.disk_events(witness)) == before + 2, f"the {kind} to be gone")

    def results(self, process: GuestProcess) -> dict[str, Any]:
        return {entry["step"]: entry["result"] for entry in self.printed(process) if "step" in entry}

    def daemon(self) -> GuestProcess:
        assert self.services.daemon is not None
        return self.services.daemon

    def daemon_text(self) -> str:
        return "\n".join(line.text for line in self.daemon().lines("stderr"))

    def assert_daemon_answers(self) -> None:
        answer = self.services.devicectl("device", "controller", "1", "0", check=True)
        self.assertIn("/devices/platform/ehci-platform.1/usb1", answer.text)

    def dump(self, *arguments: str) -> str:
        return self.services.devicectl("dump", "DeviceManager", *arguments, check=True).text

    def inject(self, action: str, path: str, subsystem: str, *properties: str) -> None:
        self.run_guest([self.program("uevent-inject"), "--action", action, "--path", path, "--subsystem", subsystem,
                        *properties], check=True)


class RealDevices(DeviceTestCase):
    def kernel_events(self, listener: GuestProcess) -> list[tuple[str, str, str]]:
        found = (KERNEL_LINE.match(line.text) for line in listener.lines("stdout"))
        return [(match[1], match[2], match[3]) for match in found
                if match and match[1] in ("add", "remove") and match[3] in WATCHED]

    def wait_event(self, process: GuestProcess, action: str, subsystem: str, ending: str) -> None:
        wait_until(lambda: any(event[0] == action and event[2] == subsystem and event[1].endswith(ending)
                               for event in self.events(process)), f"{action} of {subsystem} {ending}")

    def test_stick_and_card_reach_two_clients_in_kernel_order(self) -> None:
        self.start_services()
        listener = self._named["uevents"]
        before = len(self.kernel_events(listener))
        first = self.holding_client("add", name="first")
        second = self.holding_client("add", name="second")

        stick = self.plug("stick")
        card = self.plug("card")
        for client in (first, second):
            self.wait_event(client, "add", "block", "/sda1")
            self.wait_event(client, "add", "block", "/mmcblk0")
        answer = self.services.devicectl("--json", "device", "get", "block", "sda", check=True)
        self.assertTrue(json.loads(answer.text)["device"]["path"].endswith("/block/sda"))
        self.unplug(stick.name)
        self.unplug(card.name)
        for client in (first, second):
            self.wait_event(client, "remove", "block", "/sda")
            self.wait_event(client, "remove", "block", "/mmcblk0")
        # The whole-device removals come last on the bus.
        wait_until(lambda: any(event[0] == "remove" and event[2] == "mmc" for event in self.events(first)),
                   "the removal of the card")
        wait_until(lambda: any(event[0] == "remove" and event[2] == "usb" and ":" not in event[1].rsplit("/")[-1]
                               for event in self.events(first)), "the removal of the stick")

        wait_until(lambda: self.kernel_events(listener)[before:] == self.events(first) == self.events(second),
                   "both clients to have heard what the kernel said, in its order")
        self.assertEqual("---- dump DeviceManager----", self.dump().splitlines()[1])
        self.assertNotIn("sda", self.dump())

    def test_ten_times_in_and_out(self) -> None:
        self.start_services()
        client = self.holding_client("add")
        for _ in range(10):
            self.in_and_out(client, "stick")
        self.assertEqual(["add", "remove"] * 10, [event[0] for event in self.disk_events(client)])


class Registry(DeviceTestCase):
    def test_register_and_remove(self) -> None:
        self.start_services()
        client = self.holding_client("add", name="stays")
        brief = self.client("add", "remove", name="leaves")
        self.assertEqual(0, brief.wait(LIMIT))
        self.assertEqual({"add": 0, "remove": 0}, self.results(brief))
        self.inject("add", "/devices/made/up", "block", "DEVNAME=up")
        wait_until(lambda: self.events(client) == [("add", "/devices/made/up", "block")], "the event at the client")
        self.assertEqual([], self.events(brief))
        self.assertRegex(self.dump("notifier"), r"notifier size\[1\]\nnotifier\[0x[0-9a-f]{8}\] "
                                                rf"pid\[{client.pid}\] \n$")

    def test_a_client_may_register_again_after_removal_and_remove_with_another_binder(self) -> None:
        self.start_services()
        client = self.client("add", "remove-other", "add", "remove")
        self.assertEqual(0, client.wait(LIMIT))
        self.assertIn("notifier size[0]\n", self.dump("notifier"))
        self.assert_daemon_answers()

    def test_killed_client_is_dropped(self) -> None:
        self.start_services()
        victim = self.holding_client("add", name="victim")
        other = self.holding_client("add", name="other")
        before = self.dump("notifier")
        self.assertIn("notifier size[2]\n", before)
        self.assertIn(f"pid[{victim.pid}] \n", before)
        self.assertIn(f"pid[{other.pid}] \n", before)

        victim.kill(signal.SIGKILL)
        self.daemon().wait_for(re.escape(f"Application PID[{victim.pid}] die"), LIMIT)
        wait_until(lambda: "notifier size[1]\n" in self.dump("notifier"), "the entry to go")
        after = self.dump("notifier")
        self.assertNotIn(f"pid[{victim.pid}]", after)
        self.assertIn(f"pid[{other.pid}] \n", after)
        self.inject("add", "/devices/made/up", "usb", "DEVTYPE=usb_device")
        wait_until(lambda: self.events(other) == [("add", "/devices/made/up", "usb")], "the event at the other")

    def test_a_client_that_exits_without_removal_is_dropped(self) -> None:
        self.start_services()
        client = self.client("add")
        self.assertEqual(0, client.wait(LIMIT))
        self.daemon().wait_for(re.escape(f"Application PID[{client.pid}] die"), LIMIT)
        wait_until(lambda: "notifier size[0]\n" in self.dump("notifier"), "the entry to go")


class Ends(DeviceTestCase):
    """Every end of the daemon runs through the signal catcher, with status 0."""

    def assert_caught(self, number: int) -> None:
        self.assertEqual(0, self.daemon().wait(LIMIT))
        lines = [line.text for line in self.daemon().lines("stderr")]
        heads = [line for line in lines if line.startswith("signalCatcher ")]
        self.assertEqual([f"signalCatcher sig num[0x{number:08x}]", "signalCatcher CallStack",
                          "signalCatcher ProcessCallStack"], heads)
        self.assertTrue(any(line.lstrip().startswith("#00 pc ") for line in lines), "stack frames")

    def assert_assertion(self, condition: str) -> None:
        self.assert_caught(signal.SIGABRT)
        self.assertIn(f'assertion "{condition}" failed: file "IDeviceManager", line ', self.daemon_text())

    def test_second_registration(self) -> None:
        self.start_services()
        self.client("add", "add")
        self.assert_assertion("index < 0")

    def test_removal_by_an_unregistered_client(self) -> None:
        self.start_services()
        self.holding_client("add", name="other")
        self.client("remove")
        self.assert_assertion("index >= 0")

    def test_null_binder(self) -> None:
        self.start_services()
        self.client("add-null")
        self.assert_assertion("notifier.get()")

    def test_signals(self) -> None:
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGPIPE, signal.SIGSEGV):
            with self.subTest(signal=number.name):
                self.start_services()
                self.daemon().kill(number)
                self.assert_caught(number)
                self.services.stop()

    def test_a_broken_peer_of_a_dump_is_sigpipe(self) -> None:
        # A dump into a pipe without reader: its write ends the service, as for any other broken peer.
        self.start_services()
        self.client("broken-dump")
        self.assert_caught(signal.SIGPIPE)

    def test_start_prints_two_refused_signals_and_nothing_else_of_the_kind(self) -> None:
        self.start_services(start_managers=False)
        lines = [line.text for line in self.daemon().lines("stderr")]
        refused = [line for line in lines if re.match(r"^SIG[A-Z]+: ", line)]
        self.assertEqual(["SIGKILL: Invalid argument", "SIGSTOP: Invalid argument"], refused)
        banner = [line for line in lines if "device service is starting....." in line]
        self.assertEqual(1, len(banner))
        self.assertRegex(banner[0], r"^DeviceService E ")


class Wire(DeviceTestCase):
    def test_wrong_token(self) -> None:
        self.start_services()
        codes = range(1, 8)
        client = self.client(*(f"wrong-token={code}" for code in codes))
        self.assertEqual(0, client.wait(LIMIT))
        for code in codes:
            self.assertEqual({"status": WRONG_TOKEN, "size": 0, "first": 0},
                             self.results(client)[f"wrong-token={code}"])
        self.assert_daemon_answers()

    def test_requests_that_are_cut_short(self) -> None:
        self.start_services()
        client = self.client("cut=5", "cut=6", "cut=7")
        self.assertEqual(0, client.wait(LIMIT))
        for step, result in self.results(client).items():
            self.assertLess(result["status"], 0, step)
        self.assert_daemon_answers()

    def test_base_transactions_and_unknown_codes(self) -> None:
        self.start_services()
        client = self.client("ping", "interface", "cut=8", "cut=4711")
        self.assertEqual(0, client.wait(LIMIT))
        results = self.results(client)
        for step in ("ping", "interface"):
            self.assertEqual((0, 0), (results[step]["status"], results[step]["first"]), step)
            self.assertGreaterEqual(results[step]["size"], 4)
        # A reply that ends in an error travels as that error alone.
        for step in ("cut=8", "cut=4711"):
            self.assertEqual({"status": UNKNOWN_TRANSACTION, "size": 0, "first": 0}, results[step])

    def test_dump_in_its_three_forms(self) -> None:
        self.start_services()
        self.inject("add", "/devices/made/up", "block", "DEVNAME=up", "DEVTYPE=disk")
        client = self.holding_client("add")
        wait_until(lambda: "made/up" in self.dump(), "the device in the dump")
        core = ("-[device.DeviceManager]-\n---- dump DeviceManager----\n---dump device---\n---device[0]---\n"
                "[ SUBSYSTEM] [block]\n[   DEVNAME] [up]\n[   DEVPATH] [/devices/made/up]\n[   DEVTYPE] [disk]\n")
        self.assertEqual(core, self.dump())
        self.assertEqual(core, self.dump("other", "notifier"))
        self.assertRegex(self.dump("notifier", "other"),
                         r"^-\[device\.DeviceManager\]-\nnotifier size\[1\]\n"
                         rf"notifier\[0x[0-9a-f]{{8}}\] pid\[{client.pid}\] \n$")


class Inside(DeviceTestCase):
    """What a client may do while the daemon waits for its call-back, over the real driver."""

    def inject_three(self) -> None:
        for number in range(3):
            self.inject("add", f"/devices/made/up{number}", "block", f"DEVNAME=up{number}")

    def test_query(self) -> None:
        self.start_services()
        client = self.holding_client("query-inside", "add")
        self.inject_three()
        wait_until(lambda: len(self.events(client)) == 3, "three events")
        inside = [entry["result"] for entry in self.printed(client) if entry.get("inside") == "query"]
        self.assertEqual(["/devices/platform/ehci-platform.1/usb1"] * 3, inside)

    def test_remove(self) -> None:
        self.start_services()
        client = self.holding_client("remove-inside", "add", name="leaves")
        other = self.holding_client("add", name="stays")
        self.inject_three()
        wait_until(lambda: len(self.events(other)) == 3, "three events at the one that stays")
        self.assertEqual(1, len(self.events(client)))
        self.assertIn("notifier size[1]\n", self.dump("notifier"))

    def test_shutdown_and_a_new_start(self) -> None:
        self.start_services()
        client = self.holding_client("shutdown-inside", "add")
        self.inject("add", "/devices/made/up", "block", "DEVNAME=up")
        wait_until(lambda: any(entry.get("inside") == "shutdown" for entry in self.printed(client)), "the shutdown")
        self.assert_daemon_answers()
        self.inject("add", "/devices/made/unheard", "block", "DEVNAME=unheard")
        self.services.devicectl("start", check=True)
        # What came between waited in the socket's buffer.
        wait_until(lambda: [event[1] for event in self.events(client)]
                   == ["/devices/made/up", "/devices/made/unheard"], "the event after the new start")

    def test_slow_client_delays_the_others_and_loses_nothing(self) -> None:
        self.start_services()
        slow = self.holding_client("slow=300", "add", name="slow")
        quick = self.holding_client("add", name="quick")
        begin = time.monotonic()
        count = 10
        for number in range(count):
            self.inject("add", f"/devices/made/up{number}", "block", f"DEVNAME=up{number}")
        wanted = [("add", f"/devices/made/up{number}", "block") for number in range(count)]
        wait_until(lambda: self.events(slow) == wanted == self.events(quick), "all events at both, in order")
        # The last event reaches the quick one only after the slow one has taken nine.
        self.assertGreaterEqual(time.monotonic() - begin, 0.3 * (count - 1))


if __name__ == "__main__":
    harness.main()
