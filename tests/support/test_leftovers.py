# SPDX-License-Identifier: Apache-2.0
"""Death tests leave nothing behind: usage test_leftovers.py PROGRAM..."""

from __future__ import annotations

import os
import re
import subprocess
import sys
import tempfile


def complaint_about(program: str) -> str:
    with tempfile.TemporaryDirectory(prefix="leftovers-") as folder:
        done = subprocess.run([program, "--gtest_filter=*Death*"], text=True, timeout=240,
                              env={**os.environ, "TMPDIR": folder}, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        passed = re.search(r"^\[  PASSED  \] ([1-9]\d*) tests?\.$", done.stdout, re.MULTILINE)
        if done.returncode != 0 or not passed:
            return f"{program}: no death test passed, status {done.returncode}:\n{done.stdout}"
        left = sorted(os.listdir(folder))
        return f"{program}: left {', '.join(left)}" if left else ""


def main() -> None:
    complaints = [complaint for complaint in map(complaint_about, sys.argv[1:]) if complaint]
    print("\n".join(complaints) if complaints else f"{len(sys.argv) - 1} programs leave nothing")
    sys.exit(1 if complaints or len(sys.argv) < 2 else 0)


main()
