# SPDX-License-Identifier: Apache-2.0
"""The commands of `./headunit` that have to do with the machine."""

from __future__ import annotations

import argparse
import contextlib
import os
import signal
import sys
from collections.abc import Iterator
from pathlib import Path
from types import FrameType

from . import kernel
from .control import ControlServer, ask
from .errors import HeadunitError
from .machine import Machine
from .media import FILE_SYSTEMS, TABLES
from .paths import LOGS, ROOT
from .peripherals import Peripherals
from .ports import PortMap
from .progress import complain, say, step
from .runcommand import Run
from .services import Services
from .session import Session
from .shellcommand import run_shell
from .usbmodels import MANNERS

FAILED = 1


class Terminated(BaseException):
    """A signal asks for the end; it passes through like Ctrl-C, so that everything is cleaned up."""


def _terminate(number: int, frame: FrameType | None) -> None:
    raise Terminated(signal.Signals(number).name)


@contextlib.contextmanager
def _booted(console: Path) -> Iterator[Machine]:
    """A running machine. During the clean-up, which takes no time, signals are not heard any more."""
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, _terminate)
    console.parent.mkdir(parents=True, exist_ok=True)
    console.unlink(missing_ok=True)
    with contextlib.ExitStack() as stack:
        session = stack.enter_context(Session())
        machine = stack.enter_context(Machine(session, console=console))
        stack.callback(_ignore_signals)
        if not kernel.is_cached():
            with step("download and unpack the kernel"):
                kernel.prepare()
        with step("boot the virtual head unit"):
            machine.boot()
        yield machine


def _ignore_signals() -> None:
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, signal.SIG_IGN)


def _run(arguments: argparse.Namespace) -> int:
    interactive = sys.stdout.isatty() and arguments.seconds is None
    with _booted(LOGS / "run" / "console.log") as machine:
        Run(machine, arguments.build).execute(arguments.seconds, interactive)
    say("ended, nothing is left behind")
    return 0


def _shell(arguments: argparse.Namespace) -> int:
    with _booted(LOGS / "shell" / "console.log") as machine:
        if not arguments.bare:
            with step("start servicemanager and device-service"):
                Services(machine.guest, arguments.build).start()
        with ControlServer(machine.session.control_socket, machine.peripherals):
            return run_shell(machine.guest, arguments.build)


def _plug(arguments: argparse.Namespace) -> int:
    chosen = {"size_mib": arguments.size, "fs": arguments.fs, "bus": arguments.bus,
              "behind": arguments.behind, "product": arguments.product, "manner": arguments.manner,
              "table": arguments.table, "label": arguments.label,
              "partitioned": False if arguments.whole else None,
              "write_protected": True if arguments.write_protected else None}
    options = {key: value for key, value in chosen.items() if value is not None}
    answer = ask({"op": "plug", "kind": arguments.kind, "options": options})
    name = answer["name"]
    print(f"plugged {name} into {answer['place']}; pull it out with ./headunit unplug {name}")
    return 0


def _unplug(arguments: argparse.Namespace) -> int:
    answer = ask({"op": "unplug", "name": arguments.name})
    print(f"pulled out {answer['name']}")
    return 0


def _seconds(text: str) -> float:
    value = float(text)
    if not 0 < value < 1e6:
        raise ValueError
    return value


_seconds.__name__ = "number of seconds"


def _number(text: str) -> int:
    return int(text, 0)


_number.__name__ = "number"


def _table(entries: dict[str, str]) -> str:
    width = max(map(len, entries))
    return "\n".join(f"  {name:<{width}}  {text}" for name, text in entries.items())


def _parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(prog="./headunit", description="The virtual head unit.")
    commands = parser.add_subparsers(dest="command", required=True, metavar="COMMAND")

    run = commands.add_parser("run", help="boot, plug a stick and a card, show the live events")
    run.add_argument("--for", dest="seconds", type=_seconds, metavar="SECONDS", help="end by itself")
    run.set_defaults(action=_run)

    shell = commands.add_parser("shell", help="boot and open a shell in the guest")
    shell.add_argument("--bare", action="store_true", help="without servicemanager and device-service")
    shell.set_defaults(action=_shell)
    for command in (run, shell):
        command.add_argument("--build", type=Path, default=ROOT / "build/dev", metavar="DIR",
                             help=argparse.SUPPRESS)
        command.add_argument("--check-usage", action="store_true", help=argparse.SUPPRESS)

    plug = commands.add_parser("plug", help="plug a device into the running head unit",
                               formatter_class=argparse.RawDescriptionHelpFormatter,
                               epilog=f"kinds:\n{_table(Peripherals.KINDS)}\n\nmanners:\n{_table(MANNERS)}")
    plug.add_argument("kind", choices=tuple(Peripherals.KINDS), metavar="KIND", help="one of the kinds below")
    plug.add_argument("--size", type=int, metavar="MIB", help="size of a stick or card (64)")
    plug.add_argument("--fs", choices=FILE_SYSTEMS, help="file system of a stick or card (vfat)")
    plug.add_argument("--table", choices=TABLES, help="partition table of a stick or card (dos)")
    plug.add_argument("--whole", action="store_true", help="without a partition table, as --table none")
    plug.add_argument("--label", help="label of its file system (HEADUNIT)")
    plug.add_argument("--write-protected", action="store_true", help="a stick that cannot be written")
    plug.add_argument("--bus", choices=tuple(PortMap.BUSES), help="USB host controller (ehci)")
    plug.add_argument("--behind", metavar="HUB", help="plug into this hub, for example hub1")
    plug.add_argument("--product", type=_number, metavar="NUMBER",
                      help="product of a phone or testdevice, decimal or 0x...")
    plug.add_argument("--manner", choices=tuple(MANNERS), metavar="MANNER",
                      help="how a phone treats the requests that it knows, see below (plain)")
    plug.set_defaults(action=_plug)

    unplug = commands.add_parser("unplug", help="pull a device out by surprise")
    unplug.add_argument("name", metavar="NAME", help="its name, for example stick1")
    unplug.set_defaults(action=_unplug)
    return parser


def main() -> int:
    """Runs one command and returns the exit status; argparse ends wrong usage with 2."""
    arguments = _parser().parse_args()
    if getattr(arguments, "check_usage", False):
        return 0
    if hasattr(arguments, "build"):
        arguments.build = arguments.build.absolute()
    try:
        status: int = arguments.action(arguments)
        return status
    except HeadunitError as error:
        complain(str(error))
    except KeyboardInterrupt:
        complain("interrupted")
    except Terminated as ending:
        complain(f"ended by {ending}")
    except BrokenPipeError:
        # Nobody reads any more; the interpreter's own last flush must not complain either.
        os.dup2(os.open(os.devnull, os.O_WRONLY | os.O_CLOEXEC), sys.stdout.fileno())
    except OSError as error:
        complain(f"{error.filename or 'a file of the run'}: {error.strerror}")
    return FAILED
