"""On the board, in real time: a daemon whose lines are on the last of many chips.

chips.py TASK: paths of the programs, numbers of chips, starts with each, seconds of a window, as
JSON. Leaves `result.json` in the folder that outlives the board.
"""

import json
import os
import signal
import sys
import time
from pathlib import Path
from statistics import median

from calls import per_second
from guest.lines import AT1, PWR_IN, make_chip, remove_chips
from guest.trace import Trace
from processes import end, resident_kilobytes, spawn
from programs import DEFAULT
from start import daemon_milliseconds
from supply import Supply

# As many as our own chip has.
_LINES = 4
# The number of the chip that is searched last, if there are so many: they are sorted by name.
_LAST_BY_NAME = 9
_SETTLE_SECONDS = 2


def measure(program: str, chips: int, task: dict, folder: Path) -> dict[str, float]:
    remove_chips()
    before = min(chips - 1, _LAST_BY_NAME)
    for _ in range(before):
        make_chip([None] * _LINES)
    supply = Supply(0)
    for _ in range(chips - 1 - before):
        make_chip([None] * _LINES)
    argv = supply.daemon(program, folder, "--test.battery=true")
    process = spawn(argv)
    try:
        time.sleep(_SETTLE_SECONDS)
        calls = per_second({DEFAULT: [process]}, task["window"], folder)
        kilobytes = resident_kilobytes(process)
    finally:
        end(process, signal.SIGTERM)
    supply.chip.line(supply.name(PWR_IN)).pull(1)
    with Trace() as trace:
        starts = [
            daemon_milliseconds(argv, supply.name(AT1), trace) for _ in range(task["starts"])
        ]
    return {
        "chips": chips,
        "start": median(starts),
        "calls": calls[DEFAULT],
        "kilobytes": kilobytes,
    }


def main() -> None:
    task = json.loads(sys.argv[1])
    folder = Path(os.environ["BOARD_OUTPUT"])
    program = task["paths"][DEFAULT]
    # The first for nothing, so that all find the same files in the kernel's memory.
    found = [measure(program, chips, task, folder) for chips in (1, *task["chips"])][1:]
    (folder / "result.json").write_text(json.dumps(found))


main()
