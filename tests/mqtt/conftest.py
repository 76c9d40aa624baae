import sys
from pathlib import Path

import pytest

HERE = Path(__file__).parent
sys.path[:0] = [str(HERE), str(HERE.parent / "monitor"), str(HERE.parents[1] / "board")]

from broker import Broker  # noqa: E402
from heart import SEGMENT, Heart  # noqa: E402
from home import Home  # noqa: E402


@pytest.fixture
def heart():
    with Heart() as heart:
        yield heart
    SEGMENT.unlink()


@pytest.fixture
def broker(tmp_path):
    with Broker(tmp_path) as broker:
        yield broker


@pytest.fixture
def home(tmp_path):
    return Home(tmp_path)
