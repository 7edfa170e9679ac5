# SPDX-License-Identifier: Apache-2.0
"""libbinder and the service manager on the real driver; the cases are those of binder-driver-test."""

from __future__ import annotations

import signal

import harness
from harness import LIMIT, GuestTestCase, wait_until
from vm.guestlink import GuestProcess

RUN_LIMIT = 500.0  # seconds; a hundred thousand calls on an emulated processor


class Driver(GuestTestCase):
    def start_manager(self) -> None:
        self.manager = self.spawn([self.program("servicemanager")], name="servicemanager")
        self.services.wait_services_reply()

    @staticmethod
    def wait_told(client: GuestProcess, word: str, times: int) -> None:
        """Waits until the client has said the word so often; it must not end before."""
        def told() -> bool:
            said = [line.text for line in client.lines("stdout")]
            if client.returncode is not None:
                raise AssertionError(f"the client ended with {client.returncode}: {said}")
            return said.count(word) == times
        wait_until(told, f"{word} from the client")

    def test_on_the_real_driver(self) -> None:
        self.run_guest(["sh", "-c", "mountpoint -q /sys/kernel/debug || mount -t debugfs none /sys/kernel/debug"],
                       check=True)
        self.start_manager()
        done = self.spawn([self.program("binder-driver-test"), "--gtest_color=no"], name="binder-driver-test")
        status = done.wait(RUN_LIMIT)
        print("\n".join(line.text for line in done.lines("stdout") if line.text.startswith("[")), flush=True)
        self.assertEqual(0, status, "\n".join(line.text for line in done.lines()))

    def test_a_second_service_manager_is_refused(self) -> None:
        self.start_manager()
        second = self.run_guest([self.program("servicemanager")])
        self.assertEqual(69, second.returncode)
        self.assertIn("another service manager", second.error_text)

    def test_signals_end_the_service_manager(self) -> None:
        for number in (signal.SIGTERM, signal.SIGINT):
            self.start_manager()
            self.manager.kill(number)
            self.assertEqual(0, self.manager.wait(LIMIT))

    def test_clients_outlive_the_service_manager(self) -> None:
        self.start_manager()
        client = self.spawn([self.program("binder-driver-test"), "--outlive-manager"], name="outliver")
        # Twice, since the second manager is reached through the same proxy as the first.
        for told in (1, 2):
            self.wait_told(client, "linked", told)
            self.manager.kill(signal.SIGKILL)
            self.wait_told(client, "died", told)
            self.start_manager()
        self.assertEqual(0, client.wait(LIMIT), "\n".join(line.text for line in client.lines()))

    def test_usage(self) -> None:
        self.assertEqual(0, self.run_guest([self.program("servicemanager"), "--help"]).returncode)
        self.assertRegex(self.run_guest([self.program("servicemanager"), "--version"]).text, r"^servicemanager \d")
        self.assertEqual(64, self.run_guest([self.program("servicemanager"), "--nonsense"]).returncode)


if __name__ == "__main__":
    harness.main()
