# SPDX-License-Identifier: Apache-2.0
"""A storm of uevents, from the kernel through the daemon to a client's call-back."""

from __future__ import annotations

import json

import harness
from harness import GuestTestCase

EVENTS = 20_000
RATE = 1_000  # a second
DAEMON_LOG = "/run/device-service.log"
# What the client may need after the last uevent was sent: the calls to it fall behind on an emulated processor.
CATCH_UP = 240.0  # seconds


class Storm(GuestTestCase):
    def overruns(self) -> str:
        """The lines of the daemon's log which say that the kernel had to drop uevents."""
        return self.run_guest(["grep", "-F", "receive fail", DAEMON_LOG]).text

    def test_every_event_arrives_in_order(self) -> None:
        # Uevents of subsystem usb: of each of another one the USB side says in an error line that it is not its own.
        # Made-up devices by the thousand would keep the guest's own device manager busy for minutes.
        self.run_guest(["udevadm", "control", "--exit"], check=True)
        self.services.daemon_log = DAEMON_LOG
        self.start_services()
        self._named["uevents"].kill()
        client = self.spawn([self.program("device-test-client"), "quiet", "add", f"storm={EVENTS}", "remove"],
                            name="client")
        client.wait_for(lambda line: json.loads(line).get("step") == "add", harness.LIMIT, stream="stdout")

        injector = self.run_guest([self.program("uevent-inject"), "--count", str(EVENTS), "--rate", str(RATE),
                                   "--toggle", "--path", "/devices/made/usb1/up{n}", "--subsystem", "usb",
                                   "DEVNAME=up{n}", "STORM={n}"], timeout=300.0, check=True)
        print(injector.text.strip(), flush=True)
        # First: what the kernel dropped never comes, and the client would be waited for in vain.
        self.assertEqual("", self.overruns(), "the daemon did not read fast enough")
        self.assertEqual(0, client.wait(CATCH_UP))
        account = next(entry["result"] for entry in map(json.loads, (line.text for line in client.lines("stdout")))
                       if entry["step"].startswith("storm="))
        self.assertEqual({"received": EVENTS, "out_of_order": 0}, account)
        self.assertEqual("", self.overruns())


if __name__ == "__main__":
    harness.main()
