# SPDX-License-Identifier: Apache-2.0
"""Every C++ file is formatted as .clang-format says."""

from __future__ import annotations

import tree


def main() -> None:
    sources = tree.files(".h", ".cpp")
    groups = [sources[start:start + 20] for start in range(0, len(sources), 20)]
    complaints = tree.in_parallel(
        lambda group: tree.run(["clang-format", "--dry-run", "--Werror", *map(str, group)]), groups)
    tree.finish(complaints, len(sources), "files")


main()
