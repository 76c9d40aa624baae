"""On the board, in real or simulated time: what programs take while nothing happens.

idle.py TASK: paths of the programs, names of those to be measured, number of rounds, seconds of
a window, as JSON. Leaves `result.json` in the folder that outlives the board.
"""

import itertools
import json
import os
import signal
import sys
import tempfile
import time
from contextlib import ExitStack
from pathlib import Path

from accounts import Switches
from calls import per_second
from goals import CALLS, CPU, MEMORY, WAKE_UPS
from guest.lines import PWR_IN, remove_chips
from host.children import adopt_orphans
from nut import Nut
from processes import (
    end,
    family,
    resident_kilobytes,
    spawn,
    wait_for_orphans,
    wait_until,
)
from programs import BARE, BARE_CLOCK, BARE_STATIC, DEFAULT, MINIMAL, NUT, OVERDUE, PYTHON, SHELL
from programs import SMALL
from supply import Supply, apart

_HERE = Path(__file__).parent
_NUT_PORT = 3493
# What a daemon says when it has come to its loop.
_IN_ITS_LOOP = {
    DEFAULT: "Full server",
    OVERDUE: "Full server",
    MINIMAL: "Minimal server",
    SMALL: "Full server",
}
_LONGEST_START_SECONDS = 30
# Until what a start leaves to do is done. In simulated time what is looked at each tenth of a
# second begins its ticks with a tenth, and no edge of a window may be near one.
_SETTLE_SECONDS = 5.05


def command_lines(paths: dict[str, str], folder: Path) -> dict[str, list[str]]:
    """Each with lines of its own."""
    default, small = paths[DEFAULT], paths[SMALL]
    later = (time.localtime().tm_hour + 12) % 24
    overdue = [f"--test.hour={later}", "--test.init.disable=0"]
    lines = map(Supply, itertools.count())
    battery = "--test.battery=true"
    return {
        DEFAULT: apart(next(lines).daemon(default, folder, battery)),
        OVERDUE: apart(next(lines).daemon(default, folder, battery, *overdue, tested=False)),
        MINIMAL: apart(next(lines).daemon(default, folder)),
        SMALL: apart(next(lines).daemon(small, folder, battery)),
        BARE: [paths[BARE], next(lines).name(PWR_IN)],
        BARE_CLOCK: [paths[BARE], next(lines).name(PWR_IN), "clock"],
        BARE_STATIC: [paths[BARE_STATIC], next(lines).name(PWR_IN)],
        PYTHON: ["/usr/bin/python3", str(_HERE / "python_loop.py"), next(lines).chip.device, "0"],
        SHELL: [str(_HERE / "shell_loop"), next(lines).chip.device, "0"],
    }


def start(open_now: ExitStack, task: dict, folder: Path) -> dict[str, list[int]]:
    """The processes of each program; they end with `open_now`."""
    remove_chips()
    paths, started = task["paths"], {}
    for name, argv in command_lines(paths, folder).items():
        if name not in task["programs"]:
            continue
        last_line = _IN_ITS_LOOP.get(name)
        output = folder / f"output-{len(started)}" if last_line else Path(os.devnull)
        process = spawn(argv, output=output)
        open_now.callback(end, process, signal.SIGTERM)
        started[name] = [process]
        if last_line:
            wait_until(
                lambda: last_line in output.read_text().splitlines(),
                process,
                _LONGEST_START_SECONDS,
            )
    if paths[NUT] and NUT in task["programs"]:
        scratch = open_now.enter_context(tempfile.TemporaryDirectory())
        nut = open_now.enter_context(Nut(Path(paths[NUT]), Path(scratch) / "nut", _NUT_PORT))
        nut.serve()
        nut.monitor()
        started[NUT] = [process.pid for process in nut.processes]
    time.sleep(_SETTLE_SECONDS)
    return {name: sorted(set().union(*map(family, pids))) for name, pids in started.items()}


def measure(task: dict, seconds: float, folder: Path) -> dict[str, dict[str, float]]:
    """One round: a window for the accounts and one for the system calls."""
    with ExitStack() as open_now:
        groups = start(open_now, task, folder)
        owners = {pid: name for name, pids in groups.items() for pid in pids}
        with Switches() as switches:
            begin = time.monotonic()
            time.sleep(seconds)
            accounts = switches.accounts(owners)
            minutes = (time.monotonic() - begin) / 60
        result = {
            WAKE_UPS: {name: one.sleeps / minutes for name, one in accounts.items()},
            CPU: {name: one.cpu_seconds * 1000 / minutes for name, one in accounts.items()},
            MEMORY: {name: resident_together(pids) for name, pids in groups.items()},
            CALLS: per_second(groups, seconds, folder),
        }
    wait_for_orphans()
    return result


def resident_together(processes: list[int]) -> int:
    """With what they have started since."""
    return sum(map(resident_kilobytes, set().union(*map(family, processes))))


def main() -> None:
    adopt_orphans()
    task = json.loads(sys.argv[1])
    folder = Path(os.environ["BOARD_OUTPUT"])
    # Once for nothing, so that every round finds the same files in the kernel's memory.
    measure(task, 1, folder)
    rounds = []
    for number in range(task["rounds"]):
        print(f"idle: round {number + 1} of {task['rounds']}", file=sys.stderr, flush=True)
        rounds.append(measure(task, task["window"], folder))
    (folder / "result.json").write_text(json.dumps(rounds))


main()
