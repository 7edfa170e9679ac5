# SPDX-License-Identifier: Apache-2.0
"""The command-line client on the real driver: every command, every exit status, monitors that outlive a daemon."""

from __future__ import annotations

import json
import re
import signal
import time
from typing import Any

import harness
import jsonschema
from harness import LIMIT, GuestTestCase, wait_until
from vm.guestlink import Completed, GuestProcess
from vm.services import SERVICES

OK, FAILED, USAGE, NO_SERVICE, DAEMON_DIED, NO_DRIVER, TIMED_OUT = range(7)

# Each command in a form that is right, without and with an answer in JSON.
COMMANDS = (("start",), ("stop",), ("device", "get", "block", "sda"), ("device", "ancestors", "/devices/x"),
            ("device", "controller", "usb", "0"), ("volumes",), ("usb", "list"), ("monitor", "--for", "1"),
            ("dump", "DeviceManager"), ("services",))
SCHEMA = json.loads((harness.ROOT / "docs/devicectl.schema.json").read_text(encoding="utf-8"))
SHAPE = jsonschema.Draft202012Validator(SCHEMA)
# The service that a command asks first, if it is not the device manager's.
FIRST_ASKED = {("start",): "VolumeManager", ("volumes",): "VolumeManager", ("usb", "list"): "UsbManager",
               ("monitor", "--for", "1"): "VolumeManager"}
INJECTED_A_SECOND = 200  # slow enough for the daemon to lose none
DISK = "/devices/virtual/inject/disk"
# Runs a command on a terminal and says whether that is as before then.
ON_TERMINAL = """before=$(stty -g); "$@"; status=$?
[ "$(stty -g)" = "$before" ] && echo "ended with $status, terminal as before" """


class ClientTestCase(GuestTestCase):
    """Runs the client and judges what it said."""

    def ctl(self, *arguments: str, status: int | None = OK, timeout: float = LIMIT) -> Completed:
        """Runs the client and checks its exit status and that a failure is told in one line."""
        done = self.run_guest([self.program("devicectl"), *arguments], timeout)
        if status is not None:
            self.assertEqual(status, done.returncode, f"{arguments}: {done.text}{done.error_text}")
        self.assert_one_line(done)
        return done

    def assert_one_line(self, done: Completed) -> None:
        lines = done.error_text.splitlines()
        self.assertEqual(0 if done.returncode == OK else 1, len(lines), done.error_text)
        for line in lines:
            self.assertTrue(line.startswith("devicectl: "), line)

    def answer(self, *arguments: str, status: int = OK) -> dict[str, Any]:
        """What the client answers in JSON: one object on one line of plain ASCII."""
        done = self.ctl("--json", *arguments, status=status)
        self.assertEqual(1, done.stdout.count(b"\n"))
        self.assertTrue(done.stdout.isascii())
        return self.shaped(done.text)

    def shaped(self, line: str) -> dict[str, Any]:
        """The object of a line, which has one of the documented shapes; without its version."""
        value = json.loads(line)
        SHAPE.validate(value)
        self.assertEqual("schemaVersion", next(iter(value)))
        del value["schemaVersion"]
        return value

    def monitor(self, *arguments: str) -> GuestProcess:
        """A monitor that is registered, in JSON."""
        process = self.spawn([self.program("devicectl"), "monitor", "--json", *arguments], name="monitor")
        self.wait_state(process, "up", 1)
        return process

    def told(self, process: GuestProcess) -> list[dict[str, Any]]:
        """What a monitor said of devices, and of the device manager."""
        everything = [self.shaped(line.text) for line in process.lines("stdout")]
        return [entry for entry in everything if entry["event"].startswith("device-")
                or entry.get("service") == "DeviceManager"]

    def states(self, process: GuestProcess) -> list[str]:
        return [entry["state"] for entry in self.told(process) if entry["event"] == "service"]

    def wait_state(self, process: GuestProcess, state: str, times: int) -> None:
        wait_until(lambda: self.states(process).count(state) == times,
                   f"the monitor to say {state} for the {times}. time")

    def inject(self, action: str, path: str, *properties: str, subsystem: str = "block", count: int = 1) -> None:
        self.run_guest([self.program("uevent-inject"), "--action", action, "--path", path, "--subsystem", subsystem,
                        "--count", str(count), "--rate", str(INJECTED_A_SECOND), *properties], check=True)

    def clients(self) -> int:
        """How many clients the daemon has."""
        text = self.ctl("dump", "DeviceManager", "notifier").text
        return int(text.split("notifier size[")[1].split("]")[0])

    def wait_blocked(self, process: GuestProcess) -> None:
        """Waits until the process waits for an answer that does not come."""
        look = f"grep -q '^16 ' /proc/{process.pid}/syscall"
        self.wait_guest(f"{look} && sleep 0.3 && {look} && sleep 0.3 && {look}")

    @property
    def daemon(self) -> GuestProcess:
        assert self.services.daemon is not None
        return self.services.daemon

    def kill_daemon(self) -> None:
        self.daemon.kill(signal.SIGKILL)
        self.assertEqual(-signal.SIGKILL, self.daemon.wait(LIMIT))
        self.services.daemon = None  # a dead one would count as a failure of the next start

    def restart_daemon(self) -> None:
        self.services.daemon = self.spawn([self.program("device-service")])
        self.services.wait_daemon()


class Commands(ClientTestCase):
    def test_start_and_stop(self) -> None:
        self.start_services(start_managers=False)
        self.assertEqual("volume: started\nusb: started\ndevice: started\n", self.ctl("start").text)
        self.assertEqual("device: started\n", self.ctl("start", "device").text, "a second start is harmless")
        monitor = self.monitor()
        self.inject("add", DISK, "DEVNAME=sdx")
        wait_until(lambda: len(self.told(monitor)) == 2, "the event of a started manager")
        self.assertEqual("device: stopped\nusb: stopped\nvolume: stopped\n", self.ctl("stop").text)
        self.inject("add", DISK + "2", "DEVNAME=sdy")
        self.ctl("device", "get", "block", "sdy", status=FAILED)
        managers = [{"name": "device", "service": "DeviceManager", "result": 0}]
        usb = [{"name": "usb", "service": "UsbManager", "result": 0}]
        volume = [{"name": "volume", "service": "VolumeManager", "result": 0}]
        self.assertEqual({"action": "stop", "managers": managers + usb + volume}, self.answer("stop"))
        self.assertEqual({"action": "start", "managers": volume}, self.answer("start", "volume"))
        self.assertEqual({"action": "stop", "managers": volume}, self.answer("stop", "volume"))
        self.assertEqual({"action": "start", "managers": managers}, self.answer("start", "device"))
        self.inject("add", DISK + "3", "DEVNAME=sdz")
        wait_until(lambda: len(self.told(monitor)) == 4, "the events of the second start")
        self.assertEqual(["sdx", "sdy", "sdz"], [entry["params"]["DEVNAME"] for entry in self.told(monitor)[1:]])

    def test_device_get(self) -> None:
        self.start_services()
        monitor = self.monitor("--count", "1")
        self.inject("add", DISK, "DEVNAME=sdx", "DEVTYPE=disk")
        self.assertEqual(OK, monitor.wait(LIMIT))
        device = self.answer("device", "get", "block", "sdx")["device"]
        self.assertEqual((DISK, "block", "sdx", "disk"), (device["path"], device["subsystem"],
                                                           device["params"]["DEVNAME"], device["params"]["DEVTYPE"]))
        reported = self.told(monitor)[1]
        self.assertEqual(device, {key: reported[key] for key in ("path", "subsystem", "params")})
        text = self.ctl("device", "get", "block", "sdx").text
        self.assertTrue(text.startswith(f"path       {DISK}\nsubsystem  block\n"), text)
        self.assertIn("    DEVNAME=sdx\n", text)

        missing = self.ctl("device", "get", "block", "sdq", status=FAILED)
        self.assertEqual("", missing.text)
        self.assertIn("no device sdq in subsystem block", missing.error_text)
        self.assertEqual({"device": None}, self.answer("device", "get", "block", "sdq", status=FAILED))

    def test_device_ancestors(self) -> None:
        self.start_services()
        monitor = self.monitor("--count", "3")
        self.inject("add", "/devices/virtual/a", subsystem="usb")
        self.inject("add", "/devices/virtual/a/b", "DEVNAME=sdb")
        self.inject("add", "/devices/virtual/other", "DEVNAME=sdo")
        self.assertEqual(OK, monitor.wait(LIMIT))
        found = self.answer("device", "ancestors", "/devices/virtual/a/b/c")["devices"]
        self.assertEqual(["/devices/virtual/a", "/devices/virtual/a/b"], [device["path"] for device in found])
        lines = self.ctl("device", "ancestors", "/devices/virtual/a/b/c").text.splitlines()
        self.assertEqual([["usb", "-", "/devices/virtual/a"], ["block", "sdb", "/devices/virtual/a/b"]],
                         [line.split() for line in lines])
        self.assertEqual({"devices": []}, self.answer("device", "ancestors", ""))
        self.assertEqual("", self.ctl("device", "ancestors", "/nowhere").text)

    def test_device_controller(self) -> None:
        self.start_services()
        self.assertEqual("/devices/platform/ehci-platform.1/usb1\n", self.ctl("device", "controller", "usb", "0").text)
        self.assertEqual({"controller": {"type": 2, "id": 1, "path": "/devices/platform/vxsdv2-sdc.1"}},
                         self.answer("device", "controller", "card", "1"))
        for kind, ident in (("usb", "3"), ("card", "2"), ("9", "0"), ("usb", "-1")):
            with self.subTest(kind=kind, ident=ident):
                unknown = self.ctl("device", "controller", kind, ident, status=FAILED)
                self.assertEqual("", unknown.text)
                self.assertIn(f"no controller {ident} of type", unknown.error_text)
                answer = self.answer("device", "controller", kind, ident, status=FAILED)
                self.assertIsNone(answer["controller"]["path"])

    def test_dump_in_its_three_forms(self) -> None:
        self.start_services()
        monitor = self.monitor()
        self.inject("add", DISK, "DEVNAME=sdx")
        wait_until(lambda: len(self.told(monitor)) == 2, "the device to be listed")
        core = self.ctl("dump", "DeviceManager").text
        self.assertTrue(core.startswith("-[device.DeviceManager]-\n---- dump DeviceManager----\n---dump device---\n"))
        self.assertIn("[   DEVNAME] [sdx]\n", core)
        clients = self.ctl("dump", "DeviceManager", "notifier").text
        self.assertRegex(clients, rf"^-\[device.DeviceManager\]-\nnotifier size\[1\]\nnotifier\[0x[0-9a-f]{{8}}\] "
                                  rf"pid\[{monitor.pid}\] \n$")
        self.assertEqual(core, self.ctl("dump", "DeviceManager", "other", "notifier").text)
        self.assertEqual({"service": "DeviceManager", "arguments": ["notifier"], "text": clients},
                         self.answer("dump", "DeviceManager", "notifier"))

    def test_dump_to_a_reader_that_went(self) -> None:
        self.start_services()
        done = self.run_guest(["bash", "-c", f"{self.program('devicectl')} dump DeviceManager | true"])
        self.assertEqual(OK, done.returncode)
        self.assertEqual("", done.error_text)
        self.assertEqual(0, self.clients(), "the daemon lives")

    def test_services(self) -> None:
        self.start_services()
        names = sorted(SERVICES)
        width = max(map(len, names)) + 2
        self.assertEqual("".join(f"{name:{width}}alive\n" for name in names), self.ctl("services").text)
        self.assertEqual({"services": [{"name": name, "state": "alive"} for name in names]}, self.answer("services"))
        self.daemon.kill(signal.SIGSTOP)
        self.assertEqual("".join(f"{name:{width}}silent\n" for name in names), self.ctl("services").text)
        self.daemon.kill(signal.SIGCONT)
        self.kill_daemon()
        wait_until(lambda: self.answer("services") == {"services": []}, "the dead service to be dropped")

    def test_json_of_every_command(self) -> None:
        self.start_services()
        for command in COMMANDS:
            for line in (("--json", *command), (*command, "--json")):
                with self.subTest(line=line):
                    done = self.ctl(*line, status=None)
                    self.assertIn(done.returncode, (OK, FAILED))
                    objects = [self.shaped(text) for text in done.text.splitlines()]
                    # A monitor says first that it hears each of the services.
                    expected = len(SERVICES) if command[0] == "monitor" else 1
                    self.assertEqual([dict] * expected, [type(value) for value in objects])

    def test_tells_what_is_up(self) -> None:
        self.assertIn("start servicemanager", self.ctl("status", status=NO_SERVICE).error_text)
        self.services.manager = self.spawn([self.program("servicemanager")])
        self.services.wait_services_reply()
        missing = self.answer("status", status=NO_SERVICE)
        self.assertEqual(["missing"] * 3, [service["state"] for service in missing["services"]])
        self.assertIsNone(missing["devices"])
        self.restart_daemon()
        self.ctl("start")
        monitor = self.monitor()
        self.inject("add", DISK, "DEVNAME=sdx")
        wait_until(lambda: len(self.told(monitor)) == 2, "the device to be listed")
        status = self.answer("status")
        self.assertEqual((True, 1, 0, 0), (status["all_up"], status["devices"], status["volumes"], status["mounted"]))
        self.assertEqual([{"name": name, "state": "alive", "clients": 1} for name in SERVICES], status["services"])
        text = self.ctl("status").text
        self.assertRegex(text, r"(?m)^DeviceManager +1 +1 device +alive$")
        self.assertRegex(text, r"(?m)^devicectl \d+\.\d+")
        self.daemon.kill(signal.SIGSTOP)
        silent = self.answer("status", status=FAILED)
        self.assertEqual(["silent"] * 3, [service["state"] for service in silent["services"]])
        self.daemon.kill(signal.SIGCONT)


class ExitStatus(ClientTestCase):
    def test_wrong_command_line(self) -> None:
        for line in ((), ("frob",), ("start", "engine"), ("device", "get", "block"), ("monitor", "--for", "x")):
            with self.subTest(line=line):
                self.assertEqual("", self.ctl(*line, status=USAGE).text)

    def test_no_service_manager(self) -> None:
        for command in COMMANDS:
            with self.subTest(command=command):
                done = self.ctl(*command, status=NO_SERVICE, timeout=10.0)
                self.assertIn("start servicemanager", done.error_text)
                self.assertEqual("", done.text)

    def test_no_service(self) -> None:
        self.services.manager = self.spawn([self.program("servicemanager")])
        self.services.wait_services_reply()
        for command in COMMANDS[:-1]:
            with self.subTest(command=command):
                done = self.ctl(*command, status=NO_SERVICE, timeout=10.0)
                asked = FIRST_ASKED.get(command, "DeviceManager")
                self.assertIn(f"service {asked} is not registered: start device-service", done.error_text)
        self.assertIn("service Other is not registered", self.ctl("dump", "Other", status=NO_SERVICE).error_text)
        self.assertEqual("", self.ctl("services").text)

    def test_daemon_killed_in_the_middle_of_a_call(self) -> None:
        self.services.manager = self.spawn([self.program("servicemanager")])
        self.services.wait_services_reply()
        for command in COMMANDS[:-1]:
            with self.subTest(command=command):
                self.restart_daemon()
                self.daemon.kill(signal.SIGSTOP)
                client = self.spawn([self.program("devicectl"), *command])
                self.wait_blocked(client)
                self.kill_daemon()
                self.assertEqual(DAEMON_DIED, client.wait(LIMIT))
                self.assertIn("device-service", "".join(line.text for line in client.lines("stderr")))
                self.assertEqual(1, len(client.lines()), "one line and nothing else")

    def test_daemon_ended_by_the_question(self) -> None:
        self.start_services()
        monitor = self.monitor("--count", "1")
        self.inject("add", "/devices/virtual/nodeless", subsystem="mmc")
        self.assertEqual(OK, monitor.wait(LIMIT))
        done = self.ctl("device", "get", "mmc", "x", status=DAEMON_DIED)
        self.assertIn("the process of service DeviceManager died during the call: restart device-service",
                      done.error_text)
        self.assertEqual(OK, self.daemon.wait(LIMIT))

    def test_daemon_that_does_not_answer(self) -> None:
        self.start_services()
        self.daemon.kill(signal.SIGSTOP)
        for command in COMMANDS[:-1]:
            with self.subTest(command=command):
                begin = time.monotonic()
                done = self.ctl(*command, "--timeout", "1", status=FAILED)
                self.assertLess(time.monotonic() - begin, 10.0)
                asked = FIRST_ASKED.get(command, "DeviceManager")
                self.assertIn(f"no answer from {asked} within 1 s", done.error_text)

    def test_service_manager_that_does_not_answer(self) -> None:
        self.start_services()
        assert self.services.manager is not None
        self.services.manager.kill(signal.SIGSTOP)
        done = self.ctl("services", "--timeout", "1", status=FAILED)
        self.assertIn("no answer from the service manager within 1 s", done.error_text)


class Monitors(ClientTestCase):
    def test_a_real_stick(self) -> None:
        self.start_services()
        monitor = self.monitor()
        human = self.spawn([self.program("devicectl"), "monitor", "--properties"], name="human")
        human.wait_for("DeviceManager reports to this monitor", LIMIT, stream="stdout")
        begin = float(self.run_guest(["date", "+%s.%N"], check=True).text)
        stick = self.plug("stick")
        monitor.wait_for(r'"device-added".*"DEVTYPE":"partition"', LIMIT)
        for process, line in ((monitor, r'"volume-added".*"name":"sda1"'), (human, "added +volume +sda1 ")):
            process.wait_for(line, LIMIT, stream="stdout")
        self.unplug(stick.name)
        monitor.wait_for(r'"device-removed".*"DEVTYPE":"usb_device"', LIMIT)
        for process, line in ((monitor, r'"volume-removed".*"name":"sda1"'), (human, "removed +volume +sda1 ")):
            process.wait_for(line, LIMIT, stream="stdout")
        end = float(self.run_guest(["date", "+%s.%N"], check=True).text)
        monitor.kill(signal.SIGTERM)
        self.assertEqual(OK, monitor.wait(LIMIT))

        told = self.told(monitor)
        self.assertEqual({"event": "service", "service": "DeviceManager", "state": "up"},
                         {key: value for key, value in told[0].items() if key != "time"})
        times = [entry["time"] for entry in told[1:]]
        self.assertEqual(times, sorted(times))
        self.assertTrue(begin <= times[0] and times[-1] <= end, (begin, times, end))
        added = [entry["path"] for entry in told if entry["event"] == "device-added"]
        removed = [entry["path"] for entry in told if entry["event"] == "device-removed"]
        self.assertEqual(sorted(added), sorted(removed))
        human.kill(signal.SIGINT)
        self.assertEqual(OK, human.wait(LIMIT))
        lines = [line.text for line in human.lines("stdout")]
        volume = "volume              sda1            /media/sda1     vfat "
        self.assertEqual(len(added), sum("  added    " in line and volume not in line for line in lines))
        self.assertEqual(len(removed), sum("  removed  " in line and " volume  " not in line for line in lines))
        self.assertEqual(1, sum(f"  added    {volume}" in line for line in lines))
        self.assertEqual(1, sum("  removed  volume              sda1 " in line for line in lines))
        self.assertIn("    mount_path=/mnt/sda1", lines)
        self.assertIn("    DEVTYPE=disk", lines)
        self.assertEqual([], human.lines("stderr") + monitor.lines("stderr"))

    def deaths(self) -> list[str]:
        """What the daemon said of clients that died."""
        return [line.text for line in self.daemon.lines("stderr") if re.search(r"Application PID\[\d+\] die$", line.text)]

    def test_removes_itself_at_every_end(self) -> None:
        self.start_services()
        monitors = [self.monitor(), self.monitor(), self.monitor("--for", "0"), self.monitor("--count", "1")]
        monitors[0].kill(signal.SIGINT)
        monitors[1].kill(signal.SIGTERM)
        self.inject("add", DISK, "DEVNAME=sdx")
        for monitor in monitors:
            self.assertEqual(OK, monitor.wait(LIMIT))
        self.assertEqual(0, self.clients())
        # A host notifier cannot be taken back over the wire: it alone goes by its process's death.
        wait_until(lambda: len(self.deaths()) == len(monitors), "the daemon to drop the host notifiers")
        self.assertEqual([], [text for text in self.deaths() if not text.startswith("IUsbManager W ")],
                         "the daemon saw removals, not deaths")

    def test_count_and_time(self) -> None:
        self.start_services()
        few = self.spawn([self.program("devicectl"), "monitor", "--json", "--count", "5", "--for", "3"], name="few")
        self.wait_state(few, "up", 1)
        exact = self.monitor("--count", "3")
        self.inject("add", DISK + "{n}", "DEVNAME=sd{n}", count=4)
        self.assertEqual(OK, exact.wait(LIMIT))
        self.assertEqual(["sd0", "sd1", "sd2"], [entry["params"]["DEVNAME"] for entry in self.told(exact)[1:]])
        self.assertEqual(FAILED, few.wait(LIMIT))
        self.assertEqual(["devicectl: only 4 of 5 events came in time"], [line.text for line in few.lines("stderr")])
        self.assertEqual(5, len(self.told(few)))

    def test_outlives_the_daemon(self) -> None:
        self.start_services()
        monitor = self.monitor()
        for time_number in (1, 2):
            self.kill_daemon()
            self.wait_state(monitor, "down", time_number)
            self.restart_daemon()
            self.wait_state(monitor, "up", time_number + 1)
            self.assertEqual(1, self.clients())
            self.ctl("start")
            self.inject("add", f"{DISK}{time_number}", "DEVNAME=sdx")
            wait_until(lambda: len(self.told(monitor)) == 1 + 3 * time_number, "the event of the new daemon")
        self.assertEqual(["up", "down", "up", "down", "up"], self.states(monitor))
        monitor.kill(signal.SIGTERM)
        self.assertEqual(OK, monitor.wait(LIMIT))
        self.assertEqual(0, self.clients())
        self.assertEqual([], monitor.lines("stderr"))

    def test_outlives_daemon_and_service_manager(self) -> None:
        self.start_services()
        monitor = self.monitor()
        assert self.services.manager is not None
        self.services.manager.kill(signal.SIGKILL)
        self.services.manager.wait(LIMIT)
        self.kill_daemon()
        self.wait_state(monitor, "down", 1)
        self.services.manager = self.spawn([self.program("servicemanager")])
        self.services.wait_services_reply()
        self.restart_daemon()
        self.wait_state(monitor, "up", 2)
        self.assertEqual(1, self.clients())

    def test_can_be_ended_while_the_daemon_is_away(self) -> None:
        self.start_services()
        monitor = self.monitor()
        self.kill_daemon()
        self.wait_state(monitor, "down", 1)
        monitor.kill(signal.SIGINT)
        self.assertEqual(OK, monitor.wait(LIMIT))

    def test_end_while_the_daemon_hangs(self) -> None:
        self.start_services()
        patient, hurried = self.monitor(), self.monitor()
        self.daemon.kill(signal.SIGSTOP)
        for monitor in (patient, hurried):
            monitor.kill(signal.SIGTERM)
            self.wait_guest(f"grep -q '^16 ' /proc/{monitor.pid}/syscall")
        hurried.kill(signal.SIGTERM)
        self.assertEqual(-signal.SIGTERM, hurried.wait(LIMIT), "the second signal ends it at once")
        self.assertEqual(FAILED, patient.wait(LIMIT))
        self.assertIn("no answer from DeviceManager within 5 s", patient.lines("stderr")[0].text)

    def test_a_reader_that_goes_ends_it_quietly(self) -> None:
        self.start_services()
        script = f"{self.program('devicectl')} monitor --json | head -n 1; echo ${{PIPESTATUS[0]}}"
        done = self.run_guest(["bash", "-c", script], LIMIT)
        self.assertEqual("0", done.text.splitlines()[-1])
        self.assertEqual("", done.error_text)
        self.assertEqual(0, self.clients())

    def test_a_reader_that_stands_still_holds_up_nobody(self) -> None:
        self.start_services()
        path = "/tmp/stuck"
        self.run_guest(["mkfifo", path], check=True)
        self.addCleanup(self.run_guest, ["rm", "-f", path])
        # Opens the pipe for reading and reads nothing.
        self.spawn(["bash", "-c", f"exec 3<{path}; exec sleep 1000"], name="reader")
        stuck = self.spawn(["bash", "-c", f"exec {self.program('devicectl')} monitor --json >{path}"], name="stuck")
        wait_until(lambda: self.clients() == 1, "the monitor to be registered")
        witness = self.monitor()
        events = 1000  # about five times what a pipe holds
        self.inject("add", DISK + "{n}", "DEVNAME=sd{n}", "PAD=" + "x" * 200, count=events)
        wait_until(lambda: len(self.told(witness)) == events + 1, "the other monitor to hear everything")
        stuck.kill(signal.SIGTERM)
        self.assertEqual(OK, stuck.wait(LIMIT))
        self.assertEqual(1, self.clients())

    def test_hostile_texts(self) -> None:
        self.start_services()
        monitor = self.monitor("--count", "1")
        human = self.spawn([self.program("devicectl"), "monitor", "--properties", "--count", "1"], name="human")
        human.wait_for("DeviceManager reports to this monitor", LIMIT, stream="stdout")
        script = (f"exec {self.program('uevent-inject')} --path '/devices/virtual/'$'\\xff\\e[2J' "
                  "'DEVNAME=s'$'\\e]0;x\\a\\xfe\\n\"d'")
        self.run_guest(["bash", "-c", script], check=True)
        self.assertEqual(OK, monitor.wait(LIMIT))
        self.assertEqual(OK, human.wait(LIMIT))
        self.assertTrue(monitor.output().isascii())
        told = self.told(monitor)[1]
        self.assertEqual("s\x1b]0;x\x07\ufffd\n\"d", told["params"]["DEVNAME"])
        self.assertEqual("/devices/virtual/\ufffd\x1b[2J", told["path"])
        shown = human.output()
        self.assertTrue(all(32 <= byte < 127 or byte == 10 for byte in shown), shown)
        self.assertIn(b'    DEVNAME=s\\x1b]0;x\\x07\\xfe\\x0a"d\n', shown)
        name = self.run_guest(["bash", "-c", f"{self.program('devicectl')} device get block "
                                             "'s'$'\\e]0;x\\a\\xfe\\n\"d'"], check=True)
        self.assertIn(b"path       /devices/virtual/\\xff\\x1b[2J\n", name.stdout)

    def waiting(self, *arguments: str) -> GuestProcess:
        return self.spawn([self.program("devicectl"), "--json", "wait", *arguments], name="wait")

    def found(self, process: GuestProcess) -> dict[str, Any]:
        self.assertEqual(OK, process.wait(LIMIT), "".join(line.text for line in process.lines("stderr")))
        (line,) = process.lines("stdout")
        return self.shaped(line.text)

    def test_from_nothing_to_a_mounted_stick(self) -> None:
        """Begun before there is a service manager; a daemon dies meanwhile."""
        limit = ("--timeout", "0")
        services = self.waiting("service", "all", *limit)
        by_name, by_label = self.waiting("volume", "sda1", *limit), self.waiting("volume", "WAITED FOR", *limit)
        device = self.waiting("usb", "46f4:1", *limit)
        self.services.manager = self.spawn([self.program("servicemanager")])
        self.services.wait_services_reply()
        self.restart_daemon()
        self.assertEqual([{"name": name, "state": "alive"} for name in sorted(SERVICES)],
                         sorted(self.found(services)["services"], key=lambda service: service["name"]))
        wait_until(lambda: self.volume_clients() == 2, "both to be registered")
        self.kill_daemon()
        self.restart_daemon()
        wait_until(lambda: self.volume_clients() == 2, "both to be registered anew")
        self.ctl("start")
        for process in (by_name, by_label, device):
            self.assertIsNone(process.returncode)
        self.plug("stick", fs="ext4", label="WAITED FOR")
        for process in (by_name, by_label):
            volume = self.found(process)["volume"]
            self.assertEqual(("sda1", "WAITED FOR", "/mnt/sda1"),
                             (volume["name"], volume["label"], volume["mount_path"]))
        self.run_guest(["mountpoint", "-q", "/mnt/sda1"], check=True)
        self.assertEqual((0x46f4, 1), tuple(self.found(device)["usb_device"][key] for key in ("vendor", "product")))
        # What is there already is found at once, and the daemon is left as it was.
        self.assertEqual("volume", self.answer("wait", "volume", "sda1")["found"])
        self.assertIn("46f4:0001", self.ctl("wait", "usb", "46F4:0001").text)
        self.assertEqual(0, self.volume_clients())

        # "unknown" stands for a label that is not there: it names no volume.
        unnamed = self.plug("stick", fs="ext4", label="")
        self.answer("wait", "volume", "sdb1")
        late = self.ctl("wait", "volume", "unknown", "--timeout", "2", status=TIMED_OUT)
        self.assertIn("volume unknown not there within 2 s: no such volume is listed", late.error_text)
        self.unplug(unnamed.name)

        # Listed is not enough: without its mount it is not there. A later daemon mounts on no folder that is there.
        self.addCleanup(self.run_guest, ["sh", "-c", "rmdir /mnt/sda1; rm -f /media/sda1"])
        self.run_guest(["umount", "/mnt/sda1"], check=True)
        late = self.ctl("wait", "volume", "WAITED FOR", "--timeout", "2", status=TIMED_OUT)
        self.assertIn("volume WAITED FOR not there within 2 s: the volume is listed but not mounted", late.error_text)

        self.complete_what_is_there()

    def complete_what_is_there(self) -> None:
        """The same daemon's volumes and devices in a shell's completion."""
        breaks = " :="
        for line, expected in (("wait volume sd", ["sda1"]), ("wait volume ", ["sda1", "WAITED\\ FOR"]),
                               ("wait usb 46f4:", ["0001"]), ("dump V", ["VolumeManager"]), ("usb carplay ", ["1"]),
                               ("device get block ", ["sda", "sda1"])):
            with self.subTest(line=line):
                self.assertEqual(expected, self.ctl("complete", "bash", f"devicectl {line}", breaks).text.splitlines())
        self.daemon.kill(signal.SIGSTOP)
        self.assertEqual("", self.ctl("complete", "bash", "devicectl wait volume ", breaks).text)
        asking = self.spawn([self.program("devicectl"), "complete", "words", "wait", "volume", ""], name="complete")
        self.kill_daemon()
        self.assertEqual(OK, asking.wait(LIMIT))
        self.assertEqual([], asking.lines())

    def volume_clients(self) -> int:
        text = self.ctl("dump", "VolumeManager", "notifier").text
        return int(text.split("notifier size[")[1].split("]")[0])

    def test_in_vain(self) -> None:
        without = self.ctl("wait", "service", "all", "--timeout", "1", status=TIMED_OUT)
        self.assertIn("the services not there within 1 s: ", without.error_text)
        self.start_services()
        for words, reason in ((("service", "Other"), "service Other is not registered"),
                              (("volume", "NONE"), "no such volume is listed"),
                              (("usb", "dead:beef"), "no such device is listed")):
            with self.subTest(words=words):
                late = self.ctl("wait", *words, "--timeout", "1", status=TIMED_OUT)
                self.assertIn(f"not there within 1 s: {reason}", late.error_text)
                self.assertEqual("", late.text)
        self.daemon.kill(signal.SIGSTOP)
        for words in (("service", "all"), ("volume", "NONE"), ("usb", "dead:beef")):
            with self.subTest(words=words):
                hung = self.ctl("wait", *words, "--timeout", "1", status=TIMED_OUT)
                self.assertIn("a service gives no answer: its process hangs or is stopped", hung.error_text)
        self.daemon.kill(signal.SIGCONT)

    def watching(self) -> GuestProcess:
        """A watch on a terminal that shows the services."""
        process = self.spawn(["sh", "-c", ON_TERMINAL, "sh", self.program("devicectl"), "watch"], name="watch",
                             tty=(40, 120), env={"TERM": "xterm"})
        self.wait_picture(process, "DeviceManager +alive")
        return process

    def picture(self, process: GuestProcess) -> str:
        """What was drawn last, or is being drawn."""
        return re.sub(r"\x1b\[[0-9;?]*[A-Za-z]", "", process.output("tty").decode("utf-8", "replace").rsplit("\x1b[H")[-2])

    def wait_picture(self, process: GuestProcess, pattern: str) -> None:
        wait_until(lambda: process.output("tty").count(b"\x1b[H") > 1 and re.search(pattern, self.picture(process)),
                   f"the picture to show {pattern}")

    def wait_end(self, process: GuestProcess, status: int) -> None:
        self.assertEqual(0, process.wait(LIMIT))
        output = process.output("tty").decode("utf-8", "replace")
        self.assertIn(f"ended with {status}, terminal as before", output)
        self.assertIn("\x1b[?25h\x1b[?1049l", output)

    def test_follows_a_stick_and_outlives_the_daemon(self) -> None:
        self.start_services()
        watch = self.watching()
        self.wait_picture(watch, "usb 0 +absent +/devices/platform/ehci-platform.1/usb1")
        stick = self.plug("stick")
        self.wait_picture(watch, r"bus \d+\s+port \d+ +46f4:0001")
        self.wait_picture(watch, r"sda1 +vfat +/media/sda1 +\[[#.]{20}\] +\d+% .* of .*MiB +HEADUNIT")
        self.unplug(stick.name)
        self.wait_picture(watch, r"Volumes\s+-")
        self.daemon.kill(signal.SIGSTOP)
        self.wait_picture(watch, r"no answer for \d+ s")
        self.kill_daemon()
        self.wait_picture(watch, "DeviceManager +missing")
        self.restart_daemon()
        self.wait_picture(watch, "DeviceManager +alive")
        watch.resize(10, 60)
        self.wait_picture(watch, r"scroll; \d+ more lines")
        watch.write(b"q")
        self.wait_end(watch, 0)

    def test_gives_the_terminal_back_at_every_end(self) -> None:
        self.start_services(start_managers=False)
        for name in ("TERM", "INT", "HUP", "QUIT"):
            with self.subTest(name):
                watch = self.watching()
                self.run_guest(["pkill", f"-{name}", "-P", str(watch.pid)], check=True)
                self.wait_end(watch, 0)
        watch = self.watching()
        self.run_guest(["pkill", "-SEGV", "-P", str(watch.pid)], check=True)
        self.wait_end(watch, 128 + signal.SIGSEGV)


class NoDriver(ClientTestCase):
    machine_options = {"without_binder": True}

    def test_every_command_says_what_to_do(self) -> None:
        for command in COMMANDS:
            with self.subTest(command=command):
                done = self.ctl(*command, status=NO_DRIVER, timeout=10.0)
                self.assertEqual("", done.text)
                self.assertIn("modprobe binder_linux", done.error_text)


if __name__ == "__main__":
    harness.main()
