# SPDX-License-Identifier: Apache-2.0
"""Debian's kernel and its modules, downloaded once and unpacked into the cache folder.

The package is never installed. A kernel appears in the cache by one rename, so it is there completely or not
at all; a lock keeps two processes from preparing it at the same time.
"""

from __future__ import annotations

import contextlib
import fcntl
import lzma
import os
import shutil
import struct
import subprocess
import tempfile
from collections.abc import Iterator
from dataclasses import dataclass
from pathlib import Path

from .errors import HeadunitError
from .paths import cache_dir

META_PACKAGE = "linux-image-amd64"
LAYOUT = "kernel-1"  # a change of what a cached kernel consists of takes a new name

# Big subsystems that a head unit's guest never loads: half of the package's size.
LEFT_OUT = (
    "drivers/comedi", "drivers/gpu", "drivers/iio", "drivers/infiniband", "drivers/isdn", "drivers/media",
    "drivers/net/ethernet", "drivers/net/wireless", "drivers/staging", "sound",
)


@dataclass(frozen=True)
class Kernel:
    """A kernel in the cache: image is what the machine boots, root the folder above lib/modules/version."""

    image: Path
    root: Path
    version: str


def is_cached() -> bool:
    """Whether prepare() has nothing to fetch."""
    return _find(cache_dir() / LAYOUT) is not None


def prepare() -> Kernel:
    """Returns the cached kernel; fetches it first when there is none."""
    base = cache_dir() / LAYOUT
    found = _find(base)
    if found:
        return found
    try:
        base.mkdir(parents=True, exist_ok=True)
    except OSError as error:
        raise HeadunitError(f"cannot make the cache folder {base}: {error.strerror}") from error
    with _lock(base):
        found = _find(base)
        if found:
            return found
        for stale in base.glob("new-*"):
            shutil.rmtree(stale, ignore_errors=True)
        new = Path(tempfile.mkdtemp(prefix="new-", dir=base))
        try:
            package = _download(new)
            version = _unpack(package, new)
            package.unlink()
            new.chmod(0o755)
            os.sync()
            new.rename(base / version)
        finally:
            shutil.rmtree(new, ignore_errors=True)
    found = _find(base)
    if not found:
        raise HeadunitError(f"the kernel in {base} is incomplete; remove that folder and try again")
    return found


def _find(base: Path) -> Kernel | None:
    if not base.is_dir():
        return None
    for folder in sorted(base.iterdir(), reverse=True):
        if folder.name.startswith("new-") or not (folder / "lib/modules" / folder.name).is_dir():
            continue
        image = folder / "vmlinux"
        if not image.exists():
            image = folder / "vmlinuz"
        return Kernel(image=image, root=folder, version=folder.name)
    return None


@contextlib.contextmanager
def _lock(base: Path) -> Iterator[None]:
    with open(base / "lock", "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield


def _call(argv: list[str], cwd: Path | None = None) -> str:
    try:
        done = subprocess.run(argv, cwd=cwd, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True, errors="replace", check=False)
    except OSError as error:
        raise HeadunitError(f"cannot run {argv[0]}: {error.strerror}") from error
    if done.returncode != 0:
        said = _one_line(done.stderr) or f"exit status {done.returncode}"
        raise HeadunitError(f"{' '.join(argv[:2])} failed: {said}")
    return done.stdout


def _one_line(text: str) -> str:
    return "; ".join(line.strip() for line in text.splitlines() if line.strip())


def _image_package() -> str:
    """The name of the package that the meta package stands for today."""
    for line in _call(["apt-cache", "depends", META_PACKAGE]).splitlines():
        kind, _, name = line.strip().partition(": ")
        if kind == "Depends" and name.startswith("linux-image-"):
            return name
    raise HeadunitError(f"apt knows no dependency of {META_PACKAGE}")


def _download(folder: Path) -> Path:
    """Downloads the package. Stale or missing package lists are renewed once."""
    sandbox = ["-o", "APT::Sandbox::User=root"] if os.getuid() == 0 else []
    try:
        _call(["apt-get", "-q", *sandbox, "download", _image_package()], cwd=folder)
    except HeadunitError:
        update = ["apt-get", "-q", "update"]
        if os.getuid() != 0:
            if not shutil.which("sudo"):
                raise
            update.insert(0, "sudo")
        _call(update)
        _call(["apt-get", "-q", *sandbox, "download", _image_package()], cwd=folder)
    return next(folder.glob("*.deb"))


def _unpack(package: Path, folder: Path) -> str:
    """Unpacks image and modules into the folder; returns the kernel's version."""
    skip = [f"--exclude=./lib/modules/*/kernel/{name}" for name in LEFT_OUT]
    with subprocess.Popen(["dpkg", "--fsys-tarfile", str(package)], stdout=subprocess.PIPE) as reader:
        unpacked = subprocess.run(["tar", "-x", "-C", str(folder), *skip, "./boot", "./lib/modules"],
                                  stdin=reader.stdout, stderr=subprocess.PIPE, text=True, check=False)
    if reader.returncode != 0 or unpacked.returncode != 0:
        raise HeadunitError(f"cannot unpack {package.name} into {folder}: {_one_line(unpacked.stderr)}")
    version = next((folder / "lib/modules").iterdir()).name
    _call(["depmod", "-b", str(folder), version])
    compressed = folder / "vmlinuz"
    (folder / "boot" / f"vmlinuz-{version}").rename(compressed)
    shutil.rmtree(folder / "boot")
    _decompress(compressed, folder / "vmlinux")
    return version


def _decompress(compressed: Path, image: Path) -> None:
    """Takes the plain ELF kernel out of a bzImage, which saves an emulated processor seconds at every boot.

    The machine boots the compressed image just as well, so a kernel packed in another way is left alone.
    """
    data = compressed.read_bytes()
    setup_sectors = data[0x1F1] or 4
    offset, length = struct.unpack_from("<II", data, 0x248)
    start = (setup_sectors + 1) * 512 + offset
    try:
        plain = lzma.LZMADecompressor().decompress(data[start:start + length])
    except lzma.LZMAError:
        return
    if plain[:4] == b"\x7fELF":
        image.write_bytes(plain)
