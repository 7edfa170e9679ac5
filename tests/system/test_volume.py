# SPDX-License-Identifier: Apache-2.0
"""Volumes on the virtual head unit: real media come and go, and nothing is left behind.

One machine and one daemon serve all tests. A test that fails gives its machine up, and the next one boots a
fresh one: what it left behind must not fail the others.
"""

from __future__ import annotations

import gzip
import json
import re
import shutil
import struct
import unittest
import uuid
from collections.abc import Iterable
from pathlib import Path
from typing import Any

import harness
from harness import LIMIT, GuestTestCase, wait_until
from vm import media
from vm.guestlink import GuestProcess
from vm.machine import Machine
from vm.media import MIB, Partition
from vm.services import Services
from vm.session import Session

UNKNOWN = "unknown"
MOUNT_FLAGS = {"nosuid", "nodev", "noatime", "nodiratime", "dirsync"}
FIELDS = ("name", "label", "format", "identity", "mount_path", "access_path", "device", "disk")
FOLDER = "/run/media-images"  # of the guest
LONG_LIMIT = 120.0            # seconds for many volumes on emulated processors


class Stand:
    """A booted machine with daemon and client, which the tests share."""

    def __init__(self) -> None:
        self.session = Session()
        try:
            self.machine = Machine(self.session)
            self.machine.boot()
            self.services = Services(self.machine.guest, harness.build_dir)
            self.services.start()
            self.services.start_managers()
            self.client = self.services.monitor()
            self.machine.guest.run(["mkdir", "-p", FOLDER], LIMIT, check=True)
        except BaseException:
            self.close()
            raise
        self.images = 0

    def close(self) -> None:
        if hasattr(self, "machine"):
            self.machine.stop()
        self.session.close()


class VolumeTestCase(GuestTestCase):
    """Media, what the client hears, and what the daemon must not leave behind."""

    stand: Stand | None = None

    @classmethod
    def setUpClass(cls) -> None:
        unittest.TestCase.setUpClass()

    def setUp(self) -> None:
        unittest.TestCase.setUp(self)
        cls = VolumeTestCase
        if cls.stand is None:
            cls.stand = Stand()
        self.session = cls.stand.session
        self.machine = cls.stand.machine
        self.services = cls.stand.services
        self.client = cls.stand.client
        self._named: dict[str, GuestProcess] = {"client": self.client}
        assert self.services.daemon is not None
        self.daemon = self.services.daemon
        self._named["device-service"] = self.daemon
        self._heard = len(self.client.lines("stdout"))
        self._logged = len(self.daemon.lines("stderr"))
        self._nodes: dict[str, str] = {}
        self._before = self.footprint()
        self.addCleanup(self._give_up_after_failure)

    def tearDown(self) -> None:
        """Everything that was plugged goes, and nothing is left of it."""
        if self.has_failed:
            return
        for node in list(self._nodes):
            self.remove_node(node)
        self.machine.peripherals.unplug_all()
        self.wait_guest("! ls /sys/block /dev | grep -qE '^(sd|mmcblk)'", LONG_LIMIT)
        self.assert_nothing_left()

    @classmethod
    def give_up(cls) -> None:
        stand, VolumeTestCase.stand = VolumeTestCase.stand, None
        if stand is not None:
            stand.close()

    def _give_up_after_failure(self) -> None:
        if self.has_failed:
            self.give_up()

    # What the client hears and what the service answers.

    def events(self) -> list[dict[str, Any]]:
        """The volume events of this test."""
        lines = self.client.lines("stdout")[self._heard:]
        return [entry for entry in (json.loads(line.text) for line in lines) if entry["event"].startswith("volume-")]

    def changes(self) -> list[tuple[str, str]]:
        """The events as (added or removed, name)."""
        return [(entry["event"].removeprefix("volume-"), entry["name"]) for entry in self.events()]

    def wait_added(self, name: str, times: int = 1, timeout: float = LIMIT) -> dict[str, Any]:
        """Waits for the arrival of a volume whose name matches; returns its record."""
        return self._wait_event("volume-added", name, times, timeout)

    def wait_removed(self, name: str, times: int = 1, timeout: float = LIMIT) -> dict[str, Any]:
        return self._wait_event("volume-removed", name, times, timeout)

    def _wait_event(self, event: str, name: str, times: int, timeout: float) -> dict[str, Any]:
        def found() -> list[dict[str, Any]]:
            seen = [entry for entry in self.events() if entry["event"] == event and re.fullmatch(name, entry["name"])]
            return seen if len(seen) >= times else []
        return wait_until(found, f"{event} of {name} for the {times}. time; heard {self.changes()}", timeout)[times - 1]

    def heard_list(self) -> list[dict[str, Any]]:
        """What the client must hold for present, from all that it heard of this daemon."""
        present: dict[str, dict[str, Any]] = {}
        for line in self.client.lines("stdout"):
            entry = json.loads(line.text)
            if entry["event"] == "volume-added":
                self.assertNotIn(entry["name"], present, "added twice without a removal")
                present[entry["name"]] = {field: entry[field] for field in FIELDS}
            elif entry["event"] == "volume-removed":
                self.assertIn(entry["name"], present, "removed without an arrival")
                del present[entry["name"]]
        return [present[name] for name in sorted(present)]

    def volumes(self) -> list[dict[str, Any]]:
        """What the service lists."""
        done = self.services.devicectl("--json", "volumes", timeout=LIMIT, check=True)
        return json.loads(done.text)["volumes"]

    def assert_lists_equal(self) -> None:
        wait_until(lambda: self.volumes() == self.heard_list(), "the lists of service and client to be equal")

    def log(self) -> list[str]:
        """What the daemon logged during this test."""
        return [line.text for line in self.daemon.lines("stderr")[self._logged:]]

    def wait_log(self, text: str) -> None:
        wait_until(lambda: any(text in line for line in self.log()), f"the daemon to log: {text}")

    # What stands in the guest.

    def shell(self, script: str, timeout: float = LIMIT) -> str:
        return self.run_guest(["sh", "-c", script], timeout, check=True).text

    def mounts(self) -> dict[str, tuple[str, str, set[str]]]:
        """What is mounted below /mnt: device, type and options by mount point."""
        found = (line.split() for line in self.shell("cat /proc/mounts").splitlines())
        return {words[1]: (words[0], words[2], set(words[3].split(","))) for words in found
                if words[1].startswith("/mnt/")}

    def leftovers(self) -> str:
        return self.shell("grep ' /mnt/' /proc/mounts; ls -A /mnt /media | grep -v '^/mnt:\\|^/media:\\|^$'; true")

    def footprint(self) -> dict[str, Any]:
        """What the daemon holds: descriptors, and its own threads by name; the pool's may grow."""
        pid = self.daemon.pid
        text = self.shell(f"ls /proc/{pid}/fd | wc -l; cat /proc/{pid}/task/*/comm")
        count, *threads = text.splitlines()
        own = sorted(name for name in threads if not name.startswith("Binder:"))
        return {"descriptors": int(count), "threads": own}

    def assert_nothing_left(self) -> None:
        wait_until(lambda: self.heard_list() == [], "the client to have heard of every removal", LONG_LIMIT)
        wait_until(lambda: self.volumes() == [], "the service's list to be empty")
        self.assertEqual("", self.leftovers())
        wait_until(lambda: self.footprint() == self._before,
                   f"the daemon to hold what it held: {self._before}, now {self.footprint()}")
        self.assertIsNone(self.daemon.returncode)

    def assert_mounted(self, record: dict[str, Any], kind: str, writable: bool = True) -> None:
        """Mounted where the record says, with the daemon's options, reachable through the link."""
        name = record["name"]
        self.assertEqual((f"/mnt/{name}", f"/media/{name}", f"/dev/{name}", kind),
                         (record["mount_path"], record["access_path"], record["device"], record["format"]))
        device, mounted_as, options = self.mounts()[f"/mnt/{name}"]
        self.assertEqual((f"/dev/{name}", kind), (device, mounted_as))
        self.assertLessEqual(MOUNT_FLAGS - {"dirsync"}, options)
        self.assertIn("rw" if writable else "ro", options)
        if writable and kind != "exfat":
            self.assertIn("dirsync", options)
        self.assertEqual(f"/mnt/{name}\n", self.shell(f"readlink /media/{name}"))
        if writable:
            self.assertEqual("hello\n", self.shell(f"echo hello >/media/{name}/note && cat /mnt/{name}/note"))

    def blkid(self, device: str) -> dict[str, str]:
        text = self.shell(f"blkid -p -o export {device}")
        return dict(line.split("=", 1) for line in text.splitlines() if "=" in line)

    # Media.

    def image(self, **options: Any) -> Path:
        """A medium made here, for plug(image=...) or for add_node()."""
        assert self.stand is not None
        self.stand.images += 1
        return media.make(self.session.work / f"made-{self.stand.images}.img", **options)

    def blank(self, size_mib: int) -> Path:
        return self.image(size_mib=size_mib, fs="none", partitioned=False)

    def add_node(self, name: str, image: Path) -> None:
        """Puts an image behind a loop device whose node in /dev is called name."""
        file = f"{FOLDER}/{image.name}"
        self.guest.write_file(f"{file}.gz", gzip.compress(image.read_bytes(), 1))
        image.unlink()
        self._nodes[name] = self.shell(
            f"zcat {file}.gz | dd of={file} bs=64k conv=sparse 2>/dev/null; rm {file}.gz; "
            f"loop=$(losetup -f --show {file}) && mknod /dev/{name} b 7 ${{loop#/dev/loop}} && echo $loop").strip()

    def remove_node(self, name: str) -> None:
        loop = self._nodes.pop(name)
        # The kernel keeps the loop device until the daemon let go of it.
        self.shell(f"file=$(losetup -n -O BACK-FILE {loop}); rm /dev/{name} $file; losetup -d {loop}")


class Media(VolumeTestCase):
    def test_stick_and_card_at_once(self) -> None:
        stick = self.plug("stick", label="TRAVEL")
        card = self.plug("card", fs="ext4", label="photos")
        on_stick = self.wait_added("sd[a-z]+1")
        on_card = self.wait_added("mmcblk0p1")
        self.assert_mounted(on_stick, "vfat")
        self.assert_mounted(on_card, "ext4")
        self.assertEqual(("TRAVEL", "photos"), (on_stick["label"], on_card["label"]))
        for record in (on_stick, on_card):
            found = self.blkid(record["device"])
            self.assertEqual(f"{found['PART_ENTRY_UUID']}-{found['UUID']}", record["identity"])
        self.assertEqual("/dev/mmcblk0", on_card["disk"])
        self.assertEqual(on_stick["device"][:-1], on_stick["disk"])
        self.assert_lists_equal()
        table = self.services.devicectl("volumes", check=True).text.splitlines()
        self.assertEqual(["NAME", "LABEL", "FORMAT", "IDENTITY", "MOUNT PATH", "ACCESS PATH", "DEVICE", "DISK"],
                         re.split(" {2,}", table[0]))
        self.assertEqual([[record[field] for field in FIELDS] for record in (on_card, on_stick)],
                         [re.split(" {2,}", line) for line in table[1:]])

        self.unplug(stick.name)
        self.wait_removed(on_stick["name"])
        self.assertEqual([on_card], self.with_events(self.volumes(), on_card))
        self.unplug(card.name)
        self.wait_removed("mmcblk0p1")

    @staticmethod
    def with_events(records: list[dict[str, Any]], event: dict[str, Any]) -> list[dict[str, Any]]:
        """The records as that event told them."""
        of_event = {key: event[key] for key in ("schemaVersion", "event", "time")}
        return [{**of_event, **record} for record in records]

    def test_without_partition_table(self) -> None:
        for kind in ("vfat", "exfat", "ext4"):
            with self.subTest(kind):
                stick = self.plug("stick", fs=kind, partitioned=False, label="WHOLE", size_mib=32)
                record = self.wait_added("sd[a-z]+", len(self.added_disks()) + 1)
                self.assert_mounted(record, kind)
                self.assertEqual("WHOLE", record["label"])
                self.assertEqual(self.blkid(record["device"])["UUID"], record["identity"])
                self.assert_lists_equal()
                self.unplug(stick.name)
                self.wait_removed(record["name"], len(self.added_disks()))

    def added_disks(self) -> list[str]:
        return [name for change, name in self.changes() if change == "added"]

    def test_iso_9660_is_mounted_for_reading(self) -> None:
        self.plug("stick", fs="iso9660", partitioned=False, label="DISC", size_mib=16)
        record = self.wait_added("sd[a-z]+")
        self.assert_mounted(record, "iso9660", writable=False)
        self.assertEqual("DISC", record["label"])
        self.assertEqual("A disc.\n", self.shell(f"cat {record['access_path']}/readme.txt"))
        self.wait_log(f"Read-only file system[/dev/{record['name']}] format[iso9660] label[DISC], "
                      f"try mount[/mnt/{record['name']}]!")

    def test_write_protected_stick(self) -> None:
        self.plug("stick", write_protected=True, label="LOCKED")
        record = self.wait_added("sd[a-z]+1")
        self.assert_mounted(record, "vfat", writable=False)
        self.assertNotEqual(0, self.run_guest(["touch", f"{record['access_path']}/x"]).returncode)
        self.wait_log(f"Read-only file system[{record['device']}] format[vfat] label[LOCKED], ")

    def test_gpt_with_named_partitions(self) -> None:
        first, second = str(uuid.uuid4()), str(uuid.uuid4())
        parts = [Partition("exfat", "Inside", "Music & more", first), Partition("ext4", "plain", "", second)]
        self.plug("stick", table="gpt", partitions=parts, size_mib=64)
        named, plain = self.wait_added("sd[a-z]+1"), self.wait_added("sd[a-z]+2")
        self.assert_mounted(named, "exfat")
        self.assert_mounted(plain, "ext4")
        # The entry's name comes first, the file system's label where there is none.
        self.assertEqual(("Music & more", "plain"), (named["label"], plain["label"]))
        for record, entry in ((named, first), (plain, second)):
            self.assertEqual(f"{entry}-{self.blkid(record['device'])['UUID']}", record["identity"])
            self.assertEqual(record["device"][:-1], record["disk"])
        self.assert_lists_equal()

    def test_unformatted_partition_is_a_volume_without_format(self) -> None:
        self.plug("stick", fs="none")
        record = self.wait_added("sd[a-z]+1")
        for key in ("format", "mount_path", "access_path"):
            self.assertEqual(UNKNOWN, record[key], key)
        self.assertEqual(record["name"], record["device"].removeprefix("/dev/"))
        self.assertEqual({}, self.mounts())
        self.assert_lists_equal()

    def test_garbage_is_a_volume_without_format(self) -> None:
        image = self.blank(8)
        with open(image, "r+b") as file:
            file.write(b"\xa5\x5a\x13\x37" * 262144)
        self.plug("stick", image=image)
        record = self.wait_added("sd[a-z]+")
        self.assertEqual((UNKNOWN, UNKNOWN), (record["format"], record["mount_path"]))
        self.assertEqual({}, self.mounts())

    def test_two_file_systems_in_one_place_are_a_placeholder(self) -> None:
        # What it is cannot be told: the probe fails.
        image = self.image(size_mib=64, fs="ext4", partitioned=False)
        with open(image, "rb") as file:
            superblock = file.read(2048)[1024:]
        media.make(image, size_mib=64, fs="vfat", partitioned=False)
        with open(image, "r+b") as file:
            file.seek(1024)
            file.write(superblock)
        self.plug("stick", image=image)
        record = self.wait_added("sd[a-z]+")
        self.assert_placeholder(record)
        self.assertTrue(any("blkid do probe fail" in line for line in self.log()))

    def test_empty_card_reader_is_a_placeholder(self) -> None:
        reader = self.plug("reader")
        record = self.wait_added("sd[a-z]+")
        self.assert_placeholder(record)
        self.wait_log(f"open device path: {record['device']} error[No medium found]")
        self.unplug(reader.name)
        self.wait_removed(record["name"])

    def assert_placeholder(self, record: dict[str, Any]) -> None:
        name = record["name"]
        self.assertEqual({"device": f"/dev/{name}", "name": name, **dict.fromkeys(
            ("label", "format", "identity", "mount_path", "access_path", "disk"), UNKNOWN)},
            {field: record[field] for field in FIELDS})
        self.wait_log(f"unknown device (path[/dev/{name}] name[{name}]) add, make a fake volume")
        self.assertEqual({}, self.mounts())
        self.assert_lists_equal()

    def test_ten_times_in_a_row(self) -> None:
        original = self.image(size_mib=16, label="AGAIN")
        identities = set()
        for number in range(1, 11):
            copy = original.with_suffix(f".{number}")
            shutil.copy(original, copy)
            stick = self.plug("stick", image=copy)
            record = self.wait_added("sd[a-z]+1", number)
            self.assertEqual(f"/mnt/{record['name']}", record["mount_path"])
            identities.add(record["identity"])
            self.unplug(stick.name)
            self.wait_removed("sd[a-z]+1", number)
        self.assertEqual(1, len(identities), identities)
        self.assertEqual(["added", "removed"] * 10, [change for change, _ in self.changes()])

    def test_two_sticks_with_the_same_label(self) -> None:
        original = self.image(size_mib=16, label="TWIN")
        copy = original.with_suffix(".twin")
        shutil.copy(original, copy)
        first, second = self.plug("stick", image=original), self.plug("stick", image=copy)
        self.wait_added("sd[a-z]+1", 2)
        records = self.volumes()
        self.assertEqual(["TWIN"] * 2, [record["label"] for record in records])
        self.assertEqual(2, len({record["access_path"] for record in records}))
        for record in records:
            self.assert_mounted(record, "vfat")
        self.unplug(first.name)
        gone = self.wait_removed("sd[a-z]+1")["name"]
        self.assertEqual([record for record in records if record["name"] != gone], self.volumes())
        self.unplug(second.name)
        self.wait_removed("sd[a-z]+1", 2)

    def test_eight_sticks_behind_a_hub(self) -> None:
        hub = self.plug("hub", bus="xhci")
        self.wait_guest("grep -qs QEMU.USB.Hub /sys/bus/usb/devices/*/product")
        for number in range(8):
            self.plug("stick", behind=hub.name, size_mib=8, label=f"EIGHT{number}", image=None)
        self.wait_added("sd[a-z]+1", 8, LONG_LIMIT)
        records = self.volumes()
        self.assertEqual({f"EIGHT{number}" for number in range(8)}, {record["label"] for record in records})
        self.assertEqual({record["mount_path"] for record in records}, set(self.mounts()))
        self.assert_lists_equal()
        self.unplug(hub.name)
        self.wait_removed("sd[a-z]+1", 8, LONG_LIMIT)
        self.assertEqual(16, len(self.changes()))


class SurpriseRemoval(VolumeTestCase):
    def pull_out_under(self, script: str, kind: str) -> None:
        """Runs a script that uses the volume $1, pulls the stick out under it, and waits for both ends."""
        stick = self.plug("stick", fs=kind)
        record = self.wait_added("sd[a-z]+1")
        self.shell(f"dd if=/dev/urandom of={record['access_path']}/data bs=64k count=32 2>/dev/null; sync")
        user = self.spawn(["sh", "-c", script, "user", record["access_path"]], name=f"user-{kind}")
        user.wait_for("^busy$", LIMIT, stream="stdout")
        self.unplug(stick.name)
        self.wait_removed(record["name"])
        self.assertEqual(0, user.wait(LIMIT), "the client of the files ends")
        self.wait_guest("! ls /sys/block /dev | grep -qE '^sd'")
        self.assertEqual([("added", record["name"]), ("removed", record["name"])], self.changes())
        self.assert_nothing_left()

    def test_while_a_client_reads(self) -> None:
        self.pull_out_under("while dd if=$1/data of=/dev/null bs=64k iflag=direct 2>/dev/null; do echo busy; done; "
                            "exit 0", "vfat")

    def test_while_a_client_writes(self) -> None:
        self.pull_out_under("while dd if=/dev/zero of=$1/more bs=64k count=4 conv=fsync 2>/dev/null; do echo busy; "
                            "done; exit 0", "vfat")

    def test_while_a_client_stands_in_a_folder(self) -> None:
        # It holds the file system for as long as it lives; daemon and clients do not wait for it.
        stick = self.plug("stick", fs="ext4")
        record = self.wait_added("sd[a-z]+1")
        holder = self.spawn(["sh", "-c", f"cd {record['access_path']}/ && exec 3>held && echo busy && read line"],
                            name="holder", stdin=True)
        holder.wait_for("^busy$", LIMIT, stream="stdout")
        self.unplug(stick.name)
        self.wait_removed(record["name"])
        wait_until(lambda: self.leftovers() == "", "mount, link and directory to go")
        self.assertIsNone(holder.returncode)
        holder.close_stdin()
        holder.wait(LIMIT)


class Tables(VolumeTestCase):
    def test_rewritten_under_the_daemon(self) -> None:
        image = self.image(size_mib=32, partitions=[Partition("none"), Partition("vfat", "SECOND")])
        length = (32 * MIB // media.SECTOR - 2048) // 2 // 2048 * 2048
        media.write_dos_table(image, [(0x83, 2048, length)])
        self.plug("stick", image=image)
        only = self.wait_added("sd[a-z]+1")
        disk = only["disk"]
        table = f"2048,{length},83\\n{2048 + length},{length},c\\n"
        # Whoever looks at the disk just then keeps the kernel from taking the new table.
        self.shell(f"for attempt in 1 2 3 4 5 6 7 8 9 10; do udevadm settle; printf '{table}' | "
                   f"sfdisk -q --wipe never --wipe-partitions never {disk} && exit 0; sleep 0.5; done; exit 1")
        self.wait_added("sd[a-z]+2")
        # The guest's device manager has the table read once more when the disk was written: all comes and goes again.
        self.shell("udevadm settle", LONG_LIMIT)
        disk_name = disk.removeprefix("/dev/")

        def both() -> list[dict[str, Any]]:
            listed = self.volumes()
            names = [record["name"] for record in listed]
            there = names == [f"{disk_name}1", f"{disk_name}2"] and listed[1]["mount_path"] in self.mounts()
            return listed if there and listed == self.heard_list() else []
        second = wait_until(both, "both partitions to be listed and the second to be mounted")[1]
        self.assertEqual("SECOND", second["label"])
        self.assert_mounted(second, "vfat")
        self.assert_lists_equal()
        # One goes while the other is in use.
        self.shell(f"udevadm settle; partx -d --nr 1 {disk}")
        wait_until(lambda: [record["name"] for record in self.volumes()] == [second["name"]], "the first to go")
        self.assert_lists_equal()
        self.assertEqual({second["mount_path"]}, set(self.mounts()))

    def test_entries_that_overlap_and_pass_the_end(self) -> None:
        image = self.image(size_mib=16, label="INNER")
        media.write_dos_table(image, [(0x0C, 2048, 30720), (0x0C, 2048, 20480), (0x83, 1, 0xFFFFFFF0),
                                      (0x83, 0xFFFFFF00, 0xFF)])
        self.plug("stick", image=image)
        record = self.wait_added("sd[a-z]+1")
        self.assertEqual("INNER", record["label"])
        self.assert_lists_equal()
        self.shell("udevadm settle")

    def test_endless_chain_of_extended_entries(self) -> None:
        image = self.blank(16)
        media.write_dos_table(image, [(0x05, 2048, 30720)])
        # The second record of the chain points to itself.
        media.write_dos_table(image, [(0x83, 1, 64), (0x05, 0, 30720)], sector=2048)
        self.plug("stick", image=image)
        self.wait_added("sd[a-z]+5")
        self.assert_lists_equal()

    def test_gpt_that_claims_too_much(self) -> None:
        image = self.image(size_mib=16, table="gpt", label="CLAIM")
        with open(image, "r+b") as file:
            # Number and size of the entries. The checksum fits no more: only the table's copy is intact, which
            # libblkid takes and the kernel does not, so the disk has a table and no partition.
            file.seek(512 + 80)
            file.write(struct.pack("<II", 0xFFFFFFFF, 0xFFFFFFFF))
        self.plug("stick", image=image)
        wait_until(lambda: any(re.search(r"volume mbr add path\[/dev/sd[a-z]+\]", line) for line in self.log()),
                   "the disk to be looked at")
        # The fence: what the first one brought would be heard before it.
        self.plug("stick", label="FENCE", size_mib=16)
        self.assertEqual("FENCE", self.wait_added("sd[a-z]+1")["label"])
        self.assertEqual(1, len(self.changes()))
        self.assert_lists_equal()


class Nodes(VolumeTestCase):
    """Through nodes of loop devices: names and file systems that no stick can be given."""

    def test_name_with_more_than_one_letter(self) -> None:
        self.add_node("sdaab12", self.image(size_mib=8, partitioned=False, label="FAR"))
        record = self.wait_added("sdaab12")
        self.assert_mounted(record, "vfat")
        self.remove_node("sdaab12")
        self.wait_removed("sdaab12")

    def test_mount_point_that_exists_already(self) -> None:
        self.shell("mkdir /mnt/sdm1 && echo own >/mnt/sdm1/own")
        self.addCleanup(self.clean_up, "rm -rf /mnt/sdm1")
        self.add_node("sdm1", self.image(size_mib=8, partitioned=False))
        record = self.wait_added("sdm1")
        self.assertEqual((UNKNOWN, UNKNOWN, "vfat"), (record["mount_path"], record["access_path"], record["format"]))
        self.assertEqual({}, self.mounts())
        self.remove_node("sdm1")
        self.wait_removed("sdm1")
        self.assertEqual("own\n", self.shell("cat /mnt/sdm1/own"), "what is not the daemon's stays")
        self.shell("rm -r /mnt/sdm1")

    def test_link_that_exists_already(self) -> None:
        self.shell("mkdir /media/sdm2 && echo own >/media/sdm2/own")
        self.addCleanup(self.clean_up, "rm -rf /media/sdm2")
        self.add_node("sdm2", self.image(size_mib=8, partitioned=False))
        record = self.wait_added("sdm2")
        self.assertEqual(("/mnt/sdm2", UNKNOWN), (record["mount_path"], record["access_path"]))
        self.wait_log("Unable to link [/mnt/sdm2] to [/media/sdm2] err(File exists)")
        self.remove_node("sdm2")
        self.wait_removed("sdm2")
        wait_until(lambda: self.mounts() == {}, "the unmount")
        self.assertEqual("own\n", self.shell("cat /media/sdm2/own"), "what is not the daemon's stays")
        self.shell("rm -r /media/sdm2")

    def clean_up(self, script: str) -> None:
        if not self.has_failed:
            self.shell(script)

    def test_file_system_that_claims_more_than_the_disk(self) -> None:
        for number, kind in enumerate(("ext4", "vfat", "exfat")):
            with self.subTest(kind):
                image = self.image(size_mib=32, fs=kind, partitioned=False, label="TOO BIG")
                with open(image, "r+b") as file:
                    file.truncate(4 * MIB)
                name = f"sdt{number}"
                self.add_node(name, image)
                record = self.wait_added(name)
                self.assertEqual(kind, record["format"])
                self.assertEqual(record["mount_path"] != UNKNOWN, f"/mnt/{name}" in self.mounts())
                self.remove_node(name)
                self.wait_removed(name)

    def test_labels_made_to_hurt(self) -> None:
        labels = {
            "sdh1": b"\x1b[2J\x07\n\r\t\x7f\x01'\"\\",
            "sdh2": b"$(touch /x)`id`;",
            "sdh3": b"../../../../etc",
            "sdh4": b"\xff\xfe\x80\xc3(\xed\xa0\x80",
            "sdh5": b"%s%n%x%s%s%n%p",
            "sdh6": b" blanks  ",
        }
        human = self.spawn([self.program("devicectl"), "monitor", "--properties"], name="human")
        human.wait_for("DeviceManager reports to this monitor", LIMIT, stream="stdout")
        self.addCleanup(human.kill)
        before = self.shell("ls -A / /etc | sort")
        for name, label in labels.items():
            image = self.image(size_mib=4, fs="ext4", partitioned=False)
            # Where the superblock has its volume name; without the checksum that it would need.
            with open(image, "r+b") as file:
                file.seek(1024 + 100)
                features = struct.unpack("<I", file.read(4))[0] & ~0x400
                file.seek(1024 + 100)
                file.write(struct.pack("<I", features))
                file.seek(1024 + 120)
                file.write(label.ljust(16, b"\0")[:16])
            self.add_node(name, image)
        for name, label in labels.items():
            with self.subTest(name):
                record = self.wait_added(name)
                self.assertEqual(label.decode("utf-8", "replace").rstrip(" "), record["label"].rstrip(" "))
                self.assertEqual((f"/media/{name}", f"/mnt/{name}"), (record["access_path"], record["mount_path"]))
        self.assert_lists_equal()
        human.wait_for("added +volume +sdh6 ", LIMIT, stream="stdout")
        shown = human.output() + self.services.devicectl("volumes", check=True).stdout
        self.assertTrue(all(byte >= 32 and byte != 127 or byte == 10 for byte in shown), shown)
        for name in labels:
            self.remove_node(name)
            self.wait_removed(name)
        self.assertEqual(before, self.shell("ls -A / /etc | sort"), "no label became a path or a command")
        human.kill()
        human.wait(LIMIT)

    def test_label_of_255_characters(self) -> None:
        image = self.blank(8)
        with open(image, "r+b") as file:
            # As much of an F2FS superblock as its recognition looks at; the volume name is UTF-16.
            file.seek(1024)
            file.write(struct.pack("<IHH", 0xF2F52010, 1, 1))
            file.seek(1024 + 108)
            file.write(uuid.uuid4().bytes + ("L" * 255).encode("utf-16-le"))
        self.add_node("sdl1", image)
        record = self.wait_added("sdl1")
        self.assertEqual(("f2fs", "L" * 255, UNKNOWN), (record["format"], record["label"], record["mount_path"]))
        self.assert_lists_equal()

    def test_names_of_partition_entries_made_to_hurt(self) -> None:
        names = ["\x1b[31m\n\"'$(reboot)`", "\u202e\u2066\ufeffx", "\U0001f697" * 18]
        parts = [Partition("vfat", f"P{number}") for number in range(3)]
        image = self.image(size_mib=32, table="gpt", partitions=parts)
        self.rename_entries(image, names)
        self.plug("stick", image=image)
        for number, name in enumerate(names, 1):
            record = self.wait_added(f"sd[a-z]+{number}")
            self.assertEqual(f"/media/{record['name']}", record["access_path"])
            # libblkid has characters that are not printable its own way.
            self.assertEqual(self.shell(f"lsblk -n -o PARTLABEL /dev/{record['name']} | wc -l"), "1\n")
            self.assertNotEqual(f"P{number - 1}", record["label"], "the entry's name goes before the label")
            if number == 3:
                self.assertEqual(name, record["label"])
        self.assert_lists_equal()

    @staticmethod
    def rename_entries(image: Path, names: Iterable[str]) -> None:
        """Writes names into both copies of a GPT, with the checksums that they need."""
        import zlib
        data = bytearray(image.read_bytes())
        for header in (512, len(data) - 512):
            size, = struct.unpack_from("<I", data, header + 12)
            table, count, width = struct.unpack_from("<QII", data, header + 72)
            for number, name in enumerate(names):
                text = name.encode("utf-16-le")[:72].ljust(72, b"\0")
                start = table * 512 + number * width + 56
                data[start:start + 72] = text
            struct.pack_into("<I", data, header + 88, zlib.crc32(data[table * 512:table * 512 + count * width]))
            struct.pack_into("<I", data, header + 16, 0)
            struct.pack_into("<I", data, header + 16, zlib.crc32(data[header:header + size]))
        image.write_bytes(data)


class Managers(VolumeTestCase):
    def test_stop_and_start_again(self) -> None:
        threads = set(self._before["threads"])
        self.assertLessEqual({"ObserverThread", "VolumeDetectorQ", "VolumeManagerQu"}, threads)
        self.services.devicectl("stop", "volume", check=True)
        wait_until(lambda: set(self.footprint()["threads"]).isdisjoint(
            {"ObserverThread", "VolumeDetectorQ", "VolumeManagerQu"}), "the volume manager's threads to end")
        stick = self.plug("stick", label="UNSEEN", size_mib=16)
        self.wait_guest("[ -b /dev/sda1 ]")
        self.unplug(stick.name)
        self.wait_guest("! ls /sys/block /dev | grep -qE '^sd'")
        self.services.devicectl("start", "volume", check=True)
        # The fence: what came before would be heard before it.
        self.plug("stick", label="SEEN", size_mib=16)
        self.assertEqual("SEEN", self.wait_added("sd[a-z]+1")["label"])
        self.assertEqual(1, len(self.changes()))
        self.assert_lists_equal()

    def test_dump_in_both_forms(self) -> None:
        self.assertEqual([], self.volumes())
        self.assertEqual("-[volume.VolumeManager]-\ndump volume sample\n",
                         self.services.devicectl("dump", "VolumeManager", check=True).text)
        text = self.services.devicectl("dump", "VolumeManager", "notifier", check=True).text
        self.assertRegex(text, r"^-\[volume\.VolumeManager\]-\nnotifier size\[1\]\nnotifier\[0x[0-9a-f]{8}\] "
                               rf"pid\[{self.client.pid}\] \n$")

    def test_a_client_that_dies_is_dropped(self) -> None:
        other = self.spawn([self.program("devicectl"), "monitor", "--json"], name="dies")
        other.wait_for(r'"DeviceManager","state":"up"', LIMIT, stream="stdout")
        other.kill(9)
        wait_until(lambda: any(line.startswith("IVolumeManager W ") and
                               line.endswith(f"Application PID[{other.pid}] die") for line in self.log()),
                   "the daemon to see the death")
        wait_until(lambda: "notifier size[1]\n" in self.services.devicectl(
            "dump", "VolumeManager", "notifier", check=True).text, "the entry to go")


def tearDownModule() -> None:  # noqa: N802
    VolumeTestCase.give_up()


if __name__ == "__main__":
    harness.main()
