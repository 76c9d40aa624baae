import sys
from pathlib import Path

import pytest

HERE = Path(__file__).parent
sys.path[:0] = [str(HERE), str(HERE.parents[1] / "board")]

from heart import SEGMENT, Heart  # noqa: E402


@pytest.fixture
def heart():
    with Heart() as heart:
        yield heart
    SEGMENT.unlink()
