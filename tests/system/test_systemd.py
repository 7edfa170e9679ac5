# SPDX-License-Identifier: Apache-2.0
"""The daemon as a unit runs it: systemd as the first process, the units and helpers as they are installed, every
restriction of theirs in force. After each test the kernel must not have refused the daemon anything."""

from __future__ import annotations

import json
import os
import signal
import subprocess
import unittest
from pathlib import Path
from typing import Any

import harness
from harness import GuestTestCase, wait_until
from vm.machine import Machine
from vm.session import Session

LIMIT = 180.0  # seconds; a restart is some twenty programs, each of which an emulated processor starts slowly
DAEMON = "device-service.service"
START = "device-service-start.service"
DIRECTORY = "servicemanager.service"
PROGRAMS = {"device-service": "usr/sbin", "servicemanager": "usr/sbin", "devicectl": "usr/bin"}
REFUSED = "type=1326"  # the kernel's record of a system call that a filter refused


def stage(folder: Path) -> Path:
    """Installs what packaging/ installs, and links to the programs of the build, into a folder."""
    for component in ("daemon", "servicemanager"):
        subprocess.run(["cmake", "-DCMAKE_INSTALL_PREFIX=/usr", f"-DCMAKE_INSTALL_COMPONENT={component}", "-P",
                        str(harness.build_dir / "packaging/cmake_install.cmake")],
                       env={**os.environ, "DESTDIR": str(folder)}, stdout=subprocess.DEVNULL, check=True)
    for program, place in PROGRAMS.items():
        (folder / place).mkdir(parents=True, exist_ok=True)
        (folder / place / program).symlink_to(harness.build_dir / "bin" / program)
    wanted = folder / "etc/systemd/system/multi-user.target.wants"
    wanted.mkdir(parents=True)
    for unit in (DAEMON, DIRECTORY):
        (wanted / unit).symlink_to(f"/usr/lib/systemd/system/{unit}")
    return folder


class Systemd(GuestTestCase):
    # The drivers that the units load themselves, or udev when a device comes. One processor: the kernel patches its
    # own code whenever the first filter of a kind comes, which a second emulated one may run at that moment.
    machine_options = {"leave_out": ["binder_linux", "sd_mod", "mmc_block"], "processors": 1}

    @classmethod
    def boot(cls) -> None:
        cls.session = Session()
        cls.machine = Machine(cls.session, systemd=stage(cls.session.work / "stage"), **cls.machine_options)
        cls.machine.boot()

    def setUp(self) -> None:
        super().setUp()
        self.wait_up()
        # Everything later than this line of the journal is the test's own.
        self._cursor = self.sh("journalctl -q -n 0 --show-cursor | sed -n 's/^-- cursor: //p'").strip()
        self.assertTrue(self._cursor)

    def tearDown(self) -> None:
        if self.has_failed:
            return
        for plugged in reversed(self.machine.peripherals.list()):
            self.unplug(plugged.name)
        self.wait_guest("! ls /dev /mnt /media | grep -qE '^(sd|mmcblk)'", LIMIT)
        self.assertEqual([], self.refused())

    # What the guest tells.

    def sh(self, script: str, timeout: float = LIMIT, check: bool = True) -> str:
        return self.run_guest(["sh", "-c", script], timeout, check=check).text

    def show(self, unit: str, *names: str) -> dict[str, str]:
        text = self.sh(f"systemctl show {unit} {' '.join(f'-p {name}' for name in names)}")
        return dict(line.split("=", 1) for line in text.splitlines())

    def main_pid(self) -> int:
        return int(self.show(DAEMON, "MainPID")["MainPID"])

    def journal(self, unit: str | None = None) -> list[str]:
        """The lines of this test."""
        of_unit = f"-u {unit}" if unit else ""
        return self.sh(f"journalctl -q -o cat --after-cursor='{self._cursor}' {of_unit}").splitlines()

    def refused(self) -> list[str]:
        """What the kernel or a program says of something that was not allowed."""
        marks = (REFUSED, "Operation not permitted", "RLIMIT_NICE not set")
        return [line for line in self.journal() if any(mark in line for mark in marks)]

    def wait_up(self, other_than: int = 0) -> int:
        """Waits for a daemon, other than the one of that process, whose managers are started; returns its process."""
        def all_up() -> int:
            text = self.sh(f"systemctl show -p MainPID --value {DAEMON}; systemctl is-active {DAEMON} {START} || true")
            lines = text.split()
            pid = int(lines[0])
            return pid if lines[1:] == ["active", "active"] and pid not in (0, other_than) else 0

        return wait_until(all_up, "a new daemon with its managers", LIMIT)

    def volumes(self) -> list[dict[str, Any]]:
        done = self.run_guest(["devicectl", "--json", "volumes"], LIMIT)
        return json.loads(done.text)["volumes"] if done.returncode == 0 else []

    def mounts(self) -> dict[str, str]:
        """What everybody sees mounted below /mnt: device by place."""
        lines = [line.split() for line in self.sh("cat /proc/1/mounts").splitlines()]
        return {place: device for device, place, *_ in lines if place.startswith("/mnt/")}

    def wait_mounted(self, *names: str) -> None:
        """Waits until exactly these volumes are listed with their paths, mounted and linked for everybody."""
        wanted = sorted(names)

        def are_there() -> bool:
            listed = [volume["name"] for volume in self.volumes() if volume["access_path"] == f"/media/{volume['name']}"]
            mounted = {place: device for place, device in self.mounts().items() if device.startswith("/dev/")}
            return listed == wanted and mounted == {f"/mnt/{name}": f"/dev/{name}" for name in wanted}

        wait_until(are_there, f"the volumes {wanted}; listed are {self.volumes()}", LIMIT)
        for name in wanted:
            self.assertEqual(f"/mnt/{name}", self.sh(f"readlink /media/{name}").strip())

    # The tests.

    def test_boot(self) -> None:
        """Everything is up by itself, in the mount namespace of all."""
        self.assertEqual("DeviceManager\nUsbManager\nVolumeManager", "\n".join(sorted(
            line.split()[0] for line in self.sh("devicectl services").splitlines() if "Manager" in line)))
        self.assertEqual("", self.sh("systemctl --failed --no-legend --plain"))
        self.assertEqual("660 device-service", self.sh("stat -c '%a %G' /dev/binder").strip())
        for unit in (DAEMON, DIRECTORY):
            pid = self.show(unit, "MainPID")["MainPID"]
            self.assertEqual(self.sh("readlink /proc/1/ns/mnt"), self.sh(f"readlink /proc/{pid}/ns/mnt"), unit)
            status = self.sh(f"cat /proc/{pid}/status")
            self.assertRegex(status, r"(?m)^NoNewPrivs:\s*1$")
            self.assertRegex(status, r"(?m)^Seccomp:\s*2$")
            self.assertNotRegex(status, r"(?m)^CapBnd:\s*0*1ffffffffff$")
        self.assertRegex(self.sh("cat /proc/modules"), r"(?m)^mmc_block ")

    def test_refusals_show(self) -> None:
        """What refused() looks for is what a refused call leaves."""
        script = "systemd-run -q --wait -p SystemCallFilter=~mkdir -p SystemCallErrorNumber=EPERM mkdir /run/refused"
        self.sh(script, check=False)
        wait_until(lambda: [line for line in self.refused() if REFUSED in line], "the kernel's record of a refusal", LIMIT)
        self.assertEqual("", self.sh("ls -d /run/refused 2>/dev/null || true"))
        self._cursor = self.sh("journalctl -q -n 0 --show-cursor | sed -n 's/^-- cursor: //p'").strip()

    def test_hardware(self) -> None:
        """A stick, a stick behind a hub, a card and a phone, with every filter on."""
        self.plug("stick", label="MUSIC")
        hub = self.plug("hub", bus="xhci")
        self.plug("stick", bus="xhci", behind=hub.name, fs="ext4")
        self.plug("card", fs="exfat")
        self.wait_mounted("mmcblk0p1", "sda1", "sdb1")
        self.sh("echo works >/media/sda1/file && sync && cat /mnt/sda1/file")
        phone = self.plug("phone")
        android = self.plug("android")

        def ids() -> dict[tuple[int, int], int]:
            listed = json.loads(self.sh("devicectl --json usb list"))["usb_devices"]
            return {(entry["vendor"], entry["product"]): entry["id"] for entry in listed}

        wait_until(lambda: {(0x05ac, 0x12a8), (0x18d1, 0x4ee1)} <= set(ids()), "the phones", LIMIT)
        self.sh(f"devicectl usb carplay {ids()[(0x05ac, 0x12a8)]}")
        self.sh(f"devicectl usb aoa {ids()[(0x18d1, 0x4ee1)]}")
        self.assertTrue([entry for entry in phone.said() if entry["event"] != "plugged"], phone.said())
        self.assertTrue([entry for entry in android.said() if entry["event"] != "plugged"], android.said())
        # What a unit's shell commands need: a network interface, a module, a partition table that is read again.
        self.sh("mkdir -p /usr/local/drivers && cp $(modinfo -n ohci_hcd) /usr/local/drivers/ohci-hcd.ko && rmmod ohci_pci"
                " ohci_hcd 2>/dev/null; lsmod | grep -q ^ohci_hcd && exit 1; ip link add apple_usb0 type dummy")
        self.sh("devicectl usb switch network")
        wait_until(lambda: "UP" in self.sh("ip -o link show apple_usb0"), "the gadget's network interface", LIMIT)
        self.sh("devicectl stop usb && devicectl start usb")
        wait_until(lambda: self.sh("lsmod | grep ^ohci_hcd || true"), "the unit's own module", LIMIT)
        self.sh("echo online >/sys/block/sda/uevent")
        wait_until(lambda: any("volume device add path" in line for line in self.journal(DAEMON)), "the uevent", LIMIT)
        self.wait_mounted("mmcblk0p1", "sda1", "sdb1")

    def test_killed_daemon(self) -> None:
        """What a killed daemon left is cleared, nothing else, and what it had mounted comes back."""
        self.plug("stick")
        self.plug("card")
        self.wait_mounted("mmcblk0p1", "sda1")
        foreign = "mkdir -p /mnt/music /mnt/sdx1 /mnt/sdy1 /mnt/sdz1; touch /mnt/sdy1/kept; mount -t tmpfs radio /mnt/music"
        self.sh(f"{foreign}; mount -t tmpfs /dev/sdx1 /mnt/sdx1; ln -s /mnt/music /media/music; ln -s /home /media/sdw1; "
                "ln -s /mnt/sdz1 /media/sdz1")
        self.addCleanup(self.sh, "umount /mnt/music /mnt/sdx1; rm -rf /mnt/sdy1; rmdir /mnt/music /mnt/sdx1;"
                                 " rm /media/music /media/sdw1")
        for number in (signal.SIGKILL, signal.SIGABRT, signal.SIGSEGV):
            with self.subTest(signal=number.name):
                before = self.main_pid()
                mounted = self.sh("grep -c . /proc/1/mounts")
                self.sh(f"kill -{int(number)} {before}")
                self.wait_up(other_than=before)
                wait_until(lambda: self.volumes(), "volumes", LIMIT)
                self.wait_guest("[ -d /mnt/sda1 ] && [ -d /mnt/mmcblk0p1 ]", LIMIT)
                wait_until(lambda: [volume["name"] for volume in self.volumes()] == ["mmcblk0p1", "sda1"],
                           "both volumes", LIMIT)
                self.wait_guest("mountpoint -q /mnt/sda1 && mountpoint -q /mnt/mmcblk0p1", LIMIT)
                self.assertEqual(mounted, self.sh("grep -c . /proc/1/mounts"))
        self.assertEqual("mmcblk0p1\nmusic\nsda1\nsdx1\nsdy1\n", self.sh("ls /mnt"))
        self.assertEqual("mmcblk0p1\nmusic\nsda1\nsdw1\n", self.sh("ls /media"))
        self.assertEqual({"/mnt/music": "radio", "/mnt/sdx1": "/dev/sdx1", "/mnt/sda1": "/dev/sda1",
                          "/mnt/mmcblk0p1": "/dev/mmcblk0p1"}, self.mounts())

    def test_no_start_limit(self) -> None:
        """It comes back however often it ends, and however fast."""
        self.plug("stick")
        self.wait_mounted("sda1")
        pid = self.main_pid()
        for _ in range(8):
            self.sh(f"kill -9 {pid}")
            before = pid
            pid = wait_until(lambda: (lambda new: new if new not in (0, before) else 0)(self.main_pid()), "a new one", LIMIT)
        self.wait_up()
        self.wait_mounted("sda1")

    def test_stop_and_start(self) -> None:
        """A stop leaves nothing behind; what came meanwhile is there after the start."""
        self.plug("stick")
        self.wait_mounted("sda1")
        before = self.main_pid()
        self.sh(f"systemctl restart {DAEMON}")
        self.wait_up(other_than=before)
        self.wait_mounted("sda1")
        self.sh(f"systemctl stop {DAEMON}")
        self.assertEqual("", self.sh("ls /mnt /media | grep -E '^(sd|mmcblk)' || true"))
        self.assertEqual({}, self.mounts())
        self.assertEqual("inactive", self.sh(f"systemctl is-active {START} || true").strip())
        self.plug("card")
        self.wait_guest("[ -b /dev/mmcblk0p1 ]", LIMIT)
        # As if an earlier start had been ended between taking a node away and putting it back.
        self.sh("mkdir -p /dev/block/.device-service; ln /dev/sda1 /dev/block/.device-service/; rm /dev/sda1")
        self.sh(f"systemctl start {DAEMON}")
        self.wait_up()
        self.wait_mounted("mmcblk0p1", "sda1")

    def test_disks_of_before(self) -> None:
        """What was there before the first start of a boot is not for the daemon, unless the unit's owner says so."""
        for choice, names in (("", ["sdb1"]), ("--but-removable", ["sda1", "sdb1"])):
            with self.subTest(choice=choice):
                folder = f"/run/systemd/system/{START}.d"
                self.sh(f"systemctl stop {DAEMON}; rm /run/device-service/present; mkdir -p {folder}; "
                        f"printf '[Service]\\nEnvironment=REPLUG_REMEMBER={choice}\\n' >{folder}/test.conf; "
                        "systemctl daemon-reload")
                self.addCleanup(self.sh, f"rm -rf {folder}; systemctl daemon-reload")
                first = self.plug("stick")
                self.wait_guest("[ -b /dev/sda1 ]", LIMIT)
                self.sh(f"systemctl start {DAEMON}")
                self.wait_up()
                second = self.plug("stick")
                self.wait_mounted(*names)
                before = self.main_pid()
                self.sh(f"kill -9 {before}")
                self.wait_up(other_than=before)
                self.wait_mounted(*names)
                self.unplug(second.name)
                self.unplug(first.name)
                self.wait_guest("! ls /dev /mnt /media | grep -qE '^(sd|mmcblk)'", LIMIT)

    def test_service_manager(self) -> None:
        """A service manager that starts anew takes the daemon along, which else would be registered nowhere."""
        self.plug("stick")
        self.wait_mounted("sda1")
        before = self.main_pid()
        directory = int(self.show(DIRECTORY, "MainPID")["MainPID"])
        self.sh(f"kill -9 {directory}")
        self.wait_up(other_than=before)
        self.wait_mounted("sda1")

    def test_driver_missing(self) -> None:
        """What is missing stands in the journal; as soon as it is there all comes up."""
        self.sh(f"systemctl stop {DAEMON} {DIRECTORY}; mv /dev/binder /dev/binder.away; systemctl start --no-block {DAEMON}")
        line = "check-kernel: cannot open /dev/binder: No such file or directory; load the kernel module binder_linux"
        wait_until(lambda: any(entry.startswith(line) for entry in self.journal(DAEMON)), "the line", LIMIT)
        self.sh("mv /dev/binder.away /dev/binder")
        self.wait_up()

    def test_slow_client(self) -> None:
        """A client of low priority does not leave it to the daemon's threads."""
        for _ in range(3):
            self.sh("nice -n 15 devicectl usb list; nice -n 15 devicectl services")
        for unit in (DAEMON, DIRECTORY):
            pid = self.show(unit, "MainPID")["MainPID"]
            nice = self.sh(f"sed 's/.*) //' /proc/{pid}/task/*/stat | cut -d' ' -f17 | sort -u")
            self.assertEqual("0\n", nice, unit)


if __name__ == "__main__":
    harness.main()
