# SPDX-License-Identifier: Apache-2.0
"""The machine protocol of the emulator: commands, answers and events over one connected socket."""

from __future__ import annotations

import json
import socket
import threading
import time
from collections.abc import Callable
from typing import Any

from .errors import HeadunitError


class Qmp:
    """One connection. Any thread may call; a command and its answer are one step under the lock."""

    def __init__(self, sock: socket.socket) -> None:
        self._sock = sock
        self._lock = threading.RLock()
        self._buffer = b""
        self._events: list[dict[str, Any]] = []

    def negotiate(self, timeout: float) -> None:
        """Reads the greeting and enters command mode."""
        with self._lock:
            greeting = self._read(time.monotonic() + timeout)
            if "QMP" not in greeting:
                raise HeadunitError(f"the emulator answered something else than its greeting: {greeting}")
            self.execute("qmp_capabilities", timeout=timeout)

    def execute(self, command: str, timeout: float = 20.0, **arguments: Any) -> Any:
        """Runs a command and returns its result; keyword names take "_" for "-"."""
        request: dict[str, Any] = {"execute": command}
        if arguments:
            request["arguments"] = {key.replace("_", "-"): value for key, value in arguments.items()}
        with self._lock:
            deadline = time.monotonic() + timeout
            try:
                self._sock.sendall(json.dumps(request).encode() + b"\n")
            except OSError as error:
                raise HeadunitError(f"the emulator is gone ({command})") from error
            while True:
                message = self._read(deadline)
                if "event" in message:
                    self._events.append(message)
                elif "error" in message:
                    raise HeadunitError(f"the emulator refused {command}: {message['error'].get('desc')}")
                elif "return" in message:
                    return message["return"]

    def wait_event(self, name: str, matches: Callable[[dict[str, Any]], bool],
                   timeout: float) -> dict[str, Any]:
        """Waits for an event that may have come already; matches gets its data."""
        deadline = time.monotonic() + timeout
        with self._lock:
            while True:
                for event in self._events:
                    if event["event"] == name and matches(event.get("data", {})):
                        self._events.remove(event)
                        return event
                message = self._read(deadline)
                if "event" in message:
                    self._events.append(message)

    def forget_events(self) -> None:
        """Drops what came so far, so that a later wait sees new events only."""
        with self._lock:
            self._events.clear()

    def close(self) -> None:
        self._sock.close()

    def _read(self, deadline: float) -> dict[str, Any]:
        while b"\n" not in self._buffer:
            left = deadline - time.monotonic()
            if left <= 0:
                raise HeadunitError("the emulator did not answer in time")
            self._sock.settimeout(left)
            try:
                data = self._sock.recv(65536)
            except TimeoutError:
                continue
            except OSError as error:
                raise HeadunitError(f"the emulator is gone: {error.strerror}") from error
            if not data:
                raise HeadunitError("the emulator is gone")
            self._buffer += data
        line, _, self._buffer = self._buffer.partition(b"\n")
        return json.loads(line)
