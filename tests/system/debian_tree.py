# SPDX-License-Identifier: Apache-2.0
"""A fresh Debian tree of this machine's release: debootstrapped once into the cache folder, laid under a throw-away
overlay for each test, with the sources, the proxy and the resolver that this machine's apt uses."""

from __future__ import annotations

import contextlib
import fcntl
import os
import re
import shlex
import shutil
import stat
import subprocess
import sys
import tempfile
from collections.abc import Iterator
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT))

from vm.paths import cache_dir  # noqa: E402

LAYOUT = "debian-1"  # a change of what a cached tree consists of takes a new name
MINUTES = 60  # seconds
ENVIRONMENT = {"HOME": "/root", "PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL": "C.UTF-8",
               "DEBIAN_FRONTEND": "noninteractive"}
INSIDE = "DEBIAN_TREE_NAMESPACE"


def enter_namespace() -> None:
    """Starts this program again in a mount namespace of its own, unless it runs in one already: whatever it mounts goes
    with it, even when it is killed."""
    if os.environ.get(INSIDE):
        return
    if os.getuid() != 0:
        sys.exit("this test needs root: it mounts a Debian tree and installs packages in it")
    os.environ[INSIDE] = "1"
    os.execvp("unshare", ["unshare", "--mount", "--propagation", "private", sys.executable, "-B", *sys.argv])


def run(command: list[str], limit: float = 10 * MINUTES, **options: object) -> str:
    """Runs a command; returns what it said on both streams, and fails with it."""
    done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          errors="replace", timeout=limit, check=False, **options)
    if done.returncode != 0:
        raise AssertionError(f"{shlex.join(map(str, command))}: exit status {done.returncode}\n{done.stdout}")
    return done.stdout


def _release() -> str:
    return re.search(r"^VERSION_CODENAME=(\w+)", Path("/etc/os-release").read_text(), re.MULTILINE)[1]


def _sources() -> list[tuple[str, str, str]]:
    """Site, suite and component of Debian's own archives that this machine's apt uses."""
    listed = run(["apt-get", "indextargets", "--format", "$(CREATED_BY)|$(ORIGIN)|$(SITE)|$(RELEASE)|$(COMPONENT)"])
    found = []
    for line in listed.splitlines():
        created, origin, *source = line.split("|")
        if created == "Packages" and origin == "Debian":
            found.append(tuple(source))
    if not found:
        raise AssertionError("apt knows no archive of Debian: run apt-get update")
    return found


def _proxy() -> str:
    """apt's proxy settings, as lines of its configuration."""
    return "".join(f"{line}\n" for line in run(["apt-config", "dump"]).splitlines()
                   if re.match(r"Acquire::https?::Proxy\b", line))


def _make(tree: Path) -> None:
    release = _release()
    sources = _sources()
    site = next(site for site, suite, _ in sources if suite == release)
    environment = dict(os.environ)
    proxy = re.search(r'Acquire::http::Proxy "(.+)"', _proxy())
    if proxy:
        environment["http_proxy"] = proxy[1]
    run(["debootstrap", "--variant=minbase", release, str(tree), site], limit=30 * MINUTES, env=environment)
    shutil.rmtree(tree / "var/cache/apt/archives", ignore_errors=True)
    (tree / "var/cache/apt/archives/partial").mkdir(parents=True)
    lines = dict.fromkeys(f"deb {site} {suite} {component}\n" for site, suite, component in sources)
    (tree / "etc/apt/sources.list").write_text("".join(lines))
    (tree / "etc/apt/apt.conf.d/90host").write_text(_proxy() + 'APT::Sandbox::User "root";\n')


def _mount(*arguments: str) -> None:
    run(["mount", *arguments])


class DebianTree:
    """A running copy; chroot() runs a command in it."""

    def __init__(self, root: Path) -> None:
        self.root = root

    def chroot(self, *command: str, limit: float = 10 * MINUTES) -> str:
        return run(["chroot", str(self.root), *command], limit=limit, env=ENVIRONMENT)

    def apt(self, *arguments: str) -> str:
        """apt-get; renews the package lists once when what they name is no longer there."""
        command = ("apt-get", "-q", "-y", "--no-install-recommends", *arguments)
        try:
            return self.chroot(*command)
        except AssertionError as error:
            if not re.search(r"404|Failed to fetch|Unable to locate|Unable to fetch|no installation candidate", str(error)):
                raise
            self.chroot("apt-get", "-q", "update")
            return self.chroot(*command)


def _furnish(root: Path) -> None:
    """What a tree has while commands run in it."""
    for name in ("resolv.conf", "hosts"):
        if Path("/etc", name).exists():
            shutil.copyfile(Path("/etc", name), root / "etc" / name)
    _mount("-t", "proc", "proc", str(root / "proc"))
    _mount("-t", "sysfs", "-o", "ro", "sysfs", str(root / "sys"))
    _mount("-t", "tmpfs", "tmpfs", str(root / "run"))
    # A folder of its own: nothing that happens in the tree reaches this machine's devices.
    _mount("-t", "tmpfs", "-o", "mode=0755", "tmpfs", str(root / "dev"))
    for name, major, minor in (("null", 1, 3), ("zero", 1, 5), ("full", 1, 7), ("random", 1, 8), ("urandom", 1, 9)):
        os.mknod(root / "dev" / name, 0o666 | stat.S_IFCHR, os.makedev(major, minor))
        (root / "dev" / name).chmod(0o666)
    (root / "dev/shm").mkdir(mode=0o1777)


@contextlib.contextmanager
def _locked(folder: Path) -> Iterator[None]:
    with open(folder / "lock", "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield


def _cached() -> Path:
    """The cached tree, made first when there is none; it appears by one rename, whole or not at all."""
    base = cache_dir() / LAYOUT
    base.mkdir(parents=True, exist_ok=True)
    tree = base / _release()
    with _locked(base):
        if not tree.is_dir():
            for stale in base.glob("new-*"):
                shutil.rmtree(stale, ignore_errors=True)
            new = Path(tempfile.mkdtemp(prefix="new-", dir=base))
            try:
                new.chmod(0o755)
                _make(new)
                with _overlay(new, base / "archives", keep=True) as made:
                    made.chroot("apt-get", "-q", "update", limit=30 * MINUTES)
                new.rename(tree)
            finally:
                shutil.rmtree(new, ignore_errors=True)
        (base / "archives/partial").mkdir(parents=True, exist_ok=True)
    return tree


@contextlib.contextmanager
def _overlay(lower: Path, archives: Path, keep: bool = False) -> Iterator[DebianTree]:
    """The tree with a tmpfs over it, or itself; and the downloaded packages of earlier runs."""
    (archives / "partial").mkdir(parents=True, exist_ok=True)
    # Never removed with all that is below it: what is mounted there is the cache.
    folder = Path(tempfile.mkdtemp(prefix="debian-"))
    root = folder / "root"
    upper = folder / "upper"
    root.mkdir()
    upper.mkdir()
    try:
        if keep:
            _mount("--bind", str(lower), str(root))
        else:
            _mount("-t", "tmpfs", "-o", "mode=0755", "tmpfs", str(upper))
            for name in ("data", "work"):
                (upper / name).mkdir()
            _mount("-t", "overlay", "overlay", "-o",
                   f"lowerdir={lower},upperdir={upper}/data,workdir={upper}/work", str(root))
        _furnish(root)
        _mount("--bind", str(archives), str(root / "var/cache/apt/archives"))
        yield DebianTree(root)
    finally:
        for mounted in (root, upper):
            subprocess.run(["umount", "--recursive", "--lazy", str(mounted)], stderr=subprocess.DEVNULL, check=False)
        with contextlib.suppress(OSError):
            for empty in (root, upper, folder):
                empty.rmdir()


@contextlib.contextmanager
def fresh_tree() -> Iterator[DebianTree]:
    """A minimal Debian, as debootstrap makes it, which nobody else sees and which is gone afterwards."""
    lower = _cached()
    with _overlay(lower, lower.parent / "archives") as tree:
        yield tree
