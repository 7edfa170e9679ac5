# SPDX-License-Identifier: Apache-2.0
"""The first process of the guest: runs commands for the host.

One JSON object a line, both ways, over a virtio-serial port named "agent". Requests carry "op" and "id"; what
concerns a command carries the id that the host gave it. Bytes travel as base64.

    spawn   {id, argv, env?, cwd?, stdin?: bool, tty?: [rows, columns]}
                                    -> started {pid, streams} | error {text}
    stdin   {id, data?, eof?}       signal {id, signal, group?}     resize {id, size: [rows, columns]}
    ping    {id}                                                    -> pong
    clock   {id, time}              sets the wall clock             -> pong
    read    {id, path}              -> file {data} ... file {eof}   | error {text}
    write   {id, path, data, mode?, append?}                        -> pong | error {text}

While a command runs: output {stream, time, data}; closed {stream}; exit {status | signal, time}. What a
command wrote before its end is sent before "exit"; what its children write later still comes after it.

One thread, one poll loop: nothing in here waits but the loop itself. Only modules that start fast are
imported, since each costs an emulated processor tenths of a second.
"""

import binascii
import errno
import fcntl
import json
import os
import select
import signal
import struct
import termios
import time

PORT_NAME = "agent"
CHUNK = 32768
PIPE_SIZE = 65536
CAUGHT = (signal.SIGCHLD, signal.SIGPIPE, signal.SIGXFSZ)  # or ignored, here; commands start without that
OUTPUT_LIMIT = 1 << 20  # bytes that may wait for the host before commands are no longer read


def find_port() -> str:
    """The node of the port; its symbolic name would need udev, which does not run yet."""
    base = "/sys/class/virtio-ports"
    for _ in range(1000):
        for entry in os.listdir(base) if os.path.isdir(base) else []:
            try:
                with open(f"{base}/{entry}/name", encoding="ascii") as name:
                    if name.read().strip() == PORT_NAME:
                        return f"/dev/{entry}"
            except FileNotFoundError:
                pass
        time.sleep(0.01)
    raise SystemExit("agent: no port to the host")


class Command:
    """One command: its process, its streams and what still has to be written to it."""

    def __init__(self, ident: int, pid: int, streams: dict[int, str], stdin: int, tty: int) -> None:
        self.ident = ident
        self.pid = pid
        self.streams = streams  # descriptor -> "stdout", "stderr" or "tty"
        self.stdin = stdin      # -1 once closed
        self.tty = tty          # the controlling side, -1 without a terminal
        self.pending = b""
        self.eof = False
        self.running = True


class Agent:
    """The loop and its tables."""

    def __init__(self, port: int) -> None:
        self.port = port
        self.output = bytearray()
        self.input = bytearray()
        self.commands: dict[int, Command] = {}
        self.connected = False
        self.wake, wake_write = os.pipe2(os.O_CLOEXEC | os.O_NONBLOCK)
        signal.set_wakeup_fd(wake_write, warn_on_full_buffer=False)
        signal.signal(signal.SIGCHLD, lambda number, frame: None)

    def send(self, ident: int, event: str, **fields: object) -> None:
        self.output += json.dumps({"id": ident, "event": event, **fields}).encode() + b"\n"

    def loop(self) -> None:
        self.send(0, "hello", uptime=time.clock_gettime(time.CLOCK_BOOTTIME), pid=os.getpid())
        while True:
            poll = select.poll()
            poll.register(self.port, select.POLLIN | (select.POLLOUT if self.output else 0))
            poll.register(self.wake, select.POLLIN)
            readers: dict[int, Command] = {}
            writers: dict[int, Command] = {}
            self.register(poll, readers, writers)
            for descriptor, events in poll.poll():
                if descriptor == self.port:
                    self.serve_port(events)
                elif descriptor == self.wake:
                    os.read(self.wake, 4096)
                else:
                    if descriptor in writers and events & (select.POLLOUT | select.POLLERR):
                        self.feed(writers[descriptor])
                    if descriptor in readers and events & (select.POLLIN | select.POLLHUP | select.POLLERR):
                        self.read_stream(readers[descriptor], descriptor, CHUNK)
            self.reap()

    def register(self, poll: "select.poll", readers: dict[int, Command], writers: dict[int, Command]) -> None:
        for command in self.commands.values():
            wanted: dict[int, int] = {}
            if len(self.output) < OUTPUT_LIMIT:
                for descriptor in command.streams:
                    wanted[descriptor] = select.POLLIN
                    readers[descriptor] = command
            if command.stdin >= 0 and (command.pending or command.eof):
                wanted[command.stdin] = wanted.get(command.stdin, 0) | select.POLLOUT
                writers[command.stdin] = command
            for descriptor, events in wanted.items():
                poll.register(descriptor, events)

    def serve_port(self, events: int) -> None:
        if events & select.POLLOUT and self.output:
            try:
                del self.output[:os.write(self.port, self.output[:CHUNK])]
            except BlockingIOError:
                pass
        if events & select.POLLIN:
            try:
                data = os.read(self.port, CHUNK)
            except BlockingIOError:
                return
            if data:
                self.connected = True
                self.input += data
                *lines, rest = bytes(self.input).split(b"\n")
                self.input = bytearray(rest)
                for line in lines:
                    self.serve(json.loads(line))
                return
        if events & select.POLLHUP:
            if self.connected:
                power_off()
            time.sleep(0.01)  # the host's side is not up yet

    def serve(self, request: dict) -> None:
        ident, operation = request["id"], request["op"]
        try:
            getattr(self, f"do_{operation}")(ident, request)
        except OSError as error:
            where = f": {error.filename}" if error.filename else ""
            self.send(ident, "error", text=f"{error.strerror}{where}", errno=error.errno)
        except (AttributeError, KeyError, TypeError, ValueError) as error:
            self.send(ident, "error", text=f"bad request {operation}: {error!r}", errno=errno.EINVAL)

    def do_ping(self, ident: int, request: dict) -> None:
        self.send(ident, "pong", time=time.time())

    def do_clock(self, ident: int, request: dict) -> None:
        time.clock_settime(time.CLOCK_REALTIME, request["time"])
        self.send(ident, "pong", time=time.time())

    def do_read(self, ident: int, request: dict) -> None:
        # Attributes and other files without a size are read to their end like any other.
        with open(request["path"], "rb") as file:
            data = file.read()
        for start in range(0, len(data), CHUNK):
            self.send(ident, "file", data=encode(data[start:start + CHUNK]))
        self.send(ident, "file", eof=True)

    def do_write(self, ident: int, request: dict) -> None:
        flags = os.O_WRONLY | os.O_CREAT | os.O_CLOEXEC
        flags |= os.O_APPEND if request.get("append") else os.O_TRUNC
        descriptor = os.open(request["path"], flags, request.get("mode", 0o644))
        with open(descriptor, "wb", buffering=0) as file:
            file.write(binascii.a2b_base64(request["data"]))
        self.send(ident, "pong", time=time.time())

    def do_spawn(self, ident: int, request: dict) -> None:
        command = start(ident, request)
        self.commands[ident] = command
        self.send(ident, "started", pid=command.pid, streams=len(command.streams))

    def do_stdin(self, ident: int, request: dict) -> None:
        command = self.commands.get(ident)
        if not command or command.stdin < 0:
            return
        command.pending += binascii.a2b_base64(request.get("data", ""))
        command.eof = command.eof or bool(request.get("eof"))

    def do_signal(self, ident: int, request: dict) -> None:
        command = self.commands.get(ident)
        if not command:
            return
        try:
            if request.get("group"):
                os.killpg(command.pid, request["signal"])
            elif command.running:
                os.kill(command.pid, request["signal"])
        except ProcessLookupError:
            pass

    def do_resize(self, ident: int, request: dict) -> None:
        command = self.commands.get(ident)
        if command and command.tty >= 0:
            set_size(command.tty, request["size"])

    def feed(self, command: Command) -> None:
        try:
            if command.pending:
                command.pending = command.pending[os.write(command.stdin, command.pending[:PIPE_SIZE]):]
        except BlockingIOError:
            return
        except OSError:  # the command does not read any more
            command.pending = b""
            command.eof = True
        if command.eof and not command.pending:
            if command.tty < 0:
                os.close(command.stdin)
            command.stdin = -1

    def read_stream(self, command: Command, descriptor: int, limit: int) -> int:
        """Passes on what is there, at most limit bytes; returns how many there were."""
        try:
            data = os.read(descriptor, limit)
        except BlockingIOError:
            return 0
        except OSError:  # a terminal whose last user is gone
            data = b""
        if data:
            self.send(command.ident, "output", stream=command.streams[descriptor], time=time.time(),
                      data=encode(data))
            return len(data)
        self.send(command.ident, "closed", stream=command.streams.pop(descriptor))
        if descriptor == command.tty:
            command.tty = command.stdin = -1
        os.close(descriptor)
        self.forget_if_done(command)
        return 0

    def reap(self) -> None:
        """Collects every ended process, also those that came down to the first process."""
        while True:
            try:
                pid, status = os.waitpid(-1, os.WNOHANG)
            except ChildProcessError:
                return
            if pid == 0:
                return
            for command in list(self.commands.values()):
                if command.pid == pid and command.running:
                    self.end(command, status)

    def end(self, command: Command, status: int) -> None:
        command.running = False
        for descriptor in list(command.streams):
            left = PIPE_SIZE
            while left > 0 and descriptor in command.streams:
                got = self.read_stream(command, descriptor, left)
                if got == 0:
                    break
                left -= got
        if os.WIFSIGNALED(status):
            result = {"signal": os.WTERMSIG(status)}
        else:
            result = {"status": os.WEXITSTATUS(status)}
        self.send(command.ident, "exit", time=time.time(), **result)
        if command.stdin >= 0 and command.tty < 0:
            os.close(command.stdin)
        command.stdin = -1
        self.forget_if_done(command)

    def forget_if_done(self, command: Command) -> None:
        # A command whose children still hold its output stays, so that the group can be signalled.
        if not command.running and not command.streams:
            self.commands.pop(command.ident, None)


def encode(data: bytes) -> str:
    return binascii.b2a_base64(data, newline=False).decode()


def set_size(descriptor: int, size: list) -> None:
    fcntl.ioctl(descriptor, termios.TIOCSWINSZ, struct.pack("HHHH", size[0], size[1], 0, 0))


def start(ident: int, request: dict) -> Command:
    """Starts a command in a session of its own; its failure to start is an OSError here."""
    argv = request["argv"]
    environment = dict(os.environ, **request.get("env", {}))
    tty = -1
    opened: list[int] = []
    if request.get("tty"):
        tty, line = os.openpty()
        set_size(tty, request["tty"])
        child_ends = [line, line, line]
        opened = [line]
        streams, stdin = {tty: "tty"}, tty
    else:
        out_read, out_write = os.pipe2(os.O_CLOEXEC)
        err_read, err_write = os.pipe2(os.O_CLOEXEC)
        streams = {out_read: "stdout", err_read: "stderr"}
        if request.get("stdin"):
            in_read, stdin = os.pipe2(os.O_CLOEXEC)
        else:
            in_read, stdin = os.open("/dev/null", os.O_RDONLY | os.O_CLOEXEC), -1
        child_ends = opened = [in_read, out_write, err_write]
    try:
        if plain(request):
            actions = [(os.POSIX_SPAWN_DUP2, descriptor, number) for number, descriptor in enumerate(child_ends)]
            pid = os.posix_spawnp(argv[0], argv, environment, file_actions=actions, setsid=True, setsigdef=CAUGHT)
        else:
            pid = fork(argv, environment, request.get("cwd", "/"), child_ends, tty >= 0)
    except OSError:
        for descriptor in {*streams, stdin} - {-1}:
            os.close(descriptor)
        raise
    finally:
        for descriptor in opened:
            os.close(descriptor)
    for descriptor in {*streams, stdin} - {-1}:
        os.set_blocking(descriptor, False)
    return Command(ident, pid, streams, stdin, tty)


def plain(request: dict) -> bool:
    """Whether the C library can start it, which is faster: no page table is copied."""
    return not request.get("tty") and request.get("cwd", "/") == "/" and "PATH" not in request.get("env", {})


def fork(argv: list, environment: dict, cwd: str, ends: list, terminal: bool) -> int:
    """Starts a command that the C library cannot start; its failure to start is an OSError here."""
    report, report_write = os.pipe2(os.O_CLOEXEC)
    pid = os.fork()
    if pid == 0:
        run_child(argv, environment, cwd, ends, terminal, report_write)
    os.close(report_write)
    failure = os.read(report, 64)
    os.close(report)
    if failure:
        number = int(failure)
        raise OSError(number, os.strerror(number), argv[0])
    return pid


def run_child(argv: list, environment: dict, cwd: str, ends: list, terminal: bool, report: int) -> None:
    """The new process up to its exec; does not return."""
    try:
        os.setsid()
        for number, descriptor in enumerate(ends):
            os.dup2(descriptor, number)
        if terminal:
            fcntl.ioctl(0, termios.TIOCSCTTY, 0)
        signal.set_wakeup_fd(-1)
        for number in CAUGHT:
            signal.signal(number, signal.SIG_DFL)
        os.chdir(cwd)
        os.execvpe(argv[0], argv, environment)
    except OSError as error:
        os.write(report, str(error.errno).encode())
    finally:
        os._exit(127)


def power_off() -> None:
    with open("/proc/sysrq-trigger", "w", encoding="ascii") as trigger:
        trigger.write("o")


def main() -> None:
    port = os.open(find_port(), os.O_RDWR | os.O_NONBLOCK | os.O_CLOEXEC)
    Agent(port).loop()


main()
