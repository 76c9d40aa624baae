import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).parent))

from rig import Rig  # noqa: E402


@pytest.fixture
def rig(tmp_path):
    with Rig(tmp_path) as rig:
        yield rig
