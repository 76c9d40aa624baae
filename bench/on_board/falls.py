"""In simulated time: how soon AC power is back when the battery falls low."""

import os
from pathlib import Path

from programs.builds import PATHS, SEGMENT_TOOL
from programs.names import DEFAULT, SMALL


def delays(folder: Path, falls: int) -> dict[str, dict[str, list[float]]]:
    """Milliseconds of the worst of all falls."""
    # The rig looks for them when it is imported.
    os.environ.update(KELVO_PWR=PATHS[DEFAULT], SEGMENT_TOOL=str(SEGMENT_TOOL))
    import falls_of_battery
    from rig import MILLISECOND, Rig

    worst = {}
    for name in (DEFAULT, SMALL):
        with Rig(folder) as rig:
            rig.daemon_program = PATHS[name]
            worst[name] = [max(falls_of_battery.delays(rig, falls)) / MILLISECOND]
    return {"fall": worst}
