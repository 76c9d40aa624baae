"""In real time: from the start of a program to what it is started for."""

import itertools
import os
import signal
import tempfile
import time
from pathlib import Path
from statistics import median
from typing import Iterator

from guest.lines import AT1, LINES, PWR_IN, make_chip, remove_chips
from guest.process import Program
from guest.trace import Trace
from on_board.lines import OwnLines
from on_board.system_calls import per_second
from processes import life_milliseconds, resident_kilobytes, spawn
from programs.daemon import FULL, daemon
from programs.names import DEFAULT, EMPTY, NUT, SMALL, TRUE
from programs.nut import Nut

_LONGEST_START_SECONDS = 10
# Looking would take the only processor from what is starting.
_LOOK_EVERY_SECONDS = 0.2
_SETTLE_SECONDS = 2
# The number of the chip that is searched last, if there are so many: they are sorted by name.
_LAST_BY_NAME = 9


def rounds(folder: Path, paths: dict, rounds: int, starts: int) -> Iterator[dict]:
    remove_chips()
    lines = OwnLines()
    lines.chip.line(lines.names[PWR_IN]).pull(1)
    # Once for nothing, so that every round finds the same files in the kernel's memory.
    _round(folder, paths, 1, lines)
    for _ in range(rounds):
        yield {"start": _round(folder, paths, starts, lines)}


def with_chips(
    folder: Path, program: str, chips: list[int], starts: int, window: float
) -> list[list[str]]:
    """Of a daemon whose lines are on the last of many chips."""
    header = ["GPIO chips", "Start, ms", "Calls per second, idle", "Memory, kB"]
    # The first for nothing, so that all find the same files in the kernel's memory.
    rows = [_of_chips(folder, program, count, starts, window) for count in (1, *chips)]
    return [header, *rows[1:]]


def _round(folder: Path, paths: dict, starts: int, lines: OwnLines) -> dict[str, float]:
    """The programs take turns."""
    times = {name: [] for name in (DEFAULT, SMALL, EMPTY, TRUE)}
    with Trace() as trace:
        for _ in range(starts):
            for name in (DEFAULT, SMALL):
                argv = _full_server(paths[name], folder, lines)
                times[name].append(_daemon_milliseconds(argv, lines, trace))
            for name in (EMPTY, TRUE):
                times[name].append(life_milliseconds([paths[name]]))
    if paths[NUT]:
        times[NUT] = [_nut_milliseconds(paths[NUT])]
    return {name: median(values) for name, values in times.items()}


def _of_chips(folder: Path, program: str, chips: int, starts: int, window: float) -> list[str]:
    remove_chips()
    before = min(chips - 1, _LAST_BY_NAME)
    # With as many lines as our own chip has.
    others = ([None] * len(LINES) for _ in range(chips - 1))
    for names in itertools.islice(others, before):
        make_chip(names)
    lines = OwnLines()
    for names in others:
        make_chip(names)
    argv = _full_server(program, folder, lines)
    with Program(argv) as process:
        time.sleep(_SETTLE_SECONDS)
        calls = per_second({program: [process.pid]}, window, folder)[program]
        kilobytes = resident_kilobytes(process.pid)
    lines.chip.line(lines.names[PWR_IN]).pull(1)
    with Trace() as trace:
        times = [_daemon_milliseconds(argv, lines, trace) for _ in range(starts)]
    return [str(chips), f"{median(times):.0f}", f"{calls:.1f}", str(kilobytes)]


def _full_server(program: str, folder: Path, lines: OwnLines) -> list[str]:
    return daemon(program, folder, *lines.settings, FULL, last_test=time.time())


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


def _nut_milliseconds(tools: str) -> float:
    with tempfile.TemporaryDirectory() as scratch, Nut(tools, Path(scratch) / "nut") as nut:
        begin = time.monotonic_ns()
        nut.serve()
        return (time.monotonic_ns() - begin) / 1e6
