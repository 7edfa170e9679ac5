# SPDX-License-Identifier: Apache-2.0
"""Entry for the script of the same name at the root of the checkout."""

import sys
from pathlib import Path

sys.path[0] = str(Path(__file__).resolve().parent.parent)

from vm.cli import main  # noqa: E402

sys.exit(main())
