"""On the board, in simulated time: how soon AC power is back when the battery falls low.

falls.py TASK: paths of the programs and the number of falls, as JSON. Leaves `result.json` in
the folder that outlives the board.
"""

import json
import os
import sys
import tempfile
from pathlib import Path

from builds import SEGMENT_TOOL
from programs import DEFAULT, SMALL

# The rig of the scenarios, with the program that it is told of.
sys.path.append(str(Path(__file__).parent.parent / "tests" / "board"))
TASK = json.loads(sys.argv[1])
os.environ.update(KELVO_PWR=TASK["paths"][DEFAULT], SEGMENT_TOOL=str(SEGMENT_TOOL))

from falls_of_battery import delays  # noqa: E402
from rig import MILLISECOND, Rig  # noqa: E402


def main() -> None:
    result = {}
    for name in (DEFAULT, SMALL):
        with tempfile.TemporaryDirectory() as folder, Rig(Path(folder)) as rig:
            rig.daemon_program = TASK["paths"][name]
            result[name] = [delay / MILLISECOND for delay in delays(rig, TASK["falls"])]
    (Path(os.environ["BOARD_OUTPUT"]) / "result.json").write_text(json.dumps(result))


main()
