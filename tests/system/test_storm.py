# SPDX-License-Identifier: Apache-2.0
"""A storm of uevents, from the kernel through the daemon to a client's call-back."""

from __future__ import annotations

import json

import harness
from harness import GuestTestCase

EVENTS = 20_000
RATE = 1_000  # a second


class Storm(GuestTestCase):
    def test_every_event_arrives_in_order(self) -> None:
        # Made-up devices by the thousand would keep the guest's own device manager busy for minutes.
        self.run_guest(["udevadm", "control", "--exit"], check=True)
        self.start_services()
        self._named["uevents"].kill()
        client = self.spawn([self.program("device-test-client"), "quiet", "add", f"storm={EVENTS}", "remove"],
                            name="client")
        client.wait_for(lambda line: json.loads(line).get("step") == "add", harness.LIMIT, stream="stdout")

        injector = self.run_guest([self.program("uevent-inject"), "--count", str(EVENTS), "--rate", str(RATE),
                                   "--toggle", "--path", "/devices/made/up{n}", "--subsystem", "block",
                                   "DEVNAME=up{n}", "STORM={n}"], timeout=300.0, check=True)
        print(injector.text.strip(), flush=True)
        self.assertEqual(0, client.wait(330.0))
        account = next(entry["result"] for entry in map(json.loads, (line.text for line in client.lines("stdout")))
                       if entry["step"].startswith("storm="))
        self.assertEqual({"received": EVENTS, "out_of_order": 0}, account)
        assert self.services.daemon is not None
        lost = [line.text for line in self.services.daemon.lines("stderr") if "receive fail" in line.text]
        self.assertEqual([], lost)


if __name__ == "__main__":
    harness.main()
