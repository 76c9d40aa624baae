import sys
from pathlib import Path

import pytest

HERE = Path(__file__).parent
sys.path[:0] = [str(HERE), str(HERE.parent / "board")]


@pytest.fixture
def service():
    # Not at the top: tests that run on the host have no board to import.
    from rig import Service

    with Service() as service:
        yield service
