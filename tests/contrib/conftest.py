import sys
from pathlib import Path

import pytest

HERE = Path(__file__).parent
sys.path[:0] = [str(HERE), str(HERE.parent / "board")]

from rig import Rig  # noqa: E402


@pytest.fixture
def rig(tmp_path):
    with Rig(tmp_path) as rig:
        yield rig
