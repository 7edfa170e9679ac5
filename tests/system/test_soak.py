# SPDX-License-Identifier: Apache-2.0
"""Hours of use in minutes: plug, unplug, register, leave, die, again and again; then nothing may have grown."""

from __future__ import annotations

import json
import os
import random
import signal

import harness
from harness import LIMIT, wait_until
from test_device import DeviceTestCase
from vm.guestlink import GuestProcess

ROUNDS = int(os.environ.get("SOAK_ROUNDS", "40"))
SEED = int(os.environ.get("SOAK_SEED", "20"))
WARM_UP = 5         # rounds until caches, pools and the allocator have taken what they take once
GROWTH_KIB = 1024   # resident memory that the allocator may add over all rounds without a leak behind it


class Soak(DeviceTestCase):
    def round(self, choice: random.Random, witness: GuestProcess) -> None:
        action = choice.choice(("plug", "die", "leave", "query", "restart"))
        if action == "plug":
            self.in_and_out(witness, choice.choice(("stick", "card")))
        elif action == "die":
            client = self.holding_client("add", name="dies")
            client.kill(signal.SIGKILL)
            client.wait(LIMIT)
            self.daemon().wait_for(rf"Application PID\[{client.pid}\] die", LIMIT)
        elif action == "leave":
            self.assertEqual(0, self.client("add", "remove", "add", "remove").wait(LIMIT))
        elif action == "query":
            self.dump()
            self.assert_daemon_answers()
        else:
            self.services.devicectl("stop", check=True)
            self.services.devicectl("start", check=True)

    def test_nothing_grows(self) -> None:
        # A huge page counts as 2 MiB of resident memory wherever the kernel happens to join small ones.
        self.run_guest(["sh", "-c", "echo never > /sys/kernel/mm/transparent_hugepage/enabled"], check=True)
        self.start_services()
        witness = self.holding_client("add", name="witness")
        choice = random.Random(SEED)
        for _ in range(WARM_UP):
            self.round(choice, witness)
        before = self.resources_of(self.daemon())
        for _ in range(ROUNDS):
            self.round(choice, witness)
        wait_until(lambda: "notifier size[1]\n" in self.dump("notifier"), "only the witness to be registered")
        after = self.resources_of(self.daemon())
        print(f"{ROUNDS} rounds, seed {SEED}: {json.dumps(before)} -> {json.dumps(after)}", flush=True)
        self.assertEqual(before["descriptors"], after["descriptors"])
        self.assertEqual(before["threads"], after["threads"])
        # The pool grows by a thread whenever a busy moment asks for one, up to its limit, and never shrinks.
        self.assertLessEqual(after["pool"], harness.POOL_LIMIT)
        self.assertLessEqual(after["resident KiB"], before["resident KiB"] + GROWTH_KIB)
        self.assertGreater(len(self.events(witness)), 0)


if __name__ == "__main__":
    harness.main()
