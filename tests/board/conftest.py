import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).parent))

from faults import calls_of_start  # noqa: E402
from rig import Rig  # noqa: E402


def pytest_configure(config):
    config.addinivalue_line("markers", "kernel: needs the board's kernel, so is not simulated")


@pytest.fixture
def rig(tmp_path):
    with Rig(tmp_path) as rig:
        yield rig


@pytest.fixture(scope="module")
def start_calls(tmp_path_factory):
    """The system calls of one start without a fault."""
    with Rig(tmp_path_factory.mktemp("rehearsal")) as rig:
        return calls_of_start(rig)
