# SPDX-License-Identifier: Apache-2.0
"""The pages of the client library are made without a warning: every class and operation of the installed headers is
documented, and what the comments refer to is there."""

from __future__ import annotations

import subprocess
import sys
import tempfile
from pathlib import Path

import includes
import tree


def pages_of(header: str) -> list[str]:
    """The page of the class or structure that the header declares, as doxygen names either."""
    return [f"{kind}{header[:-2].replace('/', '_1_1')}.html" for kind in ("class", "struct")]


def main() -> None:
    settings = Path(sys.argv[1], "Doxyfile").read_text()
    with tempfile.TemporaryDirectory(prefix="doxygen-") as folder:
        # The last assignment counts.
        done = subprocess.run(["doxygen", "-"], input=f"{settings}\nOUTPUT_DIRECTORY = {folder}\n", text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
        complaints = [] if done.returncode == 0 and not done.stdout else [
            f"{done.stdout}(exit status {done.returncode} of doxygen)"]
        headers = [str(path) for path in tree.files(".h") if includes.CLIENT_HEADER.match(str(path))]
        complaints += [f"{header}: no page of its class" for header in headers
                       if not any(Path(folder, "html", page).exists() for page in pages_of(header))]
    tree.finish(complaints, len(headers), "headers")


main()
