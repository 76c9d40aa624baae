"""Where this is, and the libraries that stand elsewhere in it."""

import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
WITH_OWN_SHM = ROOT / "tests/host/with_own_shm"

# The rig of the scenarios is in tests/board.
sys.path += [str(ROOT / name) for name in ("board", "tests/board", "tests/contrib", "tests/docs")]
