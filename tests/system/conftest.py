import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).parent))


@pytest.fixture
def service():
    # Not at the top: tests that run on the host have no board to import.
    from rig import Service

    with Service() as service:
        yield service
