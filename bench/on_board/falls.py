"""In simulated time: how soon AC power is back when the battery falls low."""

import os
import sys
import tempfile
from pathlib import Path

from programs.builds import SEGMENT_TOOL
from programs.names import DEFAULT, SMALL

# The rig of the scenarios is there.
sys.path.append(str(Path(__file__).resolve().parent.parent.parent / "tests" / "board"))


def delays(_: Path, paths: dict, falls: int) -> dict[str, list[float]]:
    """Milliseconds of each fall."""
    # The rig looks for them when it is imported.
    os.environ.update(KELVO_PWR=paths[DEFAULT], SEGMENT_TOOL=str(SEGMENT_TOOL))
    import falls_of_battery
    from rig import MILLISECOND, Rig

    result = {}
    for name in (DEFAULT, SMALL):
        with tempfile.TemporaryDirectory() as folder, Rig(Path(folder)) as rig:
            rig.daemon_program = paths[name]
            found = falls_of_battery.delays(rig, falls)
            result[name] = [delay / MILLISECOND for delay in found]
    return result
