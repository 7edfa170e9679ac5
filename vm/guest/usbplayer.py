# SPDX-License-Identifier: Apache-2.0
"""Plays USB peripherals inside the guest: the kernel's virtual host controller asks, this program answers.

A process for each, so that one can end at any moment, which is the pull of its plug. Requests are JSON objects,
one a line, on standard input; descriptions are those of vm/usbmodels.py:

    {"op": "plug", "name": NAME, "model": DESCRIPTION}         {"op": "unplug", "name": NAME}

Answers and what the host asks of each come as JSON objects, one a line:

    {"name": NAME, "event": "plugged", "port": N, "bus": N}    it sits in this port of that bus
    {"name": NAME, "event": "refused", "text": TEXT}           it could not be plugged in
    {"name": NAME, "event": "unplugged"}                       its process has ended
    {..., "event": "configured", "value": N}                   the host chose a configuration
    {..., "event": "request", "type": N, "request": N, "value": N, "index": N, "length": N, "answer": ANSWER}
                                                               a vendor's control request, and what became of it:
                                                               data in hexadecimal, or "stall", "silent",
                                                               "overflow", "leave"
    {..., "event": "cancelled", "request": N}                  the host gave up a vendor's request

The kernel's side: a connected stream socket is handed to the controller, which writes a submission or a
cancellation for each transfer and reads the results, in any order. All numbers are big-endian but those of the
8 bytes of a control request.
"""

import json
import os
import signal
import socket
import struct
import sys

CONTROLLER = "/sys/devices/platform/vhci_hcd.0"
FREE = 4        # state of a port in the controller's table
HIGH_SPEED = 3  # the kernel's number

SUBMIT, CANCEL, RESULT, CANCELLED = 1, 2, 3, 4
HEADER = 48
IN = 1

STALL = -32        # EPIPE
OVERFLOW = -75     # EOVERFLOW
CONNRESET = -104   # ECONNRESET: cancelled before it was done

DEVICE, CONFIGURATION, STRING = 1, 2, 3


def say(name: str, event: str, **fields: object) -> None:
    """One line in one write: the processes share the output."""
    print(json.dumps({"name": name, "event": event, **fields}), flush=True)


class Refused(Exception):
    """The peripheral cannot be plugged in; the text says why."""


class Description:
    """The peripheral's descriptors."""

    def __init__(self, model: dict) -> None:
        self._strings = [model["manufacturer"], model["name"], model["serial"]]
        numbers = [index if text else 0 for index, text in enumerate(self._strings, 1)]
        self.device = struct.pack("<BBHBBBBHHHBBBB", 18, DEVICE, 0x0200, *model["class"], 64, model["vendor"],
                                  model["product"], 0x0100, *numbers, 1)
        interfaces = b"".join(self._interface(number, *triple) for number, triple in enumerate(model["interfaces"]))
        self.configuration = struct.pack("<BBHBBBBB", 9, CONFIGURATION, 9 + len(interfaces), len(model["interfaces"]),
                                         1, 0, 0x80, model["milliamperes"] // 2) + interfaces

    @staticmethod
    def _interface(number: int, kind: int, subclass: int, protocol: int) -> bytes:
        """An interface with a bulk endpoint each way, over which nothing ever comes."""
        endpoints = b"".join(struct.pack("<BBBBHB", 7, 5, way | number + 1, 2, 512, 0) for way in (0x80, 0x00))
        return struct.pack("<BBBBBBBBB", 9, 4, number, 0, 2, kind, subclass, protocol, 0) + endpoints

    def get(self, kind: int, index: int) -> bytes | None:
        """The descriptor, or None where there is none."""
        if kind == DEVICE:
            return self.device
        if kind == CONFIGURATION and index == 0:
            return self.configuration
        if kind == STRING and index == 0:
            return b"\x04\x03\x09\x04"
        if kind == STRING and index <= len(self._strings):
            text = self._strings[index - 1].encode("utf-16-le")
            return bytes((2 + len(text), STRING)) + text
        return None


class Peripheral:
    """The answers of one peripheral."""

    def __init__(self, name: str, model: dict, line: socket.socket) -> None:
        self._name = name
        self._description = Description(model)
        self._answers = {tuple(entry["request"]): bytes.fromhex(entry["data"]) for entry in model["answers"]}
        self._manner = model["manner"]
        self._line = line
        self._waiting: dict[int, int | None] = {}  # transfers without answer -> the vendor's request, if it is one
        self._configured = 0

    def serve(self) -> None:
        """Answers until the controller hangs up."""
        while header := self._receive(HEADER):
            command, number, _, direction, endpoint = struct.unpack_from(">IIIII", header)
            if command == CANCEL:
                self._cancel(number, struct.unpack_from(">I", header, 20)[0])
            elif command == SUBMIT:
                length = struct.unpack_from(">i", header, 24)[0]
                data = b"" if direction == IN else self._receive(length)
                if endpoint == 0:
                    self._control(number, direction == IN, header[40:48], length)
                elif direction == IN:
                    self._waiting[number] = None
                else:
                    self._finish(number, 0, len(data))
            else:
                raise SystemExit(f"usbplayer: unknown command {command}")

    def _receive(self, size: int) -> bytes:
        """Exactly so many bytes, or none at the end of the connection."""
        data = b""
        while len(data) < size:
            more = self._line.recv(size - len(data))
            if not more:
                return b""
            data += more
        return data

    def _finish(self, number: int, status: int, length: int, data: bytes = b"") -> None:
        self._line.sendall(struct.pack(">IIIIIiiiii8x", RESULT, number, 0, 0, 0, status, length, 0, 0, 0) + data)

    def _cancel(self, number: int, which: int) -> None:
        pending = which in self._waiting
        request = self._waiting.pop(which, None)
        if request is not None:
            say(self._name, "cancelled", request=request)
        self._line.sendall(struct.pack(">IIIIIi24x", CANCELLED, number, 0, 0, 0, CONNRESET if pending else 0))

    def _control(self, number: int, incoming: bool, setup: bytes, length: int) -> None:
        kind, request, value, index, _ = struct.unpack("<BBHHH", setup)
        if kind & 0x60 == 0x40:
            self._vendor(number, incoming, setup, length)
            return
        answer = self._standard(kind, request, value, index)
        if answer is None:
            self._finish(number, STALL, 0)
        else:
            self._give(number, answer[:length] if incoming else b"", length, incoming)

    def _give(self, number: int, data: bytes, length: int, incoming: bool) -> None:
        self._finish(number, 0, len(data) if incoming else length, data)

    def _standard(self, kind: int, request: int, value: int, index: int) -> bytes | None:
        """What every device answers; None for what this one does not know."""
        if request == 0:  # status: bus-powered, no endpoint halted
            return b"\0\0"
        if request == 6 and kind == 0x80:
            return self._description.get(value >> 8, value & 0xFF)
        if request == 8:
            return bytes((self._configured,))
        if request == 9:
            self._configured = value & 0xFF
            say(self._name, "configured", value=self._configured)
            return b""
        if request == 10:
            return b"\0"
        return b"" if request in (1, 3, 11) else None  # features and alternate settings: taken

    def _vendor(self, number: int, incoming: bool, setup: bytes, length: int) -> None:
        kind, request, value, index, _ = struct.unpack("<BBHHH", setup)
        known = self._answers.get((kind, request))
        manner = "stall" if known is None else self._manner
        if not incoming and manner in ("short", "empty", "overflow"):
            manner = "plain"  # there is no length to be wrong
        data = {"short": (known or b"")[:1], "empty": b""}.get(manner, known or b"")[:length]
        said = data.hex() if manner in ("plain", "short", "empty") else manner
        say(self._name, "request", type=kind, request=request, value=value, index=index, length=length, answer=said)
        if manner == "leave":
            os._exit(0)
        if manner == "silent":
            self._waiting[number] = request
        elif manner == "stall":
            self._finish(number, STALL, 0)
        elif manner == "overflow":
            # A device that sends more than was asked for: the controller keeps what fits and reports the rest.
            self._finish(number, OVERFLOW, length, bytes(length))
        else:
            self._give(number, data, length, incoming)


def plug_in(device: socket.socket) -> int:
    """Hands the socket to a free high-speed port of the controller and returns the port's number."""
    for port in free_ports():
        try:
            with open(f"{CONTROLLER}/attach", "w", encoding="ascii") as attach:
                attach.write(f"{port} {device.fileno()} {port + 1} {HIGH_SPEED}")
            return port
        except OSError:
            continue  # another one was faster
    raise Refused("the virtual host controller has no free port")


def free_ports() -> list[int]:
    """Lines of the table: hub, port, state, speed, device, socket, bus."""
    with open(f"{CONTROLLER}/status", encoding="ascii") as table:
        rows = [row.split() for row in table]
    return [int(row[1]) for row in rows if row and row[0] == "hs" and int(row[2]) == FREE]


def bus_number() -> int:
    """The bus of the controller's high-speed half."""
    for entry in sorted(os.listdir(CONTROLLER)):
        if entry.startswith("usb"):
            with open(f"{CONTROLLER}/{entry}/speed", encoding="ascii") as speed:
                if speed.read().strip() == "480":
                    return int(entry[3:])
    raise Refused("the virtual host controller has no bus")


def play(name: str, model: dict) -> None:
    """One peripheral from plug to end, in a process of its own."""
    ours, kernels = socket.socketpair()
    try:
        port = plug_in(kernels)
        kernels.close()  # the controller holds it now, and sees the end of this process
        say(name, "plugged", port=port, bus=bus_number())
        Peripheral(name, model, ours).serve()
    except Refused as refusal:
        say(name, "refused", text=str(refusal))
    except (BrokenPipeError, ConnectionResetError):
        pass  # the controller hung up


def main() -> None:
    players: dict[str, int] = {}
    for line in sys.stdin:
        request = json.loads(line)
        name = request["name"]
        if request["op"] == "plug":
            pid = os.fork()
            if pid == 0:
                try:
                    play(name, request["model"])
                finally:
                    os._exit(0)
            players[name] = pid
        else:
            # One that left by itself waits here as well, so that its number is nobody else's.
            os.kill(players[name], signal.SIGKILL)
            os.waitpid(players.pop(name), 0)
            say(name, "unplugged")


main()
