# SPDX-License-Identifier: Apache-2.0
"""The machine: one emulator process with the head unit's hardware, from boot to its certain end."""

from __future__ import annotations

import atexit
import contextlib
import ctypes
import os
import shutil
import signal
import socket
import subprocess
import threading
import time
from collections.abc import Callable, Collection
from pathlib import Path

from . import initramfs, kernel
from .errors import HeadunitError
from .guestlink import Guest
from .paths import GUEST_TOOLS, LOGS, ROOT, cache_dir
from .peripherals import CARD_DEVICE, CARD_SLOT, Peripherals
from .ports import XHCI_PORTS
from .qmp import Qmp
from .session import Session

EMULATOR = "qemu-system-x86_64"
BOOT_LIMIT = 180.0  # seconds; a boot takes 5 on an idle machine
PR_SET_PDEATHSIG = 1

# The kernel's own checks of an emulated processor cost more than they tell. A panic ends the machine at once,
# and so does the end of the first process, which is the agent. The other processors come up when the guest
# has settled: while it boots, the kernel patches its own code, and an emulated processor that runs just there
# can stay caught in what stood there before. About one boot in two hundred hung so.
KERNEL_LINE = ("console=ttyS0 loglevel=4 panic=-1 mitigations=off nokaslr random.trust_cpu=on tsc=reliable "
               "no_timer_check maxcpus=1 noreplace-smp")


def accelerator() -> str:
    """Hardware virtualisation where it works, or what HEADUNIT_ACCEL says; else the emulated processor.

    The node alone tells too little: there are build machines with a /dev/kvm and no support behind it.
    """
    chosen = os.environ.get("HEADUNIT_ACCEL")
    if chosen:
        return chosen
    with contextlib.suppress(OSError):
        flags = Path("/proc/cpuinfo").read_text(encoding="ascii", errors="replace").split()
        if ("vmx" in flags or "svm" in flags) and os.access("/dev/kvm", os.R_OK | os.W_OK):
            return "kvm"
    return "tcg,thread=multi"


class Machine:
    """A booted head unit. Boot it from the main thread: the emulator ends with the thread that started it."""

    def __init__(self, session: Session, leave_out: Collection[str] = (), without_binder: bool = False,
                 memory_mib: int = 1024, processors: int = 2, console: Path | None = None,
                 systemd: Path | None = None) -> None:
        """leave_out names modules that are not loaded; console is where the console's log goes; systemd is a folder
        with files to lay over the guest's root, whose first process is systemd then and not the agent."""
        self.session = session
        self.console = console or session.work / "console.log"
        self._emulator_log = session.work / "emulator.log"
        self.guest: Guest
        self.peripherals: Peripherals
        self.boot_seconds = 0.0
        self._leave_out = {*leave_out, *(("binder_linux",) if without_binder else ())}
        self._memory_mib = memory_mib
        self._processors = processors
        self._systemd = systemd
        self._process: subprocess.Popen[bytes] | None = None
        self._qmp: Qmp | None = None

    def boot(self, timeout: float = BOOT_LIMIT) -> Machine:
        """Starts the machine and returns when the guest has settled; a failure names the console's log."""
        assert threading.current_thread() is threading.main_thread(), "boot from the main thread"
        atexit.register(self.stop)
        start = time.monotonic()
        cached = kernel.prepare()
        image = initramfs.build(cached, self.session.work, self._leave_out, self._systemd)
        try:
            self._start(cached, image)
            assert self._qmp is not None and self._process is not None
            self._qmp.negotiate(timeout=30.0)
            self.peripherals = Peripherals(self._qmp, self.session.work, self.guest)
            self.guest.wait_hello(timeout, alive=lambda: self.is_running)
            self.guest.run(self._bringup(), timeout, check=True)
        except HeadunitError as error:
            self.stop()
            said = " ".join(self.emulator_text().split())
            raise HeadunitError(f"boot failed: {error}{f' ({said})' if said else ''}; "
                                f"the console's log is {self._keep_console()}") from error
        except BaseException:
            self.stop()
            raise
        self.boot_seconds = time.monotonic() - start
        return self

    @property
    def is_running(self) -> bool:
        return self._process is not None and self._process.poll() is None

    @property
    def pid(self) -> int:
        """The emulator's process."""
        assert self._process is not None
        return self._process.pid

    def console_text(self) -> str:
        """What the guest's console showed so far."""
        with contextlib.suppress(OSError):
            return self.console.read_text(encoding="utf-8", errors="replace")
        return ""

    def emulator_text(self) -> str:
        """What the emulator itself said: nothing, as long as all is well."""
        with contextlib.suppress(OSError):
            return self._emulator_log.read_text(encoding="utf-8", errors="replace")
        return ""

    def stop(self) -> None:
        """Ends the machine at once: nothing in it needs an orderly end. Safe to call twice."""
        atexit.unregister(self.stop)
        process, self._process = self._process, None
        if process is None:
            return
        process.kill()
        process.wait()
        self.guest.close()
        if self._qmp:
            self._qmp.close()

    def __enter__(self) -> Machine:
        return self

    def __exit__(self, *exc: object) -> None:
        self.stop()

    def _kernel_line(self) -> str:
        # A crashed systemd would stand still; as a restart it ends the machine.
        return f"{KERNEL_LINE} systemd.crash_reboot=yes systemd.show_status=no" if self._systemd is not None else KERNEL_LINE

    def _bringup(self) -> list[str]:
        """What the guest still has to do when the agent runs."""
        if self._systemd is not None:
            return [str(GUEST_TOOLS / "settle")]
        return [str(GUEST_TOOLS / "bringup"), str(ROOT), str(cache_dir())]

    def _keep_console(self) -> Path:
        """Moves the console's log out of the session's folder, which goes with the session."""
        if self.session.work not in self.console.parents or not self.console.exists():
            return self.console
        LOGS.mkdir(parents=True, exist_ok=True)
        kept = LOGS / f"console-{os.getpid()}.log"
        shutil.copy(self.console, kept)
        return kept

    def _start(self, cached: kernel.Kernel, image: Path) -> None:
        qmp_ours, qmp_theirs = socket.socketpair()
        agent_ours, agent_theirs = socket.socketpair()
        self.console.touch()
        argv = self._arguments(cached, image, qmp_theirs.fileno(), agent_theirs.fileno())
        try:
            with open(self._emulator_log, "wb") as output:
                self._process = subprocess.Popen(
                    argv, stdin=subprocess.DEVNULL, stdout=output, stderr=output, start_new_session=True,
                    pass_fds=(qmp_theirs.fileno(), agent_theirs.fileno()), preexec_fn=_end_with(os.getpid()))
        except OSError as error:
            raise HeadunitError(f"cannot run {EMULATOR}: {error.strerror}") from error
        finally:
            qmp_theirs.close()
            agent_theirs.close()
        self._qmp = Qmp(qmp_ours)
        self.guest = Guest(agent_ours)

    def _arguments(self, cached: kernel.Kernel, image: Path, qmp: int, agent: int) -> list[str]:
        argv = [EMULATOR, "-name", "headunit", "-accel", accelerator(), "-machine", "q35",
                "-cpu", "max", "-smp", str(self._processors), "-m", str(self._memory_mib),
                "-nodefaults", "-no-user-config", "-display", "none", "-no-reboot",
                "-kernel", str(cached.image), "-initrd", str(image), "-append", self._kernel_line(),
                "-chardev", f"file,id=console,path={_escape(self.console)}", "-serial", "chardev:console",
                "-chardev", f"socket,id=qmp,fd={qmp}", "-mon", "chardev=qmp,mode=control",
                "-virtfs", "local,path=/,mount_tag=host,security_model=none,readonly=on,multidevs=remap",
                "-device", "virtio-serial-pci",
                "-chardev", f"socket,id=agent,fd={agent}",
                "-device", "virtserialport,chardev=agent,name=agent",
                "-device", "ich9-usb-ehci1,id=ehci,addr=1d.7,multifunction=on"]
        for function, first in enumerate((0, 2, 4)):
            argv += ["-device", f"ich9-usb-uhci{function + 1},masterbus=ehci.0,firstport={first},"
                                f"addr=1d.{function},multifunction=on"]
        argv += ["-device", f"qemu-xhci,id=xhci,p2={XHCI_PORTS},p3={XHCI_PORTS}",
                 "-drive", f"if=none,id={CARD_SLOT}", "-device", "sdhci-pci",
                 "-device", f"sd-card,id={CARD_DEVICE},drive={CARD_SLOT}"]
        return argv


def _escape(path: Path) -> str:
    """A comma in an option's value is written twice."""
    return str(path).replace(",", ",,")


def _end_with(owner: int) -> Callable[[], None]:
    """The step between fork and exec that ties the emulator's life to its owner's, also for kill -9."""
    prctl = ctypes.CDLL(None, use_errno=True).prctl

    def tie() -> None:
        prctl(PR_SET_PDEATHSIG, signal.SIGKILL, 0, 0, 0)
        if os.getppid() != owner:  # it died in between
            os._exit(1)

    return tie
