"""In real time: from the start of a program to what it is started for."""

import os
import signal
import time
from functools import partial
from pathlib import Path
from statistics import median
from typing import Iterator

from guest.clock import now, wait_until
from guest.lines import AT1, LINES, PWR_IN, make_chip, remove_chips
from guest.own_lines import OwnLines
from guest.process import Program
from guest.trace import Trace
from on_board.accounts import calls_per_second
from processes import resident_kilobytes
from programs.builds import PATHS
from programs.daemon import FULL, daemon
from programs.names import DEFAULT, EMPTY, NUT, SMALL, TRUE, Round
from programs.nut import Nut
from starts import in_turns, life_milliseconds, spawn

_LONGEST_START_SECONDS = 10
_LOOK_EVERY_SECONDS = 0.2
# With half a second, so that no edge of the window is near a tick.
_SETTLE_SECONDS = 2.5
_IDLE_SECONDS = 20
# The number of the chip that is searched last, if there are so many: they are sorted by name.
_LAST_BY_NAME = 9


def in_comparison(folder: Path, starts: int) -> Round:
    remove_chips()
    lines = OwnLines("own", power=False)
    with Trace() as trace:
        measures = {}
        for name in (DEFAULT, SMALL):
            argv = daemon(PATHS[name], folder, *lines.settings, FULL)
            measures[name] = partial(_daemon_milliseconds, argv, lines, trace)
        for name in (EMPTY, TRUE):
            measures[name] = partial(life_milliseconds, [PATHS[name]])
        times = in_turns(measures, starts)
    with Nut() as nut:
        begin = now()
        nut.serve()
        return {"start": {**times, NUT: (now() - begin) / 1e6}}


def with_chips(folder: Path, chips: list[int], starts: int) -> Iterator[list]:
    """Of a daemon whose lines are on the last of many chips."""
    yield ["GPIO chips", "Start, ms", "Calls per second, idle", "Memory, kB"]
    for count in chips:
        remove_chips()
        for number in range(count):
            if number == min(count - 1, _LAST_BY_NAME):
                lines = OwnLines("own", power=False)
            else:
                make_chip([None] * len(LINES))
        argv = daemon(PATHS[DEFAULT], folder, *lines.settings, FULL)
        with Trace() as trace:
            start = median(_daemon_milliseconds(argv, lines, trace) for _ in range(starts))
        lines.chip.line(lines.names[PWR_IN]).pull(0)
        with Program(argv) as process:
            time.sleep(_SETTLE_SECONDS)
            (calls,) = calls_per_second({DEFAULT: [process.pid]}, _IDLE_SECONDS, folder).values()
            yield [count, f"{start:.0f}", f"{calls:.1f}", resident_kilobytes(process.pid)]


def _daemon_milliseconds(argv: list[str], lines: OwnLines, trace: Trace) -> float:
    """To the first status that tells the truth, while AC power is missing: the daemon says
    so and reads the battery line next, which is in the kernel's record."""

    def reads() -> list[int]:
        read = "read", lines.names[AT1]
        return [event.time for event in trace.events() if (event.kind, event.line) == read]

    trace.clear()
    begin = now()
    process = spawn(argv)
    try:
        # Looking would take the only processor from what is starting.
        time.sleep(_LOOK_EVERY_SECONDS)
        wait_until(reads, _LONGEST_START_SECONDS, step=_LOOK_EVERY_SECONDS)
        return (reads()[0] - begin) / 1e6
    finally:
        if os.waitid(os.P_PID, process, os.WEXITED | os.WNOHANG | os.WNOWAIT):
            raise RuntimeError(f"{argv[0]} has ended by itself")
        os.kill(process, signal.SIGTERM)
        os.waitpid(process, 0)
