# SPDX-License-Identifier: Apache-2.0
"""Media made on the spot: sparse images with a partition table and a file system."""

from __future__ import annotations

import os
import shutil
import struct
import subprocess
from pathlib import Path

from .errors import HeadunitError

SECTOR = 512
FIRST_SECTOR = 2048  # 1 MiB, where every partitioning tool puts the first partition
MIB = 1 << 20
FILE_SYSTEMS = ("vfat", "ext4", "none")
_PARTITION_TYPE = {"vfat": 0x0C, "ext4": 0x83, "none": 0x83}


def make(path: Path, size_mib: int = 64, fs: str = "vfat", partitioned: bool = True,
         label: str = "HEADUNIT") -> Path:
    """Writes an image of size_mib MiB and returns its path. fs "none" leaves the partition, or all, empty."""
    if fs not in FILE_SYSTEMS:
        raise HeadunitError(f"no file system {fs}: choose one of {', '.join(FILE_SYSTEMS)}")
    if not 4 <= size_mib <= 1 << 20:
        raise HeadunitError(f"a medium of {size_mib} MiB cannot be made: choose 4 to {1 << 20}")
    with open(path, "wb") as image:
        image.truncate(size_mib * MIB)
    first = FIRST_SECTOR if partitioned else 0
    _format(path, fs, first, size_mib * MIB - first * SECTOR, label)
    if partitioned:
        _write_table(path, size_mib * MIB // SECTOR - first, _PARTITION_TYPE[fs])
    return path


def _format(path: Path, fs: str, first: int, size: int, label: str) -> None:
    kib = str(size // 1024)
    if fs == "vfat":
        _call(["mkfs.vfat", "-n", label[:11].upper(), "--offset", str(first), str(path), kib], "dosfstools")
    elif fs == "ext4":
        offset = f"offset={first * SECTOR}"
        _call(["mkfs.ext4", "-q", "-F", "-L", label[:16], "-E", offset, str(path), f"{kib}k"], "e2fsprogs")


def _call(argv: list[str], package: str) -> None:
    path = os.environ.get("PATH", "") + ":/usr/sbin:/sbin"
    if not shutil.which(argv[0], path=path):
        raise HeadunitError(f"{argv[0]} is missing: install the package {package}")
    done = subprocess.run(argv, env={**os.environ, "PATH": path}, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    if done.returncode != 0:
        raise HeadunitError(f"{argv[0]} failed: {done.stdout.strip()}")


def _write_table(path: Path, sectors: int, kind: int) -> None:
    """A DOS partition table with one primary partition up to the end."""
    beyond_chs = b"\xfe\xff\xff"  # cylinder, head and sector of what only the block address can reach
    entry = struct.pack("<B3sB3sII", 0, beyond_chs, kind, beyond_chs, FIRST_SECTOR, sectors)
    with open(path, "r+b") as image:
        image.seek(440)
        image.write(os.urandom(4) + b"\0\0" + entry + bytes(48) + b"\x55\xaa")
