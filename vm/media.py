# SPDX-License-Identifier: Apache-2.0
"""Media made on the spot: sparse images with a partition table and file systems."""

from __future__ import annotations

import os
import shutil
import struct
import subprocess
import tempfile
from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path

from .errors import HeadunitError

SECTOR = 512
FIRST_SECTOR = 2048  # 1 MiB, where every partitioning tool puts the first partition
MIB = 1 << 20
FILE_SYSTEMS = ("vfat", "exfat", "ext4", "iso9660", "none")
TABLES = ("dos", "gpt", "none")
_DOS_TYPE = {"vfat": 0x0C, "exfat": 0x07, "ext4": 0x83, "iso9660": 0x17, "none": 0x83}
_GPT_MICROSOFT = "EBD0A0A2-B9E5-4433-87C0-68B6B72699C7"
_GPT_LINUX = "0FC63DAF-8483-4772-8E79-3D69D8477DE4"


@dataclass(frozen=True)
class Partition:
    """One partition. fs "none" leaves it empty; name and uuid are those of the entry, which only GPT has."""

    fs: str = "vfat"
    label: str = "HEADUNIT"
    name: str = ""
    uuid: str = ""


def make(path: Path, size_mib: int = 64, fs: str = "vfat", partitioned: bool = True, label: str = "HEADUNIT",
         table: str | None = None, partitions: Sequence[Partition] | None = None) -> Path:
    """Writes an image of size_mib MiB and returns its path.

    fs "none" leaves the partition, or all, empty. table is "dos" unless partitioned is False. partitions
    stand in place of the one that fs and label describe; they share the medium in equal parts.
    """
    table = table or ("dos" if partitioned else "none")
    parts = list(partitions or [Partition(fs, label)])
    _check(size_mib, table, parts)
    with open(path, "wb") as image:
        image.truncate(size_mib * MIB)
    sectors = size_mib * MIB // SECTOR
    if table == "none":
        _format(path, parts[0], 0, sectors)
        return path
    first = FIRST_SECTOR
    # The second table of GPT takes the last sectors; all parts begin and end at a whole MiB.
    length = (sectors - 2 * first if table == "gpt" else sectors - first) // len(parts) // first * first
    places = [(first + number * length, length) for number in range(len(parts))]
    for part, (start, count) in zip(parts, places):
        _format(path, part, start, count)
    if table == "gpt":
        _write_gpt(path, parts, places)
    else:
        _write_dos(path, parts, places)
    return path


def _check(size_mib: int, table: str, parts: Sequence[Partition]) -> None:
    if table not in TABLES:
        raise HeadunitError(f"no partition table {table}: choose one of {', '.join(TABLES)}")
    for part in parts:
        if part.fs not in FILE_SYSTEMS:
            raise HeadunitError(f"no file system {part.fs}: choose one of {', '.join(FILE_SYSTEMS)}")
    most = {"dos": 4, "gpt": 128, "none": 1}[table]
    if len(parts) > most:
        raise HeadunitError(f"{len(parts)} partitions do not fit: no more than {most} do")
    if not 4 * len(parts) <= size_mib <= 1 << 20:
        raise HeadunitError(f"a medium of {size_mib} MiB cannot be made: choose {4 * len(parts)} to {1 << 20}")


def _format(path: Path, part: Partition, first: int, sectors: int) -> None:
    kib = str(sectors * SECTOR // 1024)
    if part.fs == "vfat":
        _call(["mkfs.vfat", "-n", part.label[:11].upper(), "--offset", str(first), str(path), kib], "dosfstools")
    elif part.fs == "ext4":
        offset = f"offset={first * SECTOR}"
        _call(["mkfs.ext4", "-q", "-F", "-L", part.label[:16], "-E", offset, str(path), f"{kib}k"], "e2fsprogs")
    elif part.fs in ("exfat", "iso9660"):
        # Tools that know no offset: made apart and copied to its place.
        with tempfile.TemporaryDirectory(dir=path.parent) as folder:
            apart = Path(folder) / "part.img"
            if part.fs == "exfat":
                with open(apart, "wb") as file:
                    file.truncate(sectors * SECTOR)
                _call(["mkfs.exfat", "-L", part.label[:15], str(apart)], "exfatprogs")
            else:
                content = Path(folder) / "content"
                content.mkdir()
                (content / "readme.txt").write_text("A disc.\n", encoding="ascii")
                _call(["xorriso", "-as", "mkisofs", "-quiet", "-R", "-V", part.label[:32], "-o", str(apart),
                       str(content)], "xorriso")
            _copy_into(apart, path, first * SECTOR, sectors * SECTOR)


def _copy_into(source: Path, path: Path, offset: int, room: int) -> None:
    """Copies what is not zero, so that the image stays sparse."""
    if source.stat().st_size > room:
        raise HeadunitError(f"a medium of {room // MIB} MiB is too small for its file system")
    with open(source, "rb") as reader, open(path, "r+b") as image:
        position = offset
        while block := reader.read(65536):
            if block.strip(b"\0"):
                image.seek(position)
                image.write(block)
            position += len(block)


def _call(argv: list[str], package: str, text: str | None = None) -> None:
    path = os.environ.get("PATH", "") + ":/usr/sbin:/sbin"
    if not shutil.which(argv[0], path=path):
        raise HeadunitError(f"{argv[0]} is missing: install the package {package}")
    done = subprocess.run(argv, env={**os.environ, "PATH": path}, input=text or "", stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=False)
    if done.returncode != 0:
        raise HeadunitError(f"{argv[0]} failed: {done.stdout.strip()}")


def _write_gpt(path: Path, parts: Sequence[Partition], places: Sequence[tuple[int, int]]) -> None:
    lines = ["label: gpt"]
    for part, (start, count) in zip(parts, places):
        kind = _GPT_LINUX if part.fs in ("ext4", "none") else _GPT_MICROSOFT
        line = f"start={start}, size={count}, type={kind}"
        line += f', name="{part.name}"' if part.name else ""
        line += f", uuid={part.uuid}" if part.uuid else ""
        lines.append(line)
    _call(["sfdisk", "-q", "--no-reread", "--no-tell-kernel", str(path)], "fdisk", "\n".join(lines) + "\n")


def _write_dos(path: Path, parts: Sequence[Partition], places: Sequence[tuple[int, int]]) -> None:
    """A DOS partition table with primary partitions."""
    write_dos_table(path, [(_DOS_TYPE[part.fs], start, count) for part, (start, count) in zip(parts, places)])


def write_dos_table(path: Path, entries: Sequence[tuple[int, int, int]], sector: int = 0) -> None:
    """Writes a table of up to four entries (type, first sector, number of sectors), as they are, into a sector."""
    beyond_chs = b"\xfe\xff\xff"  # cylinder, head and sector of what only the block address can reach
    table = b"".join(struct.pack("<B3sB3sII", 0, beyond_chs, kind, beyond_chs, start, count)
                     for kind, start, count in entries)
    with open(path, "r+b") as image:
        image.seek(sector * SECTOR + 440)
        image.write(os.urandom(4) + b"\0\0" + table.ljust(64, b"\0") + b"\x55\xaa")
