# SPDX-License-Identifier: Apache-2.0
"""The host's side of the guest agent: commands in the guest, their output with times, files.

Any thread may use a Guest and its processes. Every wait has a limit in seconds.
"""

from __future__ import annotations

import base64
import itertools
import json
import re
import signal as signals
import socket
import threading
import time
from collections.abc import Callable, Iterator, Mapping, Sequence
from dataclasses import dataclass
from typing import Any

from .errors import GuestError, GuestGone, GuestTimeout

WRITE_CHUNK = 48 * 1024
ANSWER_LIMIT = 60.0  # seconds for requests that the agent answers at once, even on a busy machine


@dataclass(frozen=True)
class Line:
    """One line of output. time is the guest's wall clock, which is set to the host's at boot."""

    time: float
    stream: str
    text: str


@dataclass(frozen=True)
class Completed:
    """The result of a finished command. returncode is minus the signal's number after a signal."""

    argv: tuple[str, ...]
    returncode: int
    stdout: bytes
    stderr: bytes

    @property
    def text(self) -> str:
        return _decode(self.stdout)

    @property
    def error_text(self) -> str:
        return _decode(self.stderr)


def _decode(data: bytes) -> str:
    return data.decode("utf-8", "surrogateescape")


class GuestProcess:
    """A command that runs, or ran, in the guest."""

    def __init__(self, guest: Guest, ident: int, argv: Sequence[str]) -> None:
        self.argv = tuple(argv)
        self.pid = 0
        self._guest = guest
        self._ident = ident
        self._changed = guest.changed
        # Guarded by the guest's condition: everything below.
        self._lines: list[Line] = []
        self._partial: dict[str, bytes] = {}
        self._bytes: dict[str, bytearray] = {}
        self._listener: Callable[[str, bytes], None] | None = None
        self._returncode: int | None = None
        self._failure: str | None = None
        self._open = 0

    @property
    def failure(self) -> str | None:
        """Why it could not be started, or None."""
        with self._changed:
            return self._failure

    @property
    def returncode(self) -> int | None:
        """None while it runs."""
        with self._changed:
            return self._returncode

    def output(self, stream: str = "stdout") -> bytes:
        """All bytes of the stream so far."""
        with self._changed:
            return bytes(self._bytes.get(stream, b""))

    def lines(self, stream: str | None = None) -> list[Line]:
        """The lines so far; an unfinished last line is left out."""
        with self._changed:
            return [line for line in self._lines if stream in (None, line.stream)]

    def follow(self, timeout: float, stream: str | None = None) -> Iterator[Line]:
        """Yields lines as they come, up to the end of the process; raises when none comes in time."""
        for index in itertools.count():
            with self._changed:
                ready = self._guest.wait(
                    lambda: len(self._lines) > index or self._returncode is not None, timeout)
                if not ready:
                    raise GuestTimeout(f"no output of {self.argv[0]} for {timeout:g} s")
                if len(self._lines) <= index:
                    return
                line = self._lines[index]
            if stream in (None, line.stream):
                yield line

    def wait_for(self, wanted: str | Callable[[str], bool], timeout: float, stream: str | None = None,
                 start: int = 0) -> Line:
        """Waits for a line that the regular expression finds or the predicate accepts.

        start is the index of the first line that counts, so that a caller can wait for something new.
        """
        accepts = re.compile(wanted).search if isinstance(wanted, str) else wanted
        deadline = time.monotonic() + timeout
        index = start
        while True:
            with self._changed:
                ready = self._guest.wait(lambda: len(self._lines) > index or self._returncode is not None,
                                         deadline - time.monotonic())
                fresh = self._lines[index:]
            for line in fresh:
                if stream in (None, line.stream) and accepts(line.text):
                    return line
            index += len(fresh)
            if fresh:
                continue
            what = wanted if isinstance(wanted, str) else getattr(wanted, "__name__", "the line")
            if not ready:
                raise GuestTimeout(f"{self.argv[0]} did not print {what!r} within {timeout:g} s")
            raise GuestError(f"{self.argv[0]} ended with {self._returncode} before it printed {what!r}")

    def wait(self, timeout: float) -> int:
        """Waits for the end and returns the exit status, or minus the number of the signal that ended it."""
        with self._changed:
            if not self._guest.wait(lambda: self._returncode is not None, timeout):
                raise GuestTimeout(f"{self.argv[0]} did not end within {timeout:g} s")
            assert self._returncode is not None
            return self._returncode

    def kill(self, number: int = signals.SIGTERM, group: bool = False) -> None:
        """Sends a signal to the process, or to all that it started in its process group."""
        self._guest.send(self._ident, "signal", signal=int(number), group=group)

    def write(self, data: bytes) -> None:
        """Sends bytes to its standard input (started with stdin or a terminal)."""
        for start in range(0, len(data), WRITE_CHUNK):
            chunk = base64.b64encode(data[start:start + WRITE_CHUNK]).decode()
            self._guest.send(self._ident, "stdin", data=chunk)

    def close_stdin(self) -> None:
        self._guest.send(self._ident, "stdin", eof=True)

    def resize(self, rows: int, columns: int) -> None:
        """Tells a terminal its new size."""
        self._guest.send(self._ident, "resize", size=[rows, columns])

    def on_output(self, listener: Callable[[str, bytes], None]) -> None:
        """Hands stream and bytes to the listener as they come, from the reader's thread; old output first."""
        with self._changed:
            for stream, data in self._bytes.items():
                listener(stream, bytes(data))
            self._listener = listener

    def is_over(self) -> bool:
        """Whether nothing can come any more: it ended, and no child of it holds its output."""
        return self._failure is not None or (self._returncode is not None and self._open == 0)

    def take(self, message: dict[str, Any]) -> None:
        """Stores one message of the agent. Called by the reader with the condition held."""
        event = message["event"]
        if event == "started":
            self.pid = message["pid"]
            self._open = message["streams"]
        elif event == "error":
            self._failure = message["text"]
        elif event == "output":
            self._take_output(message["stream"], message["time"], base64.b64decode(message["data"]))
        elif event == "closed":
            self._open -= 1
            self._flush(message["stream"])
        elif event == "exit":
            self._returncode = message["status"] if "status" in message else -message["signal"]
            for stream in list(self._partial):
                self._flush(stream, message["time"])

    def _take_output(self, stream: str, moment: float, data: bytes) -> None:
        self._bytes.setdefault(stream, bytearray()).extend(data)
        *complete, rest = (self._partial.pop(stream, b"") + data).split(b"\n")
        self._lines.extend(Line(moment, stream, _decode(line)) for line in complete)
        if rest:
            self._partial[stream] = rest
        if self._listener:
            self._listener(stream, data)

    def _flush(self, stream: str, moment: float | None = None) -> None:
        rest = self._partial.pop(stream, b"")
        if rest:
            self._lines.append(Line(moment or time.time(), stream, _decode(rest)))


class Guest:
    """The link to one guest."""

    def __init__(self, sock: socket.socket) -> None:
        self.changed = threading.Condition()
        self._sock = sock
        self._send_lock = threading.Lock()  # keeps the lines of two senders apart
        self._idents = itertools.count(1)
        # Guarded by the condition.
        self._processes: dict[int, GuestProcess] = {}
        self._answers: dict[int, list[dict[str, Any]]] = {}
        self._hello = False
        self._closed = False
        threading.Thread(target=self._read_all, name="guest-link", daemon=True).start()

    def wait_hello(self, timeout: float, alive: Callable[[], bool] = lambda: True) -> None:
        """Waits for the agent's first word; alive tells whether the machine still runs."""
        deadline = time.monotonic() + timeout
        with self.changed:
            while not self._hello:
                if self._closed or not alive():
                    raise GuestGone("the machine ended before its agent answered")
                if time.monotonic() > deadline:
                    raise GuestTimeout(f"the guest did not come up within {timeout:g} s")
                self.changed.wait(0.2)
        self._ask("clock", time=time.time())

    def ping(self, timeout: float = ANSWER_LIMIT) -> float:
        """Returns the seconds that a question and its answer take."""
        start = time.monotonic()
        self._ask("ping", timeout)
        return time.monotonic() - start

    def spawn(self, argv: Sequence[str], env: Mapping[str, str] | None = None, cwd: str = "/",
              stdin: bool = False, tty: tuple[int, int] | None = None) -> GuestProcess:
        """Starts a command. stdin keeps its input open for write(); tty: rows, columns of a new terminal."""
        ident = next(self._idents)
        process = GuestProcess(self, ident, argv)
        with self.changed:
            self._processes[ident] = process
        self.send(ident, "spawn", argv=list(argv), env=dict(env or {}), cwd=cwd, stdin=stdin,
                  **({"tty": list(tty)} if tty else {}))
        with self.changed:
            if not self.wait(lambda: bool(process.pid or process.failure), ANSWER_LIMIT):
                raise GuestTimeout(f"the guest did not start {argv[0]} within {ANSWER_LIMIT:g} s")
            if process.failure:
                raise GuestError(f"cannot start {argv[0]} in the guest: {process.failure}")
        return process

    def run(self, argv: Sequence[str], timeout: float = 60.0, env: Mapping[str, str] | None = None,
            cwd: str = "/", stdin: bytes | None = None, check: bool = False) -> Completed:
        """Runs a command to its end. One that reaches the limit is killed with its group; check raises on a
        result other than 0, with what the command said."""
        process = self.spawn(argv, env=env, cwd=cwd, stdin=stdin is not None)
        if stdin is not None:
            process.write(stdin)
            process.close_stdin()
        try:
            code = process.wait(timeout)
        except GuestTimeout as late:
            process.kill(signals.SIGKILL, group=True)
            said = _decode(process.output("stderr") or process.output())[-400:].strip()
            raise GuestTimeout(f"{late}; it was killed; its last words: {said or 'none'}") from None
        done = Completed(process.argv, code, process.output("stdout"), process.output("stderr"))
        if check and code != 0:
            said = (done.error_text or done.text)[-800:].strip()
            raise GuestError(f"{' '.join(argv)} ended with {code}: {said or 'it said nothing'}")
        return done

    def read_file(self, path: str) -> bytes:
        """The content of a file of the guest."""
        chunks = self._ask("read", path=path)
        return b"".join(base64.b64decode(chunk["data"]) for chunk in chunks if "data" in chunk)

    def write_file(self, path: str, data: bytes, mode: int = 0o644) -> None:
        """Makes or replaces a file of the guest; mode counts for a new one."""
        for start in range(0, max(len(data), 1), WRITE_CHUNK):
            chunk = base64.b64encode(data[start:start + WRITE_CHUNK]).decode()
            self._ask("write", path=path, data=chunk, mode=mode, append=start > 0)

    def kill_all(self, timeout: float = 20.0) -> None:
        """Kills every command that still runs, and what they left running; waits for the commands' end."""
        with self.changed:
            left = list(self._processes.values())
        for process in left:
            process.kill(signals.SIGKILL, group=True)
        for process in left:
            process.wait(timeout)

    def close(self) -> None:
        """Ends the link."""
        try:
            self._sock.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass
        self._sock.close()

    def wait(self, predicate: Callable[[], bool], timeout: float) -> bool:
        """Waits with the condition held; false when the limit came first."""
        deadline = time.monotonic() + timeout
        while not predicate():
            if self._closed:
                raise GuestGone("the link to the guest is closed: its machine or its agent ended")
            left = deadline - time.monotonic()
            if left <= 0:
                return False
            self.changed.wait(left)
        return True

    def send(self, ident: int, operation: str, **fields: Any) -> None:
        """Sends one request."""
        line = json.dumps({"id": ident, "op": operation, **fields}).encode() + b"\n"
        try:
            with self._send_lock:
                self._sock.sendall(line)
        except OSError as error:
            raise GuestGone("the link to the guest is closed: its machine or its agent ended") from error

    def _ask(self, operation: str, timeout: float = ANSWER_LIMIT, **fields: Any) -> list[dict[str, Any]]:
        """Sends a request and collects its answers up to the last one."""
        ident = next(self._idents)
        with self.changed:
            answers = self._answers[ident] = []
        self.send(ident, operation, **fields)

        def complete() -> bool:
            return bool(answers) and (answers[-1]["event"] != "file" or "eof" in answers[-1])

        with self.changed:
            came = self.wait(complete, timeout)
            del self._answers[ident]
        if not came:
            raise GuestTimeout(f"the guest did not answer ({operation}) within {timeout:g} s")
        if answers[-1]["event"] == "error":
            raise GuestError(f"{operation} in the guest failed: {answers[-1]['text']}")
        return answers

    def _read_all(self) -> None:
        """The reader's thread: takes messages until the link ends."""
        buffer = b""
        while True:
            try:
                data = self._sock.recv(1 << 18)
            except OSError:
                data = b""
            with self.changed:
                if not data:
                    self._closed = True
                    self.changed.notify_all()
                    return
                *lines, buffer = (buffer + data).split(b"\n")
                for line in lines:
                    self._dispatch(json.loads(line))
                self.changed.notify_all()

    def _dispatch(self, message: dict[str, Any]) -> None:
        ident = message["id"]
        if message["event"] == "hello":
            self._hello = True
        elif ident in self._processes:
            process = self._processes[ident]
            process.take(message)
            if process.is_over():
                del self._processes[ident]
        elif ident in self._answers:
            self._answers[ident].append(message)
