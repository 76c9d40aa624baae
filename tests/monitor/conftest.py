import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).parent))

from heart import SEGMENT, Heart  # noqa: E402


@pytest.fixture
def heart():
    with Heart() as heart:
        yield heart
    SEGMENT.unlink()
