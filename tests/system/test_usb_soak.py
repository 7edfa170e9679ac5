# SPDX-License-Identifier: Apache-2.0
"""Random plugs and unplugs, after which daemon, kernel and client agree on what is there and nothing has grown."""

from __future__ import annotations

import json
import os
import random

import harness
from harness import wait_until
from test_usb import UsbClient, UsbTestCase, number

ACTIONS = int(os.environ.get("SOAK_ACTIONS", "60"))
SEED = int(os.environ.get("SOAK_SEED", "20"))
WARM_UP = 40        # actions until caches, pools and the allocator have taken what they take once
GROWTH_KIB = 1024   # resident memory that the allocator may add without a leak behind it
MOST = 8            # things that are plugged in at once
EMULATED = ("stick", "keyboard", "serial", "hub")  # what can stand behind a hub
PLAYED = ("phone", "android", "testdevice", "hungry")


class Soak(UsbTestCase):
    def act(self, choice: random.Random) -> None:
        """One random plug or unplug; now and then the next one waits until all agree."""
        there = self.machine.peripherals.list()
        if len(there) >= MOST or (there and choice.random() < 0.45):
            self.unplug(choice.choice(there).name)
        elif choice.random() < 0.4:
            self.plug(choice.choice(PLAYED))
        else:
            hubs = [one.name for one in there if one.kind == "hub" and not one.place.count(".") > 3]
            kind = choice.choice(EMULATED)
            behind = choice.choice((None, *hubs))
            root_ports = [one for one in there if one.place.startswith("ehci") and "." not in one.place[6:]]
            if behind is None and len(root_ports) >= 6:
                return
            self.plug(kind, **({"behind": behind} if behind else {}))
        if choice.random() < 0.2:
            self.agree()

    def agree(self) -> None:
        count = len(self.machine.peripherals.list())
        self.wait_agreement(count)
        wait_until(lambda: self.held() == self.listed(), "the client to know what the daemon knows")
        wait_until(lambda: self.volumes() == self.mounts(), "what is mounted and what the daemon says to be the same")

    def held(self) -> list[tuple[int, int]]:
        """What the client was told of and not told to be gone."""
        gone = {record["id"] for record in self.witness.records("detached")}
        return sorted(number(record) for record in self.witness.records("attached") if record["id"] not in gone)

    def volumes(self) -> list[str]:
        answer = json.loads(self.services.devicectl("--json", "volumes", check=True).text)
        return sorted(volume["mount_path"] for volume in answer["volumes"] if volume["mount_path"] != "unknown")

    def mounts(self) -> list[str]:
        return sorted(self.shell("awk '$2 ~ \"^/mnt/\" { print $2 }' /proc/mounts").split())

    def clear(self) -> dict[str, int]:
        """Pulls everything out; what the daemon then has for itself."""
        self.machine.peripherals.unplug_all()
        self.agree()
        return self.resources_of(self.daemon())

    def test_nothing_grows_and_all_agree(self) -> None:
        # A huge page counts as 2 MiB of resident memory wherever the kernel happens to join small ones.
        self.shell("echo never > /sys/kernel/mm/transparent_hugepage/enabled")
        self.start_services()
        self.witness: UsbClient = self.client("add", "add-host", name="witness")
        choice = random.Random(SEED)
        for _ in range(WARM_UP):
            self.act(choice)
        before = self.clear()
        for _ in range(ACTIONS):
            self.act(choice)
        self.agree()
        attached = len(self.witness.records("attached"))
        after = self.clear()
        print(f"{ACTIONS} actions, seed {SEED}, {attached} devices: {json.dumps(before)} -> {json.dumps(after)}",
              flush=True)
        self.assertGreater(attached, ACTIONS // 4)
        self.assertEqual(attached, len(self.witness.records("detached")))
        self.assertEqual(before["descriptors"], after["descriptors"])
        self.assertEqual(before["threads"], after["threads"])
        # The pool grows by a thread whenever a busy moment asks for one, up to its limit, and never shrinks.
        self.assertLessEqual(after["pool"], harness.POOL_LIMIT)
        self.assertLessEqual(after["resident KiB"], before["resident KiB"] + GROWTH_KIB)


if __name__ == "__main__":
    harness.main()
