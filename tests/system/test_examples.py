# SPDX-License-Identifier: Apache-2.0
"""The examples, built against the installed package and nothing else, on the virtual head unit: a stick with media files
and a phone come and go, the daemon is killed, and what the examples print is compared."""

from __future__ import annotations

import re
import shutil
import signal
import subprocess
from pathlib import Path

import harness
from harness import LIMIT, ROOT, GuestTestCase
from vm.guestlink import GuestProcess

EXAMPLES = ("media-indexer", "phone-watcher", "dashboard")
BUILD_LIMIT = 600.0  # seconds for a build on a machine that emulates another one beside it
MEDIA = ("song.mp3", "albums/one.FLAC", "albums/deep/two.ogg", "film.mkv", "photo.jpg", "photo.jpeg", "readme.txt",
         "folder.mp3/cover.png")


def call(*argv: str | Path) -> str:
    """Runs a command on the host; returns what it said, which is the failure's text too."""
    done = subprocess.run([str(word) for word in argv], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          timeout=BUILD_LIMIT, check=False)
    if done.returncode != 0:
        raise AssertionError(f"{' '.join(map(str, argv))}: exit status {done.returncode}\n{done.stdout}")
    return done.stdout


class Examples(GuestTestCase):
    folder: Path

    @classmethod
    def boot(cls) -> None:
        """The machine sees the files that were there when it started."""
        cls.folder = harness.build_dir / "examples"
        shutil.rmtree(cls.folder, ignore_errors=True)
        call("cmake", "--install", harness.build_dir, "--prefix", cls.folder / "installed")
        # The sources alone: no header of the tree can be found from there.
        shutil.copytree(ROOT / "examples", cls.folder / "source")
        call("cmake", "-S", cls.folder / "source", "-B", cls.folder / "build", "-G", "Ninja",
             f"-DCMAKE_PREFIX_PATH={cls.folder / 'installed'}", "-DCMAKE_CXX_FLAGS=-Wall -Wextra -Werror")
        call("cmake", "--build", cls.folder / "build")
        cls.build_documented_program()
        super().boot()

    @classmethod
    def build_documented_program(cls) -> None:
        """The page's program, as its reader builds it."""
        blocks = dict(re.findall(r"^```(cmake|cpp)\n(.*?)^```", (ROOT / "docs/client-library.md").read_text(),
                                 re.MULTILINE | re.DOTALL))
        folder = cls.folder / "documented"
        folder.mkdir()
        (folder / "CMakeLists.txt").write_text(blocks["cmake"])
        (folder / "follow-volumes.cpp").write_text(blocks["cpp"])
        call("cmake", "-S", folder, "-B", folder / "build", f"-DCMAKE_PREFIX_PATH={cls.folder / 'installed'}",
             "-DCMAKE_CXX_FLAGS=-Wall -Wextra -Werror")
        call("cmake", "--build", folder / "build")

    def start(self, example: str, *options: str) -> GuestProcess:
        return self.spawn([str(self.folder / "build" / example), *options])

    def end(self, process: GuestProcess) -> list[str]:
        """Ends it as a user does; returns its lines. It ends well and complains of nothing."""
        process.kill(signal.SIGINT)
        self.assertEqual(0, process.wait(LIMIT))
        self.assertEqual([], [line.text for line in process.lines("stderr")])
        return [line.text for line in process.lines("stdout")]

    def stick_with_media(self) -> Path:
        """An image that is one volume without partition table."""
        content = self.folder / "content"
        for name in MEDIA:
            path = content / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text("media\n", encoding="ascii")
        image = self.folder / "stick.img"
        call("/usr/sbin/mkfs.ext4", "-q", "-F", "-L", "MUSIC", "-d", content, image, "16M")
        return image

    def test_options(self) -> None:
        for example in EXAMPLES:
            with self.subTest(example):
                told = self.run_guest([str(self.folder / "build" / example), "--help"], check=True).text
                self.assertIn("--for SECONDS", told)
                wrong = self.run_guest([str(self.folder / "build" / example), "--for", "ever"])
                self.assertEqual(2, wrong.returncode)
                # Without a daemon they wait for it, and end when they are told to.
                self.run_guest([str(self.folder / "build" / example), "--for", "1"], check=True)

    def test_the_documented_program(self) -> None:
        self.start_services()
        follower = self.spawn([str(self.folder / "documented/build/follow-volumes")], stdin=True)
        follower.wait_for("^0 volumes, press enter to end$", LIMIT, stream="stdout")
        stick = self.plug("stick")
        self.wait_guest("mountpoint -q /mnt/sda1")
        self.unplug(stick.name)
        self.wait_guest("! mountpoint -q /mnt/sda1")
        follower.wait_for("^sda1 is gone$", LIMIT, stream="stdout")
        follower.write(b"\n")
        self.assertEqual(0, follower.wait(LIMIT))
        self.assertEqual(["0 volumes, press enter to end", "sda1 is at /media/sda1", "sda1 is gone"],
                         [line.text for line in follower.lines("stdout")])

    def test_what_they_print(self) -> None:
        image = self.stick_with_media()
        # Before there is a daemon: they wait for it.
        indexer, watcher, dashboard = (self.start(example) for example in EXAMPLES)
        watcher.wait_for("^no device service yet, waiting for it$", LIMIT, stream="stdout")
        services = self.start_services()
        watcher.wait_for("^watching$", LIMIT, stream="stdout")

        stick = self.plug("stick", image=image)
        indexer.wait_for("^sda: ", LIMIT, stream="stdout")
        phone = self.plug("phone")
        watcher.wait_for("^Apple phone 05ac:12a8 came", LIMIT, stream="stdout")
        # One table that shows all of it.
        dashboard.wait_for(r"^ {2}volume sda +ext4 +MUSIC +/media/sda, \d+ MiB free$", LIMIT, stream="stdout")
        dashboard.wait_for("^  usb    05ac:12a8 bus [0-9]+ class [0-9]+$", LIMIT, stream="stdout")
        self.unplug(phone.name)
        watcher.wait_for("^Apple phone 05ac:12a8 went", LIMIT, stream="stdout")
        self.unplug(stick.name)
        indexer.wait_for("^sda: forgotten", LIMIT, stream="stdout")

        assert services.daemon is not None
        services.daemon.kill(signal.SIGKILL)
        services.daemon.wait(LIMIT)
        watcher.wait_for("^the device service is gone, waiting for it$", LIMIT, stream="stdout")
        services.daemon = self.spawn([self.program("device-service")])
        services.wait_daemon()
        services.start_managers()
        heard = len(watcher.lines())
        self.plug("phone")
        watcher.wait_for("^Apple phone 05ac:12a8 came", LIMIT, stream="stdout", start=heard)

        self.assertEqual(["sda: 3 audio, 1 video, 3 pictures in /media/sda", "sda: forgotten, 0 left"],
                         self.end(indexer))
        told = [re.sub("bus [0-9]+", "bus N", line) for line in self.end(watcher)]
        self.assertEqual(["no device service yet, waiting for it", "watching",
                          "Apple phone 05ac:12a8 came to bus N, with CarPlay", "Apple phone 05ac:12a8 went from bus N",
                          "the device service is gone, waiting for it", "watching",
                          "Apple phone 05ac:12a8 came to bus N, with CarPlay"], told)
        tables = "\n".join(self.end(dashboard)).split("\n\n")
        both = [table for table in tables if "/media/sda" in table and "05ac:12a8" in table]
        self.assertTrue(both, f"stick and phone in one table of {tables}")
        for service in ("DeviceManager", "VolumeManager", "UsbManager"):
            self.assertRegex(both[0], f"(?m)^{service} +connected$")


if __name__ == "__main__":
    harness.main()
