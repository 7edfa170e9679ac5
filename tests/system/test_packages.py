# SPDX-License-Identifier: Apache-2.0
"""The Debian packages: what is in them, and that they install, upgrade and go on a fresh Debian.

The packages are built as an integrator builds them, twice, the second time with a higher number. What they need is
installed from Debian's archive, which the machine's own apt knows.
"""

from __future__ import annotations

import gzip
import os
import re
import time
import unittest
from pathlib import Path

import debian_tree
from debian_tree import ROOT, DebianTree, run

BUILD = ROOT / "build" / "package"
VERSION = re.search(r"project\(device-service VERSION ([0-9.]+)", (ROOT / "CMakeLists.txt").read_text())[1]
SONAME = f"libdeviceservice{VERSION.split('.')[0]}"
NAMES = ("device-service", SONAME, "libdeviceservice-dev", "devicectl", "device-service-servicemanager")
FIRST, SECOND = f"{VERSION}-1", f"{VERSION}-2"
UNAVAILABLE = 69  # exit status of the programs where there is no driver

# Where a distribution's package may put something.
ALLOWED = re.compile(r"\./(usr/(s?bin|share/(doc|man|bash-completion|zsh|lintian|deviceservice)|include/deviceservice|"
                     r"libexec/device-service|lib/(systemd|udev|modules-load\.d|sysusers\.d|tmpfiles\.d|[\w-]+-linux-gnu\w*))"
                     r"|etc/default)/")
# What dpkg, apt and the linker write about any package.
ADMINISTRATION = ("/dev", "/proc", "/run", "/sys", "/tmp", "/var/cache", "/var/lib/apt", "/var/lib/dpkg",
                  "/var/lib/systemd/deb-systemd-helper-enabled", "/var/lib/systemd/deb-systemd-helper-masked", "/var/log",
                  "/etc/ld.so.cache")


def field(package: Path, name: str) -> str:
    return run(["dpkg-deb", "-f", str(package), name]).strip()


def built(release: int) -> dict[str, Path]:
    """Makes the packages of a release, and returns them by name."""
    folder = BUILD / "packages" / f"release-{release}"
    for old in folder.glob("*.deb"):
        old.unlink()
    run(["cpack", "--config", str(BUILD / "CPackConfig.cmake"), "-B", str(folder),
         "-D", f"CPACK_DEBIAN_PACKAGE_RELEASE={release}"], cwd=ROOT)
    return {field(path, "Package"): path for path in folder.glob("*.deb")}


first: dict[str, Path]
second: dict[str, Path]


def setUpModule() -> None:
    global first, second
    environment = {**os.environ, "CCACHE_BASEDIR": str(ROOT), "CCACHE_NOHASHDIR": "1"}
    begin = time.monotonic()
    run(["cmake", "--preset", "package"], cwd=ROOT, env=environment)
    run(["cmake", "--build", "--preset", "package"], limit=40 * debian_tree.MINUTES, cwd=ROOT, env=environment)
    first, second = built(1), built(2)
    print(f"packages built in {time.monotonic() - begin:.0f} s", flush=True)


class Packages(unittest.TestCase):
    """What can be said of a package by looking at it."""

    def test_names_versions_and_who_needs_whom(self) -> None:
        self.assertEqual(sorted(NAMES), sorted(first))
        for release, packages in ((FIRST, first), (SECOND, second)):
            for name, package in packages.items():
                self.assertEqual(release, field(package, "Version"), name)
                wanted = set() if name == SONAME else {f"{SONAME} (= {release})"}
                if name == "device-service":
                    wanted |= {f"devicectl (= {release})", "findutils", "kmod", "net-tools", "udev", "util-linux"}
                depends = set(field(package, "Depends").split(", "))
                self.assertEqual(set(), wanted - depends, name)
                self.assertTrue(any(need.startswith("android-libutils") for need in depends), name)
        self.assertEqual({"device-service": "admin", SONAME: "libs", "libdeviceservice-dev": "libdevel",
                          "devicectl": "admin", "device-service-servicemanager": "admin"},
                         {name: field(package, "Section") for name, package in first.items()})

    def test_the_client_needs_none_of_the_daemons_libraries(self) -> None:
        for name in (SONAME, "libdeviceservice-dev", "devicectl"):
            self.assertNotRegex(field(first[name], "Depends"), r"libusb|libblkid|libxml2", name)

    def test_who_made_it_and_what_it_is(self) -> None:
        for name, package in first.items():
            self.assertRegex(field(package, "Maintainer"), r"^[\w ]+ <\S+@\S+\.invalid>$", name)
            title, *text = field(package, "Description").splitlines()
            self.assertTrue(0 < len(title) <= 80 and text, name)
            self.assertFalse(title.endswith(".") or title[0].isupper(), title)

    def test_every_file_is_where_it_belongs(self) -> None:
        for name, package in first.items():
            files = [line.split(maxsplit=5) for line in run(["dpkg-deb", "-c", str(package)]).splitlines()]
            self.assertGreater(len(files), 2, name)
            for mode, owner, _, _, _, path in files:
                self.assertEqual("root/root", owner, path)
                if mode[0] == "d":
                    self.assertEqual("drwxr-xr-x", mode, path)
                    continue
                self.assertRegex(path, ALLOWED, name)
                if mode[0] == "-":
                    runs = re.match(r"\./usr/(s?bin|libexec)/", path)
                    self.assertEqual("-rwxr-xr-x" if runs else "-rw-r--r--", mode, path)

    def test_papers_and_checksums(self) -> None:
        for name, package in first.items():
            content = run(["dpkg-deb", "-c", str(package)])
            for paper in ("copyright", "changelog.Debian.gz"):
                self.assertIn(f"./usr/share/doc/{name}/{paper}\n", content)
            self.assertIn("md5sums", run(["dpkg-deb", "-I", str(package)]))
        changelog = gzip.decompress((BUILD / "changelog.Debian.gz").read_bytes()).decode()
        self.assertTrue(changelog.startswith(f"device-service ({VERSION}-"), changelog[:60])

    def test_who_links_the_library_asks_for_its_package(self) -> None:
        shlibs = run(["dpkg-deb", "-I", str(first[SONAME]), "shlibs"]).splitlines()
        major = VERSION.split(".")[0]
        self.assertIn(f"libdeviceservice {major} {SONAME} (>= {FIRST})", shlibs)


def files_of(tree: DebianTree) -> set[str]:
    """Every path of the tree but what dpkg, apt and the linker keep for any package."""
    found = set()
    for folder, folders, files in os.walk(tree.root):
        inside = folder[len(str(tree.root)):] or "/"
        folders[:] = [name for name in folders if not f"{inside.rstrip('/')}/{name}".startswith(ADMINISTRATION)]
        found.update(f"{inside.rstrip('/')}/{name}" for name in (*folders, *files))
    return {path for path in found if not path.startswith(ADMINISTRATION)}


class Lifecycle(unittest.TestCase):
    """One tree, the steps in the order of a package's life."""

    @classmethod
    def setUpClass(cls) -> None:
        tree = debian_tree.fresh_tree()
        cls.tree = tree.__enter__()
        cls.addClassCleanup(tree.__exit__, None, None, None)
        for release, packages in ((1, first), (2, second)):
            folder = cls.tree.root / f"tmp/release-{release}"
            folder.mkdir()
            for package in packages.values():
                (folder / package.name).write_bytes(package.read_bytes())

    def install(self, release: int) -> str:
        packages = sorted(str(path.relative_to(self.tree.root)) for path in self.tree.root.glob(f"tmp/release-{release}/*"))
        return self.tree.apt("install", *(f"/{path}" for path in packages))

    def versions(self) -> dict[str, str]:
        """Of the project's packages that dpkg knows of, by name; one not fully installed shows its state."""
        listed = self.tree.chroot("dpkg-query", "-W", "-f", "${Package}|${db:Status-Status}|${Version}\n")
        return {name: version if state == "installed" else state
                for name, state, version in (line.split("|") for line in listed.splitlines()) if name in NAMES}

    def exit_status_of(self, *command: str) -> tuple[int, str]:
        said = self.tree.chroot("sh", "-c", '"$@" 2>&1; echo "status $?"', "sh", *command)
        text, _, status = said.rstrip("\n").rpartition("status ")
        return int(status), text

    def assert_works(self) -> None:
        self.assertEqual("", self.tree.chroot("dpkg", "--audit"))
        self.assertEqual("", self.tree.chroot("dpkg", "--verify", *NAMES))
        self.tree.chroot("apt-get", "check")
        self.assertEqual((0, f"devicectl {VERSION}\n"), self.exit_status_of("devicectl", "--version"))
        self.assertEqual((0, f"servicemanager {VERSION}\n"), self.exit_status_of("servicemanager", "--version"))
        # Without a driver each says what is missing, which takes all of its libraries.
        for program in ("device-service", "servicemanager"):
            status, text = self.exit_status_of(program)
            self.assertEqual(UNAVAILABLE, status, text)
            self.assertIn("binder_linux", text)

    def test_1_installs_on_a_fresh_tree(self) -> None:
        self.assertEqual({}, self.versions())
        planned = self.tree.apt("-s", "install", *(f"/tmp/release-1/{path.name}" for path in first.values()))
        others = [name for name in re.findall(r"^Inst (\S+)", planned, re.MULTILINE) if name not in NAMES]
        self.assertIn("net-tools", others)
        self.tree.apt("install", *others)
        type(self).before = files_of(self.tree)
        self.install(1)
        self.assertEqual({name: FIRST for name in NAMES}, self.versions())
        self.assert_works()

    def test_2_a_second_installation_changes_nothing(self) -> None:
        self.assertIn("0 upgraded, 0 newly installed", self.install(1))
        self.assert_works()

    def test_3_upgrades(self) -> None:
        self.install(2)
        self.assertEqual({name: SECOND for name in NAMES}, self.versions())
        self.assert_works()

    def test_4_what_the_daemon_needs_cannot_go_alone(self) -> None:
        with self.assertRaisesRegex(AssertionError, "depends on libdeviceservice"):
            self.tree.chroot("dpkg", "--remove", SONAME)
        self.assert_works()

    def test_5_removal_takes_the_programs(self) -> None:
        self.tree.apt("remove", *NAMES)
        for program in ("usr/sbin/device-service", "usr/sbin/servicemanager", "usr/bin/devicectl"):
            self.assertFalse((self.tree.root / program).exists(), program)
        self.assertEqual(set(), {name for name, state in self.versions().items() if state != "config-files"})

    def store_vendor_data(self) -> None:
        """What the daemon would have left in the meantime."""
        folder = self.tree.root / "var/lib/vx-vendor-data"
        folder.mkdir()
        (folder / "84").write_text("79")

    def assert_nothing_left(self) -> None:
        self.assertEqual({}, self.versions())
        self.assertEqual("", self.tree.chroot("dpkg", "--audit"))
        after = files_of(self.tree)
        self.assertEqual([], sorted(after - self.before), "left behind")
        self.assertEqual([], sorted(self.before - after), "taken along")

    def test_6_purge_after_removal_leaves_nothing(self) -> None:
        self.store_vendor_data()
        # Of a package without anything to keep dpkg knows no more.
        self.assertIn("device-service", self.versions())
        self.tree.chroot("dpkg", "--purge", *self.versions())
        self.assert_nothing_left()

    def test_7_installs_again_and_is_purged_at_once(self) -> None:
        self.install(2)
        self.assertEqual({name: SECOND for name in NAMES}, self.versions())
        self.assert_works()
        self.store_vendor_data()
        self.tree.apt("purge", *NAMES)
        self.assert_nothing_left()


if __name__ == "__main__":
    debian_tree.enter_namespace()
    unittest.main(verbosity=2)
