"""On the board, in simulated time: the memory of programs of which each runs alone.

alone.py TASK: paths of daemons and of bare loops, by name, as JSON. Leaves `result.json` in the
folder that outlives the board.
"""

import json
import os
import signal
import sys
import time
from pathlib import Path

from guest.lines import PWR_IN, remove_chips
from processes import end, resident_kilobytes, spawn
from supply import Supply

_SETTLE_SECONDS = 2


def kilobytes(argv: list[str]) -> int:
    process = spawn(argv)
    try:
        time.sleep(_SETTLE_SECONDS)
        return resident_kilobytes(process)
    finally:
        end(process, signal.SIGTERM)


def main() -> None:
    task = json.loads(sys.argv[1])
    folder = Path(os.environ["BOARD_OUTPUT"])
    remove_chips()
    supply = Supply(0)
    lines = {name: [path, supply.name(PWR_IN)] for name, path in task["bare"].items()}
    for name, path in task["daemons"].items():
        lines[name] = supply.daemon(path, folder, "--test.battery=true")
    # Once for nothing, so that all find the same files in the kernel's memory.
    for argv in lines.values():
        kilobytes(argv)
    result = {name: kilobytes(argv) for name, argv in lines.items()}
    (folder / "result.json").write_text(json.dumps(result))


main()
