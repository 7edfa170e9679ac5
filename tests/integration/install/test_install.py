# SPDX-License-Identifier: Apache-2.0
"""The installed tree as its users find it: which headers there are and that each compiles alone, what the libraries
export, that programs run from wherever they are put, and that an application builds by CMake and by pkg-config.

The tree is staged once below a folder of its own, and nothing here looks at the project's folders for a header or a
library.
"""

from __future__ import annotations

import argparse
import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import unittest
from collections.abc import Iterable
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent.parent / "rules"))

import includes  # noqa: E402
import tree  # noqa: E402

BINDER_HEADERS = "platform/binder/include"
FOREIGN = re.compile(r"libusb|blkid|libxml")
COMPILERS = ("g++", "clang++")
LIMIT = 200  # seconds for one command, on a machine that does other things too

HEARD = """services DeviceManager VolumeManager UsbManager
added /devices/one
removed /devices/one
removals 1, sum 42
mounted sda1 on /mnt/sda1
attached 05ac:12a8
event 3 4
descriptor usb.UsbManager, null null
"""


def run(command: list[str], **options: object) -> str:
    """Runs a command; returns its standard output, and fails with all it said."""
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=LIMIT,
                          check=False, **options)
    if done.returncode != 0:
        raise AssertionError(f"{shlex.join(map(str, command))}: exit status {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout


class Stage:
    """The project installed for the prefix that it was configured with, below a temporary folder."""

    def __init__(self, build: Path) -> None:
        self._folder = tempfile.TemporaryDirectory(prefix="install-")
        self.root = Path(self._folder.name) / "root"
        self.work = Path(self._folder.name) / "work"
        self.work.mkdir()
        run(["cmake", "--install", str(build)], env={**os.environ, "DESTDIR": str(self.root)})
        cache = dict(re.findall(r"^(\w+):\w+=(.*)$", (build / "CMakeCache.txt").read_text(), re.MULTILINE))
        self.prefix = self.root / cache["CMAKE_INSTALL_PREFIX"].lstrip("/")
        self.libraries = self.prefix / cache["CMAKE_INSTALL_LIBDIR"]
        self.private = self.libraries / "device-service"
        self.headers = self.prefix / cache["CMAKE_INSTALL_INCLUDEDIR"] / "deviceservice"
        self.version = cache["CMAKE_PROJECT_VERSION"]
        self.bundled_binder = (self.private / "libbinder.so").exists()

    def close(self) -> None:
        self._folder.cleanup()

    def pkg_config(self, *arguments: str) -> list[str]:
        # The tree is staged: what the file calls the prefix is where the file is.
        return shlex.split(run(["pkg-config", "--define-prefix", *arguments, "deviceservice"],
                               env={**os.environ, "PKG_CONFIG_PATH": str(self.libraries / "pkgconfig")}))


BUILD = Path()
stage: Stage


def setUpModule() -> None:
    global stage
    stage = Stage(BUILD)


def tearDownModule() -> None:
    stage.close()


def client_headers() -> set[str]:
    """What the library's users may include, by the rule that the tree's own programs obey."""
    return {str(path) for path in tree.files(".h") if includes.CLIENT_HEADER.match(str(path))}


class HeaderList(unittest.TestCase):
    def test_exactly_the_clients_headers_are_installed(self) -> None:
        expected = client_headers()
        if stage.bundled_binder:
            expected |= {str(path.relative_to(BINDER_HEADERS)) for path in tree.files(".h", below=[BINDER_HEADERS])}
        installed = {str(path.relative_to(stage.headers)) for path in stage.headers.rglob("*") if path.is_file()}
        self.assertEqual(sorted(expected), sorted(installed))
        self.assertGreater(len(expected), 30)


class Headers(unittest.TestCase):
    def test_each_compiles_alone_and_needs_none_of_the_daemons_libraries(self) -> None:
        flags = stage.pkg_config("--cflags")
        self.assertIn(f"-I{stage.headers}", [os.path.normpath(flag) for flag in flags])

        def compile_alone(job: tuple[str, Path]) -> str:
            compiler, header = job
            rule = stage.work / f"{compiler}-{header.relative_to(stage.headers)}.d".replace("/", "-")
            command = [compiler, "-std=c++17", "-fsyntax-only", "-Wall", "-Wextra", "-Werror", "-MD", "-MF", str(rule),
                       *flags, "-x", "c++", "-include", str(header), "/dev/null"]
            complaint = tree.run(command)
            if complaint:
                return complaint
            used = rule.read_text().replace("\\\n", " ").split()
            if not any(path.endswith("/utils/RefBase.h") or path.endswith("/cstdint") for path in used):
                return f"{compiler} {header}: what it includes is not known: {used}"
            wrong = [path for path in used if FOREIGN.search(path) or path.startswith(f"{tree.ROOT}/")]
            return f"{compiler} {header} includes {wrong}" if wrong else ""

        jobs = [(compiler, header) for compiler in COMPILERS for header in sorted(stage.headers.rglob("*.h"))]
        self.assertEqual([], tree.in_parallel(compile_alone, jobs))


# Installed for its constants: the daemon alone implements it, clients have IDeviceManager.
CODE_IS_THE_DAEMONS = {"device::DeviceManagerItf"}
# Classes without a virtual function, whose type the compiler describes nowhere.
WITHOUT_TYPE_INFORMATION = {"client::Client", "client::Events", "client::Lists"}
# What stands before the name in a demangled symbol that is no function or variable of the name's own.
GENERATED = re.compile(r"^(?:(?:non-)?virtual thunk to|covariant return thunk to|vtable for|VTT for|typeinfo for|"
                       r"typeinfo name for) ")
INTERNAL_FUNCTION = re.compile(r"^(device|usb|volume)::(read|write)(Device|UsbDevice|Volume)\(")
INTERNAL_CLASS = re.compile(r"^((device|usb|volume)::Bp\w+|client::\w+)$")


def exports_of(library: Path) -> list[tuple[str, str]]:
    """Symbols that others may link, demangled, each with its version."""
    found = []
    listed = run(["nm", "-D", "-C", "--defined-only", "--with-symbol-versions", str(library)])
    for line in listed.splitlines():
        kind, name = re.fullmatch(r"[0-9a-f]+ (\w) (.*)", line).groups()
        if kind == "A":
            continue  # the version itself
        symbol, _, version = name.partition("@@")
        found.append((symbol, version))
    return found


def client_classes(headers: Iterable[str]) -> set[str]:
    """The classes that headers declare and the library has the code of: a header's name is its class's."""
    return {header[:-2].replace("/", "::") for header in headers} - CODE_IS_THE_DAEMONS


class Exports(unittest.TestCase):
    def test_the_client_library_exports_the_classes_of_its_headers(self) -> None:
        classes = client_classes(client_headers())
        version = f"DEVICESERVICE_{stage.version.split('.')[0]}"
        seen = set()
        strangers = []
        internals = set()
        for symbol, its_version in exports_of(stage.libraries / "libdeviceservice.so"):
            plain = GENERATED.sub("", symbol)
            owner = "::".join(plain.split("(")[0].split("<")[0].split("::")[:2])
            if its_version == version and owner in classes:
                seen.add(owner)
            elif its_version == "DEVICESERVICE_PRIVATE" and (INTERNAL_CLASS.match(owner) or
                                                             INTERNAL_FUNCTION.match(plain)):
                internals.add(owner)
            else:
                strangers.append((symbol, its_version))
        self.assertEqual([], strangers)
        self.assertEqual(set(), classes - seen, "classes whose headers are installed, but not their code")
        shared = {f"{form}{record}" for form in ("read", "write") for record in ("Device", "UsbDevice", "Volume")}
        self.assertEqual(set(), shared - {name.split("::")[1] for name in internals}, "what the daemon links beside it")

    def test_type_information_of_every_class_is_exported(self) -> None:
        exported = {symbol for symbol, _ in exports_of(stage.libraries / "libdeviceservice.so")}
        derived = [header for header in client_headers() if re.search(r"\b(virtual|override)\b", tree.text_of(Path(header)))]
        wanted = {f"typeinfo {word}for {name}" for name in client_classes(derived) for word in ("", "name ")}
        self.assertGreater(len(wanted), 40)
        self.assertEqual(set(), wanted - exported)

    def test_bundled_libraries_export_their_interfaces(self) -> None:
        for name, namespace in (("binder", "android::"), ("veltapps", "velta_pps::"), ("vxvendordata", "vx_vendor_data_")):
            library = next(iter(stage.private.glob(f"lib{name}.so.?")), None)
            if library is None:
                continue  # the unit's own is used
            with self.subTest(name):
                exported = [GENERATED.sub("", symbol) for symbol, _ in exports_of(library)]
                self.assertGreater(len(exported), 1)
                self.assertEqual([], [symbol for symbol in exported if not symbol.startswith(namespace)])

    def test_names_of_the_libraries(self) -> None:
        major = stage.version.split(".")[0]
        wanted = {stage.libraries / "libdeviceservice.so": f"libdeviceservice.so.{major}"}
        if stage.bundled_binder:
            wanted[stage.private / "libbinder.so"] = f"libbinder.so.{major}"
        for library, soname in wanted.items():
            with self.subTest(library.name):
                self.assertTrue(library.is_symlink())
                self.assertEqual([soname], re.findall(r"SONAME.*\[(.*)\]", run(["readelf", "-d", str(library)])))


class Papers(unittest.TestCase):
    """What an application's developer reads, and writes his own after."""

    def test_the_examples_are_installed(self) -> None:
        folder = stage.prefix / "share/doc/libdeviceservice-dev/examples"
        sources = {path.relative_to("examples"): path for path in tree.files(below=["examples"])}
        self.assertGreater(len(sources), 4)
        self.assertEqual(set(sources), {path.relative_to(folder) for path in folder.rglob("*")})
        for name, source in sources.items():
            self.assertEqual(tree.text_of(source), (folder / name).read_text(), name)

    def test_the_schema_is_where_the_manual_says(self) -> None:
        manual = (stage.prefix / "share/man/man1/devicectl.1").read_text()
        place = re.search(r"^\.It Pa /usr/(\S+\.schema\.json)$", manual, re.MULTILINE)[1]
        self.assertEqual(tree.text_of(Path("docs/devicectl.schema.json")), (stage.prefix / place).read_text())


class Programs(unittest.TestCase):
    def moved(self) -> Path:
        """The installed tree, in another place than the one that it was made for."""
        other = stage.work / "elsewhere"
        if not other.exists():
            shutil.copytree(stage.prefix, other, symlinks=True)
        return other

    def test_programs_run_from_any_place(self) -> None:
        prefix = self.moved()
        plain = {"PATH": "/usr/bin:/bin"}
        self.assertEqual(f"devicectl {stage.version}\n", run([str(prefix / "bin/devicectl"), "--version"], env=plain))
        if stage.bundled_binder:
            self.assertEqual(f"servicemanager {stage.version}\n",
                             run([str(prefix / "sbin/servicemanager"), "--version"], env=plain))
        # The daemon has no options: that all its libraries are there is asked of the loader.
        needed = run(["ldd", str(prefix / "sbin/device-service")], env=plain)
        self.assertIn("libdeviceservice.so", needed)
        self.assertNotIn("not found", needed)
        self.assertNotIn(str(BUILD), needed)
        self.assertIn(str(prefix), os.path.normpath(re.search(r"libdeviceservice\S* => (\S+)", needed)[1]))

    def test_nothing_installed_names_the_build_tree(self) -> None:
        for path in sorted(stage.root.rglob("*")):
            if not path.is_file() or path.is_symlink():
                continue
            with self.subTest(path.name):
                content = path.read_bytes()
                if content[:4] == b"\x7fELF":
                    # Debug information names sources; what the loader reads must not.
                    content = run(["readelf", "-d", str(path)]).encode()
                self.assertNotIn(str(BUILD).encode(), content)


class Consumer(unittest.TestCase):
    """An application is built without a look at the project, and runs."""

    def test_by_cmake(self) -> None:
        folder = stage.work / "by-cmake"
        shutil.copytree(HERE / "consumer", folder)
        run(["cmake", "-S", str(folder), "-B", str(folder / "build"), "-DCMAKE_BUILD_TYPE=Release",
             f"-DCMAKE_PREFIX_PATH={stage.prefix}", f"-DWANTED_VERSION={stage.version}"])
        run(["cmake", "--build", str(folder / "build")])
        self.assertEqual(HEARD, run([str(folder / "build/consumer")]))
        needed = run(["ldd", str(folder / "build/consumer")])
        self.assertIsNone(FOREIGN.search(needed), needed)

    def test_cmake_refuses_a_version_that_is_not_there(self) -> None:
        folder = stage.work / "too-new"
        shutil.copytree(HERE / "consumer", folder)
        with self.assertRaisesRegex(AssertionError, r"requested version\s+\"99.0\""):
            run(["cmake", "-S", str(folder), "-B", str(folder / "build"), f"-DCMAKE_PREFIX_PATH={stage.prefix}",
                 "-DWANTED_VERSION=99.0"])

    def test_the_pages_code(self) -> None:
        """What docs/client-library.md shows under a file's name is built as its reader builds it, and runs."""
        page = tree.text_of(Path("docs/client-library.md"))
        blocks = dict(re.findall(r"^```cpp (\S+)\n(.*?)^```", page, re.MULTILINE | re.DOTALL))
        self.assertEqual({"list-once.cpp", "events.cpp"}, set(blocks))
        flags = ["-std=c++17", "-Wall", "-Wextra", "-Werror", *stage.pkg_config("--cflags")]
        for name, text in blocks.items():
            (stage.work / name).write_text(text)
            for compiler in COMPILERS:
                with self.subTest(f"{compiler} {name}"):
                    run([compiler, *flags, "-fsyntax-only", str(stage.work / name)])
        program = stage.work / "list-once"
        run(["g++", *flags, str(stage.work / "list-once.cpp"), "-o", str(program), *stage.pkg_config("--libs")])
        # Without a driver it says so and ends.
        done = subprocess.run([str(program)], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=LIMIT,
                              check=False, env={**os.environ, "LD_LIBRARY_PATH": str(stage.libraries),
                                                "BINDER_DEVICE": "/nonexistent/binder"})
        self.assertEqual((1, ""), (done.returncode, done.stdout), done.stderr)
        # Behind what the libraries log.
        self.assertEqual("no volume manager: no driver, no service manager, or no daemon", done.stderr.splitlines()[-1])

    def test_by_pkg_config(self) -> None:
        self.assertEqual([stage.version], stage.pkg_config("--modversion"))
        file = (stage.libraries / "pkgconfig/deviceservice.pc").read_text()
        self.assertIn(f"prefix=/{stage.prefix.relative_to(stage.root)}\n", file, "without the folder that it is staged in")
        program = stage.work / "by-pkg-config"
        for compiler in COMPILERS:
            with self.subTest(compiler):
                run([compiler, "-std=c++17", str(HERE / "consumer/consumer.cpp"), *stage.pkg_config("--cflags"), "-o",
                     str(program), *stage.pkg_config("--libs")])
                # The folder of the client library itself is a system folder where the package is installed.
                self.assertEqual(HEARD, run([str(program)], env={**os.environ, "LD_LIBRARY_PATH": str(stage.libraries)}))


def main() -> None:
    global BUILD
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", type=Path, required=True)
    options, others = parser.parse_known_args()
    BUILD = options.build.resolve()
    unittest.main(argv=[sys.argv[0], *others], verbosity=2)


main()
