"""On the board, in real time: from the start of a program to what it is started for.

start.py TASK: paths of the programs, number of rounds, starts of each program in a round, as
JSON. Leaves `result.json` in the folder that outlives the board.
"""

import json
import os
import signal
import sys
import tempfile
import time
from pathlib import Path
from statistics import median

from goals import START
from guest.lines import AT1, PWR_IN, remove_chips
from guest.trace import Trace
from nut import Nut
from processes import end, life_milliseconds, spawn
from programs import DEFAULT, EMPTY, NUT, SMALL, TRUE
from supply import Supply

_NUT_PORT = 3493
_LONGEST_START_SECONDS = 10
# Looking would take the only processor from what is starting.
_LOOK_EVERY_SECONDS = 0.2


def daemon_milliseconds(argv: list[str], battery_line: str, trace: Trace) -> float:
    """To the first status that tells the truth, while AC power is missing: the daemon says
    so and reads the battery line next, which is in the kernel's record."""
    trace.clear()
    begin = time.monotonic_ns()
    process = spawn(argv)
    try:
        while time.monotonic_ns() - begin < _LONGEST_START_SECONDS * 10**9:
            time.sleep(_LOOK_EVERY_SECONDS)
            for event in trace.events():
                if (event.kind, event.line) == ("read", battery_line):
                    return (event.time - begin) / 1e6
    finally:
        end(process, signal.SIGTERM)
    raise RuntimeError(f"{argv[0]} has not come to its loop")


def nut_milliseconds(tools: Path) -> float:
    with tempfile.TemporaryDirectory() as scratch:
        with Nut(tools, Path(scratch) / "nut", _NUT_PORT) as nut:
            begin = time.monotonic_ns()
            nut.serve()
            return (time.monotonic_ns() - begin) / 1e6


def measure(paths: dict[str, str], starts: int, supply: Supply, folder: Path) -> dict[str, float]:
    """One round: the programs take turns."""
    times = {name: [] for name in (DEFAULT, SMALL, EMPTY, TRUE)}
    with Trace() as trace:
        for _ in range(starts):
            for name in (DEFAULT, SMALL):
                argv = supply.daemon(paths[name], folder, "--test.battery=true")
                times[name].append(daemon_milliseconds(argv, supply.name(AT1), trace))
            for name in (EMPTY, TRUE):
                times[name].append(life_milliseconds([paths[name]]))
    if paths[NUT]:
        times[NUT] = [nut_milliseconds(Path(paths[NUT]))]
    return {name: median(values) for name, values in times.items()}


def main() -> None:
    task = json.loads(sys.argv[1])
    folder = Path(os.environ["BOARD_OUTPUT"])
    remove_chips()
    supply = Supply(0)
    supply.chip.line(supply.name(PWR_IN)).pull(1)
    # Once for nothing, so that every round finds the same files in the kernel's memory.
    measure(task["paths"], 1, supply, folder)
    rounds = []
    for number in range(task["rounds"]):
        print(f"start: round {number + 1} of {task['rounds']}", file=sys.stderr, flush=True)
        rounds.append({START: measure(task["paths"], task["starts"], supply, folder)})
    (folder / "result.json").write_text(json.dumps(rounds))


if __name__ == "__main__":
    main()
