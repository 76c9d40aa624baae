import sys
from pathlib import Path

import pytest

HERE = Path(__file__).parent
sys.path[:0] = [str(HERE), str(HERE.parent / "board")]

from rig import Rig  # noqa: E402


def pytest_configure(config):
    config.addinivalue_line("markers", "script: about the scripts, which start a client, alone")


@pytest.fixture
def rig(tmp_path):
    with Rig(tmp_path) as rig:
        yield rig
