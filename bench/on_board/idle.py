"""In real or simulated time: what programs take while nothing happens."""

import itertools
import re
import time
from contextlib import ExitStack
from pathlib import Path
from typing import Sequence

from guest.lines import PWR_IN, remove_chips
from guest.own_lines import OwnLines
from guest.process import Program
from guest.tracing import Recording
from on_board.accounts import EVENTS, accounts, calls_per_second
from places import ROOT, WITH_OWN_SHM
from processes import family, resident_kilobytes
from programs.builds import PATHS
from programs.daemon import FULL, daemon
from programs.names import BARE, BARE_CLOCK, BARE_STATIC, DEFAULT, MINIMAL, NUT, OVERDUE, PYTHON
from programs.names import SHELL, SMALL, Round
from programs.nut import Nut

_IN_ITS_LOOP = re.compile("(Full|Minimal) server")
_LONGEST_START_SECONDS = 30
# Until what a start leaves to do is done. In simulated time what is looked at each tenth of a
# second begins its ticks with a tenth, and no edge of a window may be near one.
_SETTLE_SECONDS = 5.05


def all_at_once(
    folder: Path, window: float, programs: Sequence[str] = (), default: str = PATHS[DEFAULT]
) -> Round:
    """All programs, or some; a window for the accounts and one for the system calls."""
    with ExitStack() as open_now:
        started = {}
        for name, argv in _command_lines(folder, {**PATHS, DEFAULT: default}).items():
            if name in programs or not programs:
                program = open_now.enter_context(Program(argv))
                started[name] = [program.pid]
                if name in (DEFAULT, OVERDUE, MINIMAL, SMALL):
                    program.wait_for_line(_IN_ITS_LOOP, within=_LONGEST_START_SECONDS)
        if not programs:
            nut = open_now.enter_context(Nut())
            started[NUT] = [*nut.serve(), nut.monitor()]
        time.sleep(_SETTLE_SECONDS)
        processes = {name: sorted(sum(map(family, started[name]), [])) for name in started}
        owners = {process: name for name in processes for process in processes[name]}
        with Recording(*EVENTS) as record:
            begin = time.monotonic()
            time.sleep(window)
            record.stop()
            minutes = (time.monotonic() - begin) / 60
            found = accounts(record.lines(), owners)
        return {
            "wake-ups": {name: sleeps / minutes for name, (_, sleeps) in found.items()},
            "cpu": {name: seconds * 1000 / minutes for name, (seconds, _) in found.items()},
            "memory": {name: sum(map(resident_kilobytes, started[name])) for name in started},
            "calls": calls_per_second(processes, window, folder),
        }


def _command_lines(folder: Path, paths: dict) -> dict[str, list[str]]:
    """Each has lines of its own."""
    remove_chips()
    lines = map(OwnLines, itertools.count())

    def apart(program: str, *settings: str, **last_test: float) -> list[str]:
        """With records and lock of its own; none of its files may be below /run."""
        own = next(lines)
        files = folder / own.names[PWR_IN]
        return [WITH_OWN_SHM, *daemon(paths[program], files, *own.settings, *settings, **last_test)]

    def bare(program: str, *words: str) -> list[str]:
        return [paths[program], next(lines).names[PWR_IN], *words]

    def script(*argv: str) -> list[str]:
        return [*argv, next(lines).chip.device, "0"]

    later, loops = (time.localtime().tm_hour + 12) % 24, ROOT / "bench/programs"
    return {
        DEFAULT: apart(DEFAULT, FULL),
        OVERDUE: apart(DEFAULT, FULL, f"test.hour={later}", "test.init.disable=0", last_test=0),
        MINIMAL: apart(DEFAULT),
        SMALL: apart(SMALL, FULL),
        BARE: bare(BARE),
        BARE_CLOCK: bare(BARE, "clock"),
        BARE_STATIC: bare(BARE_STATIC),
        PYTHON: script("/usr/bin/python3", loops / "python_loop.py"),
        SHELL: script(loops / "shell_loop"),
    }
