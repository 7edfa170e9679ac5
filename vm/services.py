# SPDX-License-Identifier: Apache-2.0
"""The unit's own programs in the guest: service manager, daemon and command-line client."""

from __future__ import annotations

import signal
import time
from collections.abc import Callable
from pathlib import Path

from .errors import GuestError, GuestTimeout, HeadunitError
from .guestlink import Completed, Guest, GuestProcess

START_LIMIT = 60.0  # seconds
POLL_STEP = 0.1     # seconds between two looks at what cannot be waited for
SERVICES = ("DeviceManager", "VolumeManager", "UsbManager")  # of the daemon, in the order of their registration


class Services:
    """The programs of one build folder, running in one guest."""

    def __init__(self, guest: Guest, build: Path) -> None:
        self._guest = guest
        self._bin = build / "bin"
        self.manager: GuestProcess | None = None
        self.daemon: GuestProcess | None = None
        # A file in the guest that takes what the daemon logs, instead of the process's own lines here. The way to the
        # host carries some hundred lines a second, and a daemon that waits for it misses uevents.
        self.daemon_log: str | None = None

    def program(self, name: str) -> str:
        """The path of a built program, the same on the host and in the guest."""
        path = self._bin / name
        if not path.exists():
            raise HeadunitError(f"{path} is missing: build it first")
        return str(path)

    def start(self) -> None:
        """Starts service manager and daemon; returns once all of the daemon's services are registered."""
        self.daemon = None  # one of before has ended, and that is no news of this start
        self.manager = self._guest.spawn([self.program("servicemanager")])
        self.wait_services_reply()
        command = [self.program("device-service")]
        if self.daemon_log is not None:
            command = ["sh", "-c", 'exec "$0" 2>"$1"', *command, self.daemon_log]
        self.daemon = self._guest.spawn(command)
        self.wait_daemon()

    def start_managers(self) -> None:
        """Tells the daemon's managers to begin."""
        self.devicectl("start", check=True)

    def devicectl(self, *arguments: str, timeout: float = 30.0, check: bool = False) -> Completed:
        """Runs the command-line client."""
        return self._guest.run([self.program("devicectl"), *arguments], timeout, check=check)

    def monitor(self) -> GuestProcess:
        """A client process that prints what it hears as JSON lines, registered with every service when this returns."""
        client = self._guest.spawn([self.program("devicectl"), "monitor", "--json"])
        # The device manager's registration is the last one.
        client.wait_for(r'"event":"service".*"DeviceManager","state":"up"', START_LIMIT, stream="stdout")
        return client

    def wait_services_reply(self) -> None:
        """Waits until the service manager answers at all."""
        self._poll(lambda listed: listed.returncode == 0, "the service manager did not answer")

    def wait_daemon(self) -> None:
        """Waits until the service manager lists every service of the daemon."""
        self._poll(lambda listed: listed.returncode == 0 and set(SERVICES) <= set(listed.text.split()),
                   "the daemon's services were not registered")

    def stop(self) -> None:
        """Ends both, the daemon first."""
        for process in (self.daemon, self.manager):
            if process is not None and process.returncode is None:
                process.kill()
                try:
                    process.wait(START_LIMIT)
                except GuestTimeout:
                    process.kill(signal.SIGKILL)
                    process.wait(START_LIMIT)

    def _poll(self, done: Callable[[Completed], bool], failure: str) -> None:
        deadline = time.monotonic() + START_LIMIT
        while True:
            listed = self.devicectl("services")
            if done(listed):
                return
            for process in (self.manager, self.daemon):
                if process is not None and process.returncode is not None:
                    said = " ".join(line.text for line in process.lines())[-600:]
                    raise GuestError(f"{Path(process.argv[0]).name} ended with {process.returncode}: {said}")
            if time.monotonic() > deadline:
                raise GuestTimeout(f"{failure} within {START_LIMIT:g} s; devicectl said: "
                                   f"{(listed.error_text or listed.text).strip()}")
            time.sleep(POLL_STEP)
