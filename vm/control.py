# SPDX-License-Identifier: Apache-2.0
"""Plug and unplug from another terminal: a machine's owner answers on a socket in its session's folder."""

from __future__ import annotations

import json
import socket
import threading
from pathlib import Path
from typing import Any

from .errors import HeadunitError
from .peripherals import Peripherals
from .session import control_sockets

REQUEST_LIMIT = 120.0  # seconds; making a big medium takes a while


class ControlServer:
    """Serves one request after the other on a thread of its own."""

    def __init__(self, path: Path, peripherals: Peripherals) -> None:
        self._peripherals = peripherals
        self._listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._listener.bind(str(path))
        self._listener.listen(8)
        self._thread = threading.Thread(target=self._serve, name="control", daemon=True)
        self._thread.start()

    def close(self) -> None:
        """Takes no further request, and waits for the one that is being served."""
        try:
            self._listener.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass
        self._listener.close()
        self._thread.join(REQUEST_LIMIT)

    def __enter__(self) -> ControlServer:
        return self

    def __exit__(self, *exc: object) -> None:
        self.close()

    def _serve(self) -> None:
        while True:
            try:
                connection, _ = self._listener.accept()
            except OSError:
                return
            with connection:
                try:
                    connection.settimeout(5.0)
                    answer = self._answer(_read_line(connection))
                    connection.sendall(json.dumps(answer).encode() + b"\n")
                except OSError:
                    continue  # the asker is gone

    def _answer(self, line: bytes) -> dict[str, Any]:
        try:
            request = json.loads(line)
            if request["op"] == "plug":
                plugged = self._peripherals.plug(request["kind"], **request.get("options", {}))
            elif request["op"] == "unplug":
                plugged = self._peripherals.unplug(request["name"])
            else:
                return {"error": f"no operation {request['op']}"}
        except HeadunitError as error:
            return {"error": str(error)}
        except (KeyError, TypeError, ValueError) as error:
            return {"error": f"bad request: {error!r}"}
        return {"name": plugged.name, "kind": plugged.kind, "place": plugged.place}


def _read_line(connection: socket.socket) -> bytes:
    data = b""
    while not data.endswith(b"\n"):
        more = connection.recv(65536)
        if not more:
            break
        data += more
    return data


def ask(request: dict[str, Any]) -> dict[str, Any]:
    """Sends a request to the machine that was started last, and returns its answer."""
    sockets = control_sockets()
    if not sockets:
        raise HeadunitError("no virtual head unit runs: start one with ./headunit run or ./headunit shell")
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as connection:
        connection.settimeout(REQUEST_LIMIT)
        try:
            connection.connect(str(sockets[-1]))
            connection.sendall(json.dumps(request).encode() + b"\n")
            line = _read_line(connection)
        except OSError as error:
            raise HeadunitError(f"the virtual head unit does not answer: {error}") from error
    if not line:
        raise HeadunitError("the virtual head unit ended before it answered")
    answer: dict[str, Any] = json.loads(line)
    if "error" in answer:
        raise HeadunitError(answer["error"])
    return answer
