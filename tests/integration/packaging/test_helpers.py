# SPDX-License-Identifier: Apache-2.0
"""The helper programs and the units, as they are installed. Runs as root in a mount namespace of its own: what lies
below /mnt, /media, /run, /dev and /sys/block is the test's."""

from __future__ import annotations

import argparse
import ctypes
import os
import re
import select
import shutil
import struct
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[3]
HELPERS = ("check-kernel", "clear-volumes", "replug-volumes", "start-managers")
DAEMON_FLAGS = "nosuid,nodev,noatime,nodiratime"
IN_CREATE = 0x100
IN_DELETE = 0x200
# What gives a service a mount namespace of its own, in which nobody else would see what the daemon mounts.
HIDING = ("BindPaths BindReadOnlyPaths DynamicUser ExecPaths ExtensionDirectories ExtensionImages InaccessiblePaths "
          "LogNamespace MountAPIVFS MountFlags MountImages NetworkNamespacePath NoExecPaths PrivateDevices PrivateIPC "
          "PrivateMounts PrivateNetwork PrivateTmp PrivateUsers ProcSubset ProtectControlGroups ProtectHome "
          "ProtectKernelLogs ProtectKernelModules ProtectKernelTunables ProtectProc ProtectSystem ReadOnlyPaths "
          "ReadWritePaths RootDirectory RootImage TemporaryFileSystem").split()

build = ROOT / "build/dev"
installed = Path()


def setUpModule() -> None:  # noqa: N802
    global installed
    assert os.geteuid() == 0, "this test needs root"
    assert os.readlink("/proc/self/ns/mnt") != os.readlink(f"/proc/{os.getppid()}/ns/mnt"), \
        "this test needs a mount namespace of its own: run it by ctest"
    installed = Path(tempfile.mkdtemp(prefix="headunit-helpers-"))
    unittest.addModuleCleanup(shutil.rmtree, installed)
    subprocess.run(["cmake", "-DCMAKE_INSTALL_PREFIX=/usr", "-P", str(build / "packaging/cmake_install.cmake")],
                   env={**os.environ, "DESTDIR": str(installed)}, stdout=subprocess.DEVNULL, check=True)


def run(name: str, *arguments: str, **environment: str) -> subprocess.CompletedProcess[str]:
    return subprocess.run([str(installed / "usr/libexec/device-service" / name), *arguments], text=True, timeout=60,
                          env={**os.environ, **environment}, stdout=subprocess.PIPE, stderr=subprocess.PIPE)


def mount(source: str, place: Path, options: str = "defaults") -> None:
    """Mounts a memory file system that calls itself mounted from the source."""
    place.mkdir(parents=True, exist_ok=True)
    subprocess.run(["mount", "-t", "tmpfs", "-o", options, source, str(place)], check=True)


def fresh(test: unittest.TestCase, *folders: str) -> None:
    for folder in folders:
        mount("test", Path(folder))
        test.addCleanup(subprocess.run, ["umount", "-R", folder], check=True)


def tree(folder: str) -> list[str]:
    return sorted(str(path) for path in Path(folder).rglob("*"))


class Common(unittest.TestCase):
    def test_help_and_wrong_use(self) -> None:
        for name in HELPERS:
            with self.subTest(helper=name):
                shown = run(name, "--help")
                self.assertEqual((0, ""), (shown.returncode, shown.stderr))
                self.assertTrue(shown.stdout.startswith(f"usage: {name}"), shown.stdout)
                for arguments in (("--nonsense",), ("--help", "more"), ("--wait",), ("--wait", "soon")):
                    wrong = run(name, *arguments)
                    if arguments == ("--help", "more") and wrong.returncode == 0:
                        continue
                    self.assertEqual((64, "", shown.stdout), (wrong.returncode, wrong.stdout, wrong.stderr), arguments)

    def test_shellcheck(self) -> None:
        maintainer = sorted((ROOT / "packaging/debian").glob("*/*"))
        self.assertGreaterEqual(len(maintainer), 6)
        helpers = sorted((installed / "usr/libexec/device-service").iterdir())
        self.assertEqual(sorted(HELPERS), [path.name for path in helpers])
        done = subprocess.run(["shellcheck", "-s", "sh", *map(str, [*helpers, *maintainer])], text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.assertEqual((0, ""), (done.returncode, done.stdout))

    def test_nothing_hides_the_mounts(self) -> None:
        text = (installed / "usr/lib/systemd/system/device-service.service").read_text(encoding="ascii")
        options = {line.split("=", 1)[0] for line in text.splitlines() if "=" in line and not line.startswith("#")}
        self.assertIn("CapabilityBoundingSet", options)
        self.assertEqual(set(), options & set(HIDING))

    def test_every_restriction_has_its_reason(self) -> None:
        """docs/systemd.md tells why the daemon may do what it may: no more and no less than the unit allows."""
        page = (ROOT / "docs/systemd.md").read_text(encoding="utf-8").split("## What the daemon may do")[1].split("\n## ")[0]
        parts = dict(re.findall(r"^\*\*([A-Za-z ]+)\*\*.*?$(.*?)(?=^\*\*|\Z)", page, re.MULTILINE | re.DOTALL))
        cells = {title: {word for row in re.findall(r"^\| (`.*?) \|", part, re.MULTILINE)
                         for code in re.findall(r"`([^`]+)`", row) for word in code.split()}
                 for title, part in parts.items()}
        text = (installed / "usr/lib/systemd/system/device-service.service").read_text(encoding="ascii")
        service = text.split("[Service]")[1].split("[Install]")[0]
        options = [tuple(line.split("=", 1)) for line in service.splitlines() if "=" in line and line[0] != "#"]

        def values(wanted: str) -> set[str]:
            return {word for name, value in options if name == wanted for word in value.lstrip("~").split()}

        self.assertEqual(values("CapabilityBoundingSet"), cells["Capabilities"])
        self.assertEqual({value.split()[0] for name, value in options if name == "DeviceAllow"}, cells["Devices"])
        self.assertEqual(values("SystemCallFilter"), cells["System calls"] | {"setns", "unshare"})
        self.assertIn("without `setns unshare`", parts["System calls"])
        told = {name for name, _ in options if f"`{name}" in page}
        sandbox = {name for name, _ in options
                   if not name.startswith(("Exec", "Restart", "Timeout")) and name not in ("Type", "CapabilityBoundingSet",
                                                                                           "DeviceAllow", "SystemCallFilter")}
        self.assertGreater(len(sandbox), 8)
        self.assertEqual(set(), sandbox - told)

    def test_units_are_understood(self) -> None:
        """systemd passes over what it does not understand, a misspelt restriction too; its own checker complains."""
        units = sorted((installed / "usr/lib/systemd/system").iterdir())
        self.assertEqual(4, len(units))
        for program in ("device-service", "servicemanager"):
            place = installed / "usr/sbin" / program
            place.parent.mkdir(exist_ok=True)
            shutil.copy("/bin/true", place)
            self.addCleanup(place.unlink)

        def verify() -> tuple[int, str]:
            done = subprocess.run(["systemd-analyze", "verify", "--man=no", "--recursive-errors=no",
                                   f"--root={installed}", *(unit.name for unit in units)], text=True,
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
            return done.returncode, done.stdout

        self.assertEqual((0, ""), verify())
        broken = units[0].with_name("servicemanager.service")
        text = broken.read_text(encoding="ascii")
        self.addCleanup(broken.write_text, text, encoding="ascii")
        broken.write_text(text.replace("NoNewPrivileges=yes", "NoNewPrivilege=yes"), encoding="ascii")
        self.assertIn("NoNewPrivilege", verify()[1])

    def test_paths_are_filled_in(self) -> None:
        files = [path for path in (installed / "usr").rglob("*") if path.is_file()]
        self.assertGreaterEqual(len(files), 11)
        for path in files:
            self.assertNotRegex(path.read_text(encoding="ascii"), r"@[A-Z]+@", str(path))


class ClearVolumes(unittest.TestCase):
    def setUp(self) -> None:
        fresh(self, "/mnt", "/media")

    def leave(self, name: str, options: str = DAEMON_FLAGS, source: str | None = None) -> None:
        """What a killed daemon leaves of a volume."""
        mount(source or f"/dev/{name}", Path(f"/mnt/{name}"), options)
        os.symlink(f"/mnt/{name}", f"/media/{name}")

    def assert_cleared(self, *words: str) -> None:
        done = run("clear-volumes")
        self.assertEqual((0, ""), (done.returncode, done.stderr))
        self.assertEqual([f"clear-volumes: unmounted /mnt/{name}" for name in words], done.stdout.splitlines())

    def test_all_kinds_of_names(self) -> None:
        names = ("mmcblk0", "mmcblk0boot1", "mmcblk12p3", "sda", "sda1", "sdab12")
        for name in names:
            self.leave(name)
        self.assert_cleared("sda", "sda1", "sdab12", "mmcblk0", "mmcblk0boot1", "mmcblk12p3")
        self.assertEqual([], tree("/mnt") + tree("/media"))
        self.assert_cleared()

    def test_rests_without_a_mount(self) -> None:
        Path("/mnt/sda1").mkdir()
        os.symlink("/mnt/sda1", "/media/sda1")
        Path("/mnt/sdb1").mkdir()
        os.symlink("/mnt/sdc1", "/media/sdc1")
        self.assert_cleared()
        self.assertEqual([], tree("/mnt") + tree("/media"))

    def test_a_mount_in_use_goes_too(self) -> None:
        self.leave("sda1")
        with open("/mnt/sda1/open", "w", encoding="ascii") as file:
            self.assert_cleared("sda1")
            file.write("still there")
        self.assertEqual([], tree("/mnt") + tree("/media"))

    def test_mounts_upon_each_other(self) -> None:
        self.leave("sda1")
        mount("/dev/sda1", Path("/mnt/sda1"), DAEMON_FLAGS)
        self.assert_cleared("sda1", "sda1")
        self.assertEqual([], tree("/mnt") + tree("/media"))

    def test_what_is_foreign_stays(self) -> None:
        self.leave("sda1", options="nosuid,nodev")       # somebody's own mount of the same device
        self.leave("sdb1", source="radio")               # something else in this place
        self.leave("sdc1")
        mount("radio", Path("/mnt/sdc1"))                # and over what the daemon mounted
        Path("/mnt/sdd1").mkdir()
        Path("/mnt/sdd1/file").touch()
        os.symlink("/home", "/media/sde1")
        os.symlink("/mnt/sdx", "/media/sdf1")
        Path("/media/sdg1").mkdir()
        os.symlink("/home", "/mnt/sdh1")
        for name in ("sd", "sd1", "sda1b", "sdA1", "sdcard", "mmcblk", "mmcblk0p", "mmcblk0x1", "music", "sda 1"):
            mount(f"/dev/{name}", Path(f"/mnt/{name}"), DAEMON_FLAGS)
            os.symlink(f"/mnt/{name}", f"/media/{name}")
        Path("/mnt/sdcards").mkdir()
        mounts = Path("/proc/self/mounts").read_text(encoding="ascii")
        before = tree("/mnt") + tree("/media")
        self.assert_cleared()
        self.assertEqual(before, tree("/mnt") + tree("/media"))
        self.assertEqual(mounts, Path("/proc/self/mounts").read_text(encoding="ascii"))

    def test_a_folder_with_something_in_it_loses_its_link(self) -> None:
        Path("/mnt/sda1").mkdir()
        Path("/mnt/sda1/file").touch()
        os.symlink("/mnt/sda1", "/media/sda1")
        self.assert_cleared()
        self.assertEqual(["/mnt/sda1", "/mnt/sda1/file"], tree("/mnt"))
        self.assertEqual([], tree("/media"))


class Watch:
    """The names that come to and go from a folder, as the daemon hears of them."""

    def __init__(self, folder: str) -> None:
        libc = ctypes.CDLL(None, use_errno=True)
        self._descriptor = libc.inotify_init1(os.O_CLOEXEC | os.O_NONBLOCK)
        assert self._descriptor >= 0
        assert libc.inotify_add_watch(self._descriptor, folder.encode(), IN_CREATE | IN_DELETE) >= 0

    def changes(self) -> list[str]:
        found = []
        while select.select([self._descriptor], [], [], 0)[0]:
            data = os.read(self._descriptor, 65536)
            while data:
                _, mask, _, length = struct.unpack_from("iIII", data)
                name = data[16:16 + length].rstrip(b"\0").decode()
                found.append(("+" if mask & IN_CREATE else "-") + name)
                data = data[16 + length:]
        return found

    def close(self) -> None:
        os.close(self._descriptor)


class ReplugVolumes(unittest.TestCase):
    def setUp(self) -> None:
        fresh(self, "/dev", "/run", "/mnt", "/sys/block", "/sys/class/block")
        for name, minor in (("null", 3), ("zero", 5)):
            os.mknod(f"/dev/{name}", 0o20666, os.makedev(1, minor))
        self.sequence = 0
        # udevadm settle has no udev to wait for in here.
        programs = Path("/run/bin")
        programs.mkdir()
        (programs / "udevadm").symlink_to("/bin/true")
        self.path = f"{programs}:{os.environ['PATH']}"

    def disk(self, name: str, partitions: int = 1, removable: int = 1, with_sequence: bool = True) -> None:
        self.sequence += 1
        folder = Path("/sys/block") / name
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir()
        if with_sequence:
            (folder / "diskseq").write_text(f"{self.sequence}\n", encoding="ascii")
        (folder / "removable").write_text(f"{removable}\n", encoding="ascii")
        middle = "p" if name[-1].isdigit() else ""
        nodes = [name, *(f"{name}{middle}{number}" for number in range(1, partitions + 1))]
        for number, node in enumerate(nodes):
            place = folder if node == name else folder / node
            place.mkdir(exist_ok=True)
            if number:
                (place / "partition").write_text(f"{number}\n", encoding="ascii")
            (place / "dev").write_text(f"250:{self.sequence * 32 + number}\n", encoding="ascii")
            link = Path("/sys/class/block") / node
            link.unlink(missing_ok=True)
            link.symlink_to(place)
            if not os.path.exists(f"/dev/{node}"):
                os.mknod(f"/dev/{node}", 0o60640, os.makedev(250, self.sequence * 32 + number))

    def replug(self) -> list[str]:
        watch = Watch("/dev")
        self.addCleanup(watch.close)
        done = run("replug-volumes", "replug", PATH=self.path)
        self.assertEqual((0, ""), (done.returncode, done.stderr))
        return [change for change in watch.changes() if change[1:] != "block"]

    def remember(self, *options: str) -> None:
        done = run("replug-volumes", "remember", *options, PATH=self.path)
        self.assertEqual((0, "", ""), (done.returncode, done.stdout, done.stderr))

    def test_what_came_later_is_replugged(self) -> None:
        self.disk("sda", removable=0)
        self.disk("mmcblk0", removable=0)
        self.remember()
        self.assertEqual([], self.replug())
        self.disk("sdb", partitions=11)
        self.disk("mmcblk1", removable=0)
        self.disk("sdc", partitions=0)
        os.chown("/dev/sdb1", 0, 6)
        before = {node: os.stat(f"/dev/{node}") for node in ("sdb", "sdb1", "mmcblk1p1", "sdc")}
        parts = [f"sdb{number}" for number in range(1, 12)]
        self.assertEqual(
            [f"-{name}" for name in parts] + ["-sdb", "+sdb"] + [f"+{name}" for name in parts] + ["-sdc", "+sdc"]
            + ["-mmcblk1p1", "-mmcblk1", "+mmcblk1", "+mmcblk1p1"], self.replug())
        for node, old in before.items():
            new = os.stat(f"/dev/{node}")
            # The kernel removes a node with its device only if it is the one that it made itself.
            self.assertEqual((old.st_ino, old.st_rdev, old.st_mode, old.st_gid, 1),
                             (new.st_ino, new.st_rdev, new.st_mode, new.st_gid, new.st_nlink))
        self.assertEqual([], [path for path in tree("/dev/block")])

    def test_a_record_is_made_once(self) -> None:
        self.remember()
        self.disk("sda")
        self.remember()
        self.assertEqual(["-sda1", "-sda", "+sda", "+sda1"], self.replug())

    def test_another_disk_of_the_same_name(self) -> None:
        for with_sequence in (True, False):
            with self.subTest(with_sequence=with_sequence):
                Path("/run/device-service/present").unlink(missing_ok=True)
                self.disk("sda", with_sequence=with_sequence)
                self.remember()
                self.assertEqual([], self.replug())
                placeholder = Path("/sys/block/unrelated")  # keeps a number from being given again at once
                placeholder.mkdir(exist_ok=True)
                self.disk("sda", with_sequence=with_sequence)
                self.assertEqual(["-sda1", "-sda", "+sda", "+sda1"], self.replug())

    def test_but_removable(self) -> None:
        self.disk("sda", removable=0)
        self.disk("sdb")
        self.disk("sdc")
        numbers = Path("/sys/class/block/sdc1/dev")
        mount("/dev/sdc1", Path("/mnt/own"))
        numbers.write_text(f"0:{os.stat('/mnt/own').st_dev & 0xff}\n", encoding="ascii")
        self.remember("--but-removable")
        self.assertEqual(["-sdb1", "-sdb", "+sdb", "+sdb1"], self.replug())

    def test_what_the_daemon_has_mounted_is_left_alone(self) -> None:
        self.remember()
        self.disk("sda", partitions=2)
        mount("/dev/sda2", Path("/mnt/sda2"))
        Path("/sys/class/block/sda2/dev").write_text(f"0:{os.stat('/mnt/sda2').st_dev & 0xff}\n", encoding="ascii")
        self.assertEqual([], self.replug())

    def test_an_interrupted_replug_is_mended(self) -> None:
        self.disk("sda")
        self.remember()
        Path("/dev/block/.device-service").mkdir(parents=True)
        os.rename("/dev/sda1", "/dev/block/.device-service/sda1")
        os.mknod("/dev/block/.device-service/sdq", 0o60640, os.makedev(250, 99))  # its disk has left meanwhile
        os.link("/dev/sda", "/dev/block/.device-service/sda")
        self.assertEqual(["+sda1"], self.replug())
        self.assertEqual(["/dev/block", "/dev/null", "/dev/sda", "/dev/sda1", "/dev/zero"], tree("/dev"))

    def instead_of(self, name: str, script: str) -> None:
        """Another program in the place of one that is run; "real" in the script is that one."""
        fake = Path("/run/bin") / name
        fake.unlink(missing_ok=True)
        fake.write_text(f"#!/bin/sh\nreal={shutil.which(name)}\n{script}\n", encoding="ascii")
        fake.chmod(0o755)

    def test_a_disk_that_leaves_meanwhile(self) -> None:
        self.remember()
        # The kernel's removal, at the worst moments: sysfs forgets the disk while its nodes are away, or one is not yet
        # back.
        forget = "rm -r /sys/class/block/sda /sys/class/block/sda1"
        for program, script in (("rm", f'$real "$@"; [ "$1" != /dev/sda ] || PATH=/bin:/usr/bin {forget}'),
                                ("ln", f'[ "$2" != /dev/sda ] || {forget}; $real "$@"')):
            with self.subTest(program=program):
                self.disk("sda")
                self.instead_of(program, script)
                self.replug()
                self.assertEqual(["/dev/block", "/dev/null", "/dev/zero"], tree("/dev"))
                (Path("/run/bin") / program).unlink()

    def assert_whole(self, before: dict[str, os.stat_result]) -> None:
        """The nodes are the kernel's, each with one name, and nothing lies beside them."""
        self.assertEqual(sorted(["/dev/null", "/dev/zero", *before]),
                         [path for path in tree("/dev") if path != "/dev/block"])
        for node, old in before.items():
            new = os.stat(node)
            self.assertEqual((old.st_ino, old.st_rdev, 1), (new.st_ino, new.st_rdev, new.st_nlink), node)

    def test_ended_wherever_it_is(self) -> None:
        self.remember()
        self.disk("sda", partitions=2)
        before = {path: os.stat(path) for path in ("/dev/sda", "/dev/sda1", "/dev/sda2")}
        count = Path("/run/count")
        for signal, status in (("KILL", -9), ("TERM", 1)):
            ends = 0
            for step in range(1, 100):
                count.write_text("", encoding="ascii")
                for program in ("ln", "rm"):
                    self.instead_of(program, f'echo >>{count}; [ $(wc -l <{count}) -eq {step} ] || exec $real "$@"; '
                                             f'$real "$@"; kill -{signal} $PPID')
                done = run("replug-volumes", "replug", PATH=self.path)
                for program in ("ln", "rm"):
                    (Path("/run/bin") / program).unlink()
                if done.returncode == 0:
                    break
                ends += 1
                with self.subTest(signal=signal, step=step):
                    self.assertEqual((status, ""), (done.returncode, done.stderr))
                    if signal == "TERM":
                        self.assert_whole(before)
                    self.assertEqual(["-sda1", "-sda2", "-sda", "+sda", "+sda1", "+sda2"],
                                     [change for change in self.replug()][-6:])
                    self.assert_whole(before)
            # Three links, three nodes taken away, and for each a link back and the removal of the first.
            self.assertEqual(12, ends)

    def test_what_cannot_be_put_back_costs_the_others_nothing(self) -> None:
        self.remember()
        self.disk("sda", partitions=2)
        before = {path: os.stat(path) for path in ("/dev/sda", "/dev/sda1", "/dev/sda2")}
        self.instead_of("ln", '[ "$2" != /dev/sda1 ] || exit 1; exec $real "$@"')
        done = run("replug-volumes", "replug", PATH=self.path)
        self.assertEqual(1, done.returncode)
        self.assertIn("cannot put back /dev/sda1", done.stderr)
        self.assertTrue(os.path.exists("/dev/sda2"))
        Path("/run/bin/ln").unlink()
        self.assertEqual("+sda1", self.replug()[0])
        self.assert_whole(before)

    def test_a_record_is_whole_or_not_there(self) -> None:
        """A disk that was missing in it would have been taken for one that came later: the unit's own, say."""
        self.disk("sda")
        self.disk("sdb")
        mount("full", Path("/run/device-service"), "size=4k")
        filler = Path("/run/device-service/filler")
        with self.assertRaises(OSError), filler.open("wb", buffering=0) as file:
            while True:
                file.write(bytes(4096))
        # There is room again for the second disk.
        self.instead_of("cat", f'[ "$1" != /sys/block/sdb/diskseq ] || rm -f {filler}; exec $real "$@"')
        done = run("replug-volumes", "remember", PATH=self.path)
        self.assertEqual(1, done.returncode)
        self.assertIn("cannot write", done.stderr)
        self.assertFalse(Path("/run/device-service/present").exists())
        filler.unlink(missing_ok=True)
        self.remember()
        self.assertEqual([], self.replug())

    def test_nothing_remembered(self) -> None:
        self.disk("sda")
        Path("/dev/block/.device-service").mkdir(parents=True)
        os.rename("/dev/sda1", "/dev/block/.device-service/sda1")
        done = run("replug-volumes", "replug", PATH=self.path)
        self.assertEqual(1, done.returncode)
        self.assertIn("nothing is remembered", done.stderr)
        self.assertEqual(["/dev/block", "/dev/null", "/dev/sda", "/dev/sda1", "/dev/zero"], tree("/dev"))


class Waiting(unittest.TestCase):
    """check-kernel and start-managers before a stand-in for devicectl, whose answers are files."""

    def setUp(self) -> None:
        fresh(self, "/run")
        self.client = Path("/run/devicectl")
        self.client.write_text('#!/bin/sh\necho "$*" >>/run/asked\n. /run/answer\n', encoding="ascii")
        self.client.chmod(0o755)
        self.node = Path("/run/binder")
        self.node.touch()

    def answer(self, script: str) -> None:
        new = Path("/run/answer.new")
        new.write_text(script, encoding="ascii")
        new.rename("/run/answer")

    def ask(self, name: str, *arguments: str) -> subprocess.CompletedProcess[str]:
        return run(name, *arguments, DEVICECTL=str(self.client), BINDER_DEVICE=str(self.node))

    def asked(self) -> list[str]:
        return Path("/run/asked").read_text(encoding="ascii").splitlines()

    def test_all_is_there(self) -> None:
        self.answer("exit 0")
        done = self.ask("check-kernel", "--wait", "60")
        self.assertEqual((0, "", ""), (done.returncode, done.stdout, done.stderr))

    def test_what_is_missing_is_said_once(self) -> None:
        self.answer("echo 'devicectl: no manager' >&2; exit 3")
        for arguments in ((), ("--wait", "5")):
            done = self.ask("check-kernel", *arguments)
            self.assertEqual((69, "", "check-kernel: no manager\n"), (done.returncode, done.stdout, done.stderr))

    def test_a_service_manager_that_comes_at_once_is_no_event(self) -> None:
        self.answer("[ $(wc -l </run/asked) -ge 4 ] && exit 0; echo 'devicectl: no manager' >&2; exit 3")
        done = self.ask("check-kernel", "--wait", "60")
        self.assertEqual((0, ""), (done.returncode, done.stderr))

    def test_a_driver_that_comes_asks_for_another_start(self) -> None:
        self.node.unlink()
        self.answer(f"[ $(wc -l </run/asked) -lt 3 ] || : >{self.node}; echo 'devicectl: no driver' >&2; exit 5")
        begin = time.monotonic()
        done = self.ask("check-kernel", "--wait", "50")
        self.assertLess(time.monotonic() - begin, 50)
        self.assertEqual(69, done.returncode)
        self.assertIn("is there now", done.stderr)

    def test_managers_wait_for_all_services(self) -> None:
        self.answer('case "$*" in *services) [ $(wc -l </run/asked) -lt 4 ] || echo "UsbManager alive"; '
                    'echo "DeviceManager alive"; echo "VolumeManager alive";; *start) echo started;; esac')
        done = self.ask("start-managers", "--wait", "60")
        self.assertEqual((0, "started\n", ""), (done.returncode, done.stdout, done.stderr))
        self.assertEqual([True] * 4 + [False], [line.endswith("services") for line in self.asked()])

    def test_managers_that_do_not_come(self) -> None:
        self.answer("echo 'DeviceManager alive'")
        done = self.ask("start-managers", "--wait", "1")
        self.assertEqual((3, "start-managers: VolumeManager is not registered\n"), (done.returncode, done.stderr))
        self.assertNotIn("start", self.asked()[-1])

    def test_stop(self) -> None:
        for status, expected, said in ((0, 0, ""), (3, 0, ""), (4, 0, ""), (1, 1, "start-managers: devicectl: no\n")):
            self.answer(f"echo 'devicectl: no'; exit {status}")
            done = self.ask("start-managers", "--stop")
            self.assertEqual((expected, "", said), (done.returncode, done.stdout, done.stderr))


class Upgrade(unittest.TestCase):
    """The daemon's postinst before stand-ins for what it asks, and a process that runs."""

    def setUp(self) -> None:
        fresh(self, "/run", "/usr/local/sbin")
        Path("/run/systemd/system").mkdir(parents=True)
        self.calls = Path("/run/calls")
        self.calls.touch()
        programs = Path("/run/bin")
        programs.mkdir()
        for name, script in (("getent", ""), ("udevadm", ""), ("deb-systemd-helper", ""),
                             ("deb-systemd-invoke", f'echo "$*" >>{self.calls}'),
                             ("dpkg-query", "cat /run/status"),
                             ("systemctl", 'case "$*" in show*) cat /run/pid;; *is-active*) [ -e /run/active ];; esac')):
            (programs / name).write_text(f"#!/bin/sh\n{script}\n", encoding="ascii")
            (programs / name).chmod(0o755)
        self.path = f"{programs}:{os.environ['PATH']}"
        self.program = Path("/usr/local/sbin/device-service")
        shutil.copy("/bin/sleep", self.program)
        self.manager(status="installed", is_active=True)

    def manager(self, status: str, is_active: bool) -> None:
        Path("/run/status").write_text(status, encoding="ascii")
        Path("/run/active").unlink(missing_ok=True)
        if is_active:
            Path("/run/active").touch()

    def run_daemon(self) -> None:
        process = subprocess.Popen([str(self.program), "600"])
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        Path("/run/pid").write_text(f"{process.pid}\n", encoding="ascii")
        limit = time.monotonic() + 30
        while os.readlink(f"/proc/{process.pid}/exe") != str(self.program):
            self.assertLess(time.monotonic(), limit)
            time.sleep(0.01)

    def unpack(self) -> None:
        """As dpkg does: the new file takes the place of the old one."""
        new = self.program.with_name("device-service.dpkg-new")
        shutil.copy("/bin/sleep", new)
        new.rename(self.program)

    def configure(self) -> list[str]:
        self.calls.write_text("", encoding="ascii")
        subprocess.run(["sh", str(ROOT / "packaging/debian/daemon/postinst"), "configure", "0.1.0-1"], check=True,
                       timeout=60, env={**os.environ, "PATH": self.path})
        return self.calls.read_text(encoding="ascii").splitlines()

    def test_the_old_daemon_is_restarted(self) -> None:
        self.run_daemon()
        self.unpack()
        for status, is_active in (("installed", True), ("not-installed", False), ("", False), ("unpacked", False)):
            self.manager(status, is_active)
            self.assertEqual(["restart device-service.service"], self.configure(), status)

    def test_a_service_manager_that_comes_last_takes_it_along(self) -> None:
        self.run_daemon()
        self.unpack()
        self.manager("unpacked", is_active=True)
        self.assertEqual([], self.configure())

    def test_a_service_manager_that_came_first_took_it_along(self) -> None:
        self.unpack()
        self.run_daemon()
        self.assertEqual(["start device-service.service"], self.configure())

    def test_a_daemon_that_does_not_run_is_started(self) -> None:
        for pid in ("0\n", ""):
            Path("/run/pid").write_text(pid, encoding="ascii")
            self.assertEqual(["start device-service.service"], self.configure())

    def test_the_service_manager_takes_the_daemon_along(self) -> None:
        unit = (installed / "usr/lib/systemd/system/device-service.service").read_text(encoding="ascii")
        self.assertIn("\nPartOf=servicemanager.service\n", unit)


def main() -> None:
    global build
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", type=Path, default=build)
    arguments, rest = parser.parse_known_args()
    build = arguments.build.absolute()
    program = unittest.main(argv=[sys.argv[0], *rest], exit=False, verbosity=2)
    sys.exit(0 if program.result.wasSuccessful() and program.result.testsRun > 0 else 1)


main()
