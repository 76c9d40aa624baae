"""In real time: from the start of a program to what it is started for."""

import os
import signal
import time
from functools import partial
from pathlib import Path

from guest.lines import AT1, LINES, PWR_IN, make_chip, remove_chips
from guest.own_lines import OwnLines
from guest.process import Program
from guest.trace import Trace
from on_board.accounts import calls_per_second
from processes import resident_kilobytes
from programs.daemon import FULL, daemon
from programs.names import DEFAULT, EMPTY, NUT, SMALL, TRUE, Round
from programs.nut import Nut
from starts import in_turns, life_milliseconds, spawn

_LONGEST_START_SECONDS = 10
# Looking would take the only processor from what is starting.
_LOOK_EVERY_SECONDS = 0.2
_SETTLE_SECONDS = 2
_IDLE_SECONDS = 20
# The number of the chip that is searched last, if there are so many: they are sorted by name.
_LAST_BY_NAME = 9


def in_comparison(folder: Path, paths: dict, starts: int) -> Round:
    remove_chips()
    lines = OwnLines("own", power=False)
    with Trace() as trace:
        measures = {}
        for name in (DEFAULT, SMALL):
            argv = daemon(paths[name], folder, *lines.settings, FULL)
            measures[name] = partial(_daemon_milliseconds, argv, lines, trace)
        for name in (EMPTY, TRUE):
            measures[name] = partial(life_milliseconds, [paths[name]])
        times = in_turns(measures, starts)
    if paths[NUT]:
        with Nut(paths[NUT]) as nut:
            begin = time.monotonic()
            nut.serve()
            times[NUT] = (time.monotonic() - begin) * 1000
    return {"start": times}


def with_chips(folder: Path, program: str, chips: list[int], starts: int) -> list[list[str]]:
    """Of a daemon whose lines are on the last of many chips."""
    rows = [["GPIO chips", "Start, ms", "Calls per second, idle", "Memory, kB"]]
    # The first for nothing, so that all find the same files in the kernel's memory.
    for count in (chips[0], *chips):
        remove_chips()
        for number in range(count):
            if number == min(count - 1, _LAST_BY_NAME):
                lines = OwnLines("own")
            else:
                make_chip([None] * len(LINES))
        argv = daemon(program, folder, *lines.settings, FULL)
        with Program(argv) as process:
            time.sleep(_SETTLE_SECONDS)
            calls = calls_per_second({program: [process.pid]}, _IDLE_SECONDS, folder)[program]
            kilobytes = resident_kilobytes(process.pid)
        lines.chip.line(lines.names[PWR_IN]).pull(1)
        with Trace() as trace:
            start = in_turns({program: partial(_daemon_milliseconds, argv, lines, trace)}, starts)
        rows.append([str(count), f"{start[program]:.0f}", f"{calls:.1f}", str(kilobytes)])
    del rows[1]
    return rows


def _daemon_milliseconds(argv: list[str], lines: OwnLines, trace: Trace) -> float:
    """To the first status that tells the truth, while AC power is missing: the daemon says
    so and reads the battery line next, which is in the kernel's record."""
    trace.clear()
    begin = time.monotonic_ns()
    process = spawn(argv)
    try:
        while time.monotonic_ns() - begin < _LONGEST_START_SECONDS * 10**9:
            time.sleep(_LOOK_EVERY_SECONDS)
            for event in trace.events():
                if (event.kind, event.line) == ("read", lines.names[AT1]):
                    return (event.time - begin) / 1e6
    finally:
        if os.waitid(os.P_PID, process, os.WEXITED | os.WNOHANG | os.WNOWAIT):
            raise RuntimeError(f"{argv[0]} has ended by itself")
        os.kill(process, signal.SIGTERM)
        os.waitpid(process, 0)
    raise RuntimeError(f"{argv[0]} has not come to its loop")
