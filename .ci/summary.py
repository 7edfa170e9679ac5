#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Adds up ctest's result files: `summary.py FAILED_STEPS FILE...` prints one line and exits 1 on any failure.

A step that failed although none of its tests did (a build, a fuzzer) counts as one failure.
"""
import sys
import xml.etree.ElementTree as ElementTree


def main() -> int:
    failed_steps = int(sys.argv[1])
    passed = failed = skipped = 0
    for name in sys.argv[2:]:
        try:
            cases = list(ElementTree.parse(name).getroot().iter("testcase"))
        except (OSError, ElementTree.ParseError) as error:
            print(f"no results: {error}")
            failed_steps = max(failed_steps, 1)
            continue
        for case in cases:
            status = case.get("status")
            if status == "run":
                passed += 1
            elif status in ("fail", "notrun") and case.find("failure") is not None:
                failed += 1
            elif status in ("notrun", "disabled", "skipped"):
                skipped += 1
            else:
                failed += 1
    failed = max(failed, failed_steps)
    print(f"{passed} passed, {failed} failed, {skipped} skipped")
    return 0 if failed == 0 and passed > 0 else 1


if __name__ == "__main__":
    sys.exit(main())
