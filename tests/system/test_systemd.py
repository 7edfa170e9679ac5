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
BOOT_LIMIT = 360.0
DAEMON = "device-service.service"
START = "device-service-start.service"
DIRECTORY = "servicemanager.service"
PROGRAMS = {"device-service": "usr/sbin", "servicemanager": "usr/sbin", "devicectl": "usr/bin"}
# The kernel's record of a system call that a filter refused, as the kernel and as the journal put it, and systemd's.
REFUSED = ("type=1326", "SECCOMP", "31/SYS")


def stage(folder: Path) -> Path:
    """Installs what packaging/ installs, and the programs of the build, into a folder."""
    for component in ("daemon", "servicemanager"):
        subprocess.run(["cmake", "-DCMAKE_INSTALL_PREFIX=/usr", f"-DCMAKE_INSTALL_COMPONENT={component}", "-P",
                        str(harness.build_dir / "packaging/cmake_install.cmake")],
                       env={**os.environ, "DESTDIR": str(folder)}, stdout=subprocess.DEVNULL, check=True)
    for program, place in PROGRAMS.items():
        (folder / place).mkdir(parents=True, exist_ok=True)
        # Without what only a debugger reads, and the signal catcher, for seconds at each stop.
        subprocess.run(["strip", "-o", str(folder / place / program), str(harness.build_dir / "bin" / program)],
                       check=True)
    # The distribution's comes with a package that nothing else here needs.
    (folder / "usr/local/sbin").mkdir(parents=True)
    (folder / "usr/local/sbin/ifconfig").symlink_to("/usr/bin/busybox")
    # A refused call ends its program: no kernel passes over that in silence, as it may where the call only fails.
    for unit in (DAEMON, START, DIRECTORY):
        strict = folder / f"etc/systemd/system/{unit}.d/strict.conf"
        strict.parent.mkdir(parents=True)
        strict.write_text("[Service]\nSystemCallErrorNumber=kill\n", encoding="ascii")
    wanted = folder / "etc/systemd/system/multi-user.target.wants"
    wanted.mkdir(parents=True)
    for unit in (DAEMON, DIRECTORY):
        (wanted / unit).symlink_to(f"/usr/lib/systemd/system/{unit}")
    return folder


class SystemdTestCase(GuestTestCase):
    """One machine for all tests of a class."""

    # The drivers that the units load themselves, or udev when a device comes. One processor: the kernel patches its
    # own code whenever the first filter of a kind comes, which a second emulated one may run at that moment.
    machine_options = {"leave_out": ["binder_linux", "sd_mod", "mmc_block"], "processors": 1}

    @classmethod
    def boot(cls) -> None:
        cls.session = Session()
        cls.machine = Machine(cls.session, systemd=stage(cls.session.work / "stage"), **cls.machine_options)
        cls.machine.boot(BOOT_LIMIT)

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

    def keep_evidence(self) -> Path:
        folder = super().keep_evidence()
        script = f"journalctl -q -o short-precise; systemctl status {DAEMON} {START} {DIRECTORY}; ls -l /dev /mnt /media"
        (folder / "journal.log").write_text(self.sh(script, check=False), encoding="utf-8", errors="surrogateescape")
        return folder

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
        marks = (*REFUSED, "Operation not permitted", "RLIMIT_NICE not set")
        return [line for line in self.journal() if any(mark in line for mark in marks)]

    def wait_up(self, other_than: int = 0) -> int:
        """Waits for a daemon, other than the one of that process, whose managers are started; returns its process."""
        # Looked at in the guest, and not too often: the look takes its only processor from what it waits for.
        return int(self.sh(f"""until pid=$(systemctl show -p MainPID --value {DAEMON})
                [ "$pid" -ne 0 ] && [ "$pid" -ne {other_than} ] && systemctl -q is-active {START}; do sleep 0.5; done
            echo "$pid" """))

    def volumes(self) -> list[dict[str, Any]]:
        done = self.run_guest(["devicectl", "--json", "volumes"], LIMIT)
        return json.loads(done.text)["volumes"] if done.returncode == 0 else []

    def mounts(self) -> dict[str, str]:
        """What everybody sees mounted below /mnt: device by place."""
        lines = [line.split() for line in self.sh("cat /proc/1/mounts").splitlines()]
        return {place: device for device, place, *_ in lines if place.startswith("/mnt/")}

    def wait_mounted(self, *names: str) -> None:
        """Waits until exactly these volumes are listed with their paths, mounted and linked for everybody."""
        for name in names:
            self.wait_guest(f"[ -L /media/{name} ]", LIMIT)
        wanted = sorted(names)
        listed: list[tuple[str, str, str]] = []

        def are_listed() -> bool:
            listed[:] = [(volume["name"], volume["mount_path"], volume["access_path"]) for volume in self.volumes()]
            return listed == [(name, f"/mnt/{name}", f"/media/{name}") for name in wanted]

        wait_until(are_listed, f"the volumes {wanted} in the list", LIMIT)
        mounted = {place: device for place, device in self.mounts().items() if place[5:7] in ("sd", "mm")}
        self.assertEqual({f"/mnt/{name}": f"/dev/{name}" for name in wanted}, mounted)
        for name in wanted:
            self.assertEqual(f"/mnt/{name}", self.sh(f"readlink /media/{name}").strip())


class RefusalsShow:
    """That what refused() looks for is what a refused call leaves."""

    def test_refusals_show(self: Any) -> None:
        unit = "/run/systemd/system/refused.service"
        self.sh(f"printf '[Service]\\nType=oneshot\\nSystemCallFilter=~mkdir mkdirat\\nSystemCallErrorNumber=kill\\n"
                f"ExecStart=mkdir /run/refused\\n' >{unit}; systemctl daemon-reload; ! systemctl start refused.service")
        wait_until(lambda: [line for line in self.refused() if "mkdir" in line], "the kernel's record of a refusal", LIMIT)
        self.sh(f"[ ! -e /run/refused ]; rm {unit}; systemctl daemon-reload; systemctl reset-failed")
        self._cursor = self.sh("journalctl -q -n 0 --show-cursor | sed -n 's/^-- cursor: //p'").strip()


class Boot(RefusalsShow, SystemdTestCase):
    """From boot to stop, with a crash between."""

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
        # The niceness, the 17th word behind the name, of the thread that reads uevents.
        self.assertEqual("-10", self.sh(f"sed -n 's/.*(EventLooper) //p' /proc/{self.main_pid()}/task/*/stat").split()[16])
        self.assertRegex(self.sh("cat /proc/modules"), r"(?m)^mmc_block ")

    def test_killed_daemon(self) -> None:
        """What a killed daemon left is cleared, nothing else, and what it had mounted comes back."""
        self.plug("stick")
        self.plug("card")
        self.wait_mounted("mmcblk0p1", "sda1")
        self.sh("mkdir /mnt/music /mnt/usbx /mnt/sdy1 /mnt/sdz1; touch /mnt/sdy1/kept; mount -t tmpfs radio /mnt/music; "
                "mount /dev/sda1 /mnt/usbx; ln -s /mnt/music /media/music; ln -s /home /media/sdw1; "
                "ln -s /mnt/sdz1 /media/sdz1")
        before = self.main_pid()
        mounts = self.sh("wc -l </proc/1/mounts")
        for number in (signal.SIGKILL, signal.SIGABRT):
            self.sh(f"kill -{int(number)} {before}")
            before = self.wait_up(other_than=before)
            self.wait_mounted("mmcblk0p1", "sda1")
            self.assertEqual(mounts, self.sh("wc -l </proc/1/mounts"))
        self.assertEqual("mmcblk0p1\nmusic\nsda1\nsdy1\nusbx\n", self.sh("ls /mnt"))
        self.assertEqual("mmcblk0p1\nmusic\nsda1\nsdw1\n", self.sh("ls /media"))
        self.assertEqual({"/mnt/music": "radio", "/mnt/usbx": "/dev/sda1", "/mnt/sda1": "/dev/sda1",
                          "/mnt/mmcblk0p1": "/dev/mmcblk0p1"}, self.mounts())
        self.sh("umount /mnt/music /mnt/usbx; rm -r /mnt/music /mnt/usbx /mnt/sdy1 /media/music /media/sdw1")

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


class Length(RefusalsShow, SystemdTestCase):
    """What takes more restarts than every change can wait for."""

    def test_hardware(self) -> None:
        """A stick, a stick behind a hub, a card and a phone, with every filter on."""
        self.plug("stick", label="MUSIC")
        hub = self.plug("hub", bus="xhci")
        self.plug("stick", bus="xhci", behind=hub.name, fs="ext4")
        self.plug("card", fs="exfat")
        self.wait_mounted("mmcblk0p1", "sda1", "sdb1")
        self.sh("echo works >/media/sda1/file && sync && cat /mnt/sda1/file")
        self.plug("phone")
        self.plug("android")

        def ids() -> dict[tuple[int, int], int]:
            listed = json.loads(self.sh("devicectl --json usb list"))["usb_devices"]
            return {(entry["vendor"], entry["product"]): entry["id"] for entry in listed}

        wait_until(lambda: {(0x05ac, 0x12a8), (0x18d1, 0x4ee1)} <= set(ids()), "the phones", LIMIT)
        self.sh(f"devicectl usb carplay {ids()[(0x05ac, 0x12a8)]} && devicectl usb aoa {ids()[(0x18d1, 0x4ee1)]}")
        # What the daemon's shell commands do: a network interface, a module, a partition table that is read again.
        self.sh("ip link add apple_usb0 type dummy && devicectl usb switch network")
        self.wait_guest("ip -o link show apple_usb0 | grep -q '[<,]UP[,>]'", LIMIT)
        self.sh("rmmod ohci_pci ohci_hcd; mkdir -p /usr/local/drivers; cp $(modinfo -n ohci_hcd) /usr/local/drivers; "
                "! grep ^ohci_hcd /proc/modules && devicectl stop usb && devicectl start usb")
        self.wait_guest("grep -q ^ohci_hcd /proc/modules", LIMIT)
        self.sh("echo online >/sys/block/sdb/uevent")
        wait_until(lambda: any("processUevent: volume device add path" in line for line in self.journal(DAEMON)),
                   "the uevent", LIMIT)
        self.wait_mounted("mmcblk0p1", "sda1", "sdb1")
        # Its signal catcher shows the stacks of all threads, for which it reads memory with care.
        before = self.main_pid()
        self.sh(f"kill {before}")
        self.wait_up(other_than=before)
        stacks = self.journal(DAEMON)
        self.assertIn("signalCatcher ProcessCallStack", stacks)
        self.assertTrue(any("epoll_wait" in line or "poll" in line for line in stacks), stacks)
        self.wait_mounted("mmcblk0p1", "sda1", "sdb1")

    def test_no_start_limit(self) -> None:
        """It comes back however often it ends, and however fast."""
        self.plug("stick")
        self.wait_mounted("sda1")
        self.sh(f"""for kill in 1 2 3 4 5 6 7 8; do
                old=$(systemctl show -p MainPID --value {DAEMON})
                kill -9 "$old"
                until new=$(systemctl show -p MainPID --value {DAEMON}); [ "$new" -ne 0 ] && [ "$new" -ne "$old" ]; do
                    sleep 0.2
                done
            done""", 2 * LIMIT)
        self.wait_up()
        self.wait_mounted("sda1")

    def test_disks_of_before(self) -> None:
        """What was there before the first start of a boot is not for the daemon, unless the unit's owner says so."""
        folder = f"/run/systemd/system/{START}.d"
        self.addCleanup(self.sh, f"rm -rf {folder}; systemctl daemon-reload")
        first = self.plug("stick")
        self.wait_mounted("sda1")
        for choice, names in (("", ["sdb1"]), ("--but-removable", ["sda1", "sdb1"])):
            # The record goes with the boot; all that is there then came before.
            self.sh(f"systemctl stop {DAEMON}; rm /run/device-service/present; mkdir -p {folder}; "
                    f"printf '[Service]\\nEnvironment=REPLUG_REMEMBER={choice}\\n' >{folder}/test.conf; "
                    f"systemctl daemon-reload; systemctl start {DAEMON}")
            before = self.wait_up()
            second = self.plug("stick")
            self.wait_mounted(*names)
            if not choice:
                self.sh(f"kill -9 {before}")
                self.wait_up(other_than=before)
                self.wait_mounted(*names)
            self.unplug(second.name)
            self.wait_guest("[ ! -e /dev/sdb ]", LIMIT)
        self.unplug(first.name)

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
        # The thread that reads uevents is ahead of the others by its own choice.
        for unit, others in ((DAEMON, ["EventLooper -10"]), (DIRECTORY, [])):
            pid = self.show(unit, "MainPID")["MainPID"]
            threads = self.sh(f"for task in /proc/{pid}/task/*; do "
                              "echo $(cat $task/comm) $(sed 's/.*) //' $task/stat | cut -d' ' -f17); done").splitlines()
            self.assertTrue(threads, unit)
            self.assertEqual(others, [thread for thread in threads if not thread.endswith(" 0")], unit)


if __name__ == "__main__":
    harness.main()
