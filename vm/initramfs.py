# SPDX-License-Identifier: Apache-2.0
"""The first file system of the guest: busybox, the modules, and the step over to the host's own root."""

from __future__ import annotations

import os
import shlex
import shutil
import subprocess
from collections.abc import Collection
from pathlib import Path

from .errors import HeadunitError
from .kernel import Kernel
from .paths import GUEST_TOOLS

# What the way to the host's file system and to the agent's port needs.
BOOT_MODULES = ("virtio_pci", "9pnet_virtio", "9p", "overlay", "virtio_console")

# What the head unit has. EHCI stands before its companions, else the kernel complains. All are loaded from
# here since reading each through 9p would cost more than unpacking them together.
UNIT_MODULES = (
    "binder_linux", "ehci_pci", "uhci_hcd", "ohci_pci", "xhci_pci", "usb_storage", "uas", "sd_mod",
    "sdhci_pci", "mmc_block", "vfat", "nls_ascii", "nls_cp437", "exfat", "ext4", "isofs", "nls_utf8", "loop",
)

_INIT = """#!/bin/busybox sh
# The whole host is the lower, read-only layer; what the guest writes stays in its own memory.
b=/bin/busybox
fail() {{ echo "headunit: $1 failed" >/dev/console; $b poweroff -f; }}
$b mount -t proc proc /proc
$b mount -t sysfs sys /sys
$b mount -t devtmpfs dev /dev
# A module for a feature that this processor lacks refuses to load; a missing one shows in the next step.
for module in /modules/*; do $b insmod "$module" 2>/dev/null; done
options=ro,trans=virtio,version=9p2000.L,msize=1048576,cache=loose
$b mount -t 9p -o $options host /host || fail "mount of the host"
$b mount -t tmpfs -o mode=755 upper /upper
$b mkdir -m 755 /upper/up /upper/work
$b mount -t overlay -o lowerdir=/host,upperdir=/upper/up,workdir=/upper/work root /newroot || fail "overlay"
for folder in proc sys dev; do $b mkdir -p /newroot/$folder; $b mount --move /$folder /newroot/$folder; done
modules=/newroot/lib/modules/{version}
$b mkdir -p "$modules"
$b mount --bind /newroot{module_root} "$modules" || fail "bind of the modules"
export PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8
exec $b switch_root /newroot {first_process}
"""


def load_order(kernel: Kernel, names: Collection[str]) -> list[Path]:
    """The module files for these modules, each after those that it needs."""
    argv = ["modprobe", "-a", "--show-depends", "-d", str(kernel.root), "-S", kernel.version, *names]
    try:
        shown = subprocess.run(argv, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False)
    except OSError as error:
        raise HeadunitError(f"cannot run modprobe: {error.strerror}") from error
    if shown.returncode != 0:
        raise HeadunitError(f"the kernel {kernel.version} lacks a module: {shown.stderr.strip()}")
    files = (line.split(maxsplit=2)[1] for line in shown.stdout.splitlines() if line.startswith("insmod "))
    return [Path(name) for name in dict.fromkeys(files)]


def build(kernel: Kernel, work: Path, leave_out: Collection[str] = (), systemd: Path | None = None) -> Path:
    """Writes the image into the work folder and returns its path. leave_out names modules of the unit; systemd is a
    folder with files for the guest's root: they are laid over it, and systemd becomes the first process."""
    unknown = set(leave_out) - set(UNIT_MODULES)
    if unknown:
        raise HeadunitError(f"cannot leave out what is not loaded: {', '.join(sorted(unknown))}")
    tree = work / "initramfs"
    for folder in ("bin", "dev", "host", "modules", "newroot", "proc", "sys", "upper"):
        (tree / folder).mkdir(parents=True)
    busybox = shutil.which("busybox", path="/usr/bin:/bin")
    if not busybox:
        raise HeadunitError("busybox is missing: install the package busybox-static")
    shutil.copy(busybox, tree / "bin/busybox")
    wanted = [*BOOT_MODULES, *(name for name in UNIT_MODULES if name not in leave_out)]
    for number, file in enumerate(load_order(kernel, wanted)):
        shutil.copy(file, tree / "modules" / f"{number:03d}-{file.name}")
    script = tree / "init"
    script.write_text(_INIT.format(version=kernel.version, first_process=shlex.join(_first_process(systemd)),
                                   module_root=shlex.quote(str(kernel.root / "lib/modules" / kernel.version))),
                      encoding="utf-8")
    script.chmod(0o755)
    image = work / "initramfs.cpio"
    _pack(tree, image)
    shutil.rmtree(tree)
    return image


def _first_process(systemd: Path | None) -> list[str]:
    python, agent = _guest_python(), str(GUEST_TOOLS / "agent.py")
    if systemd is None:
        return [python, "-I", "-S", "-B", agent]
    if not Path("/lib/systemd/systemd").exists():
        raise HeadunitError("systemd is missing: install the package systemd")
    return ["/bin/sh", str(GUEST_TOOLS / "handover"), str(systemd), python, agent]


def _guest_python() -> str:
    """The distribution's interpreter: the one in PATH may be a wrapper that takes long to start."""
    for path in ("/usr/bin/python3", shutil.which("python3")):
        if path and os.path.exists(path):
            return path
    raise HeadunitError("python3 is missing: install the package python3")


def _pack(tree: Path, image: Path) -> None:
    names = sorted(str(path.relative_to(tree)) for path in tree.rglob("*"))
    with open(image, "wb") as output:
        packed = subprocess.run(["cpio", "--quiet", "-o", "-H", "newc", "-R", "0:0"], cwd=tree, stdout=output,
                                input="\n".join(names).encode() + b"\n", stderr=subprocess.PIPE, check=False)
    if packed.returncode != 0:
        raise HeadunitError(f"cpio failed: {packed.stderr.decode(errors='replace').strip()}")
