"""In real or simulated time: what programs take while nothing happens."""

import itertools
import re
import tempfile
import time
from contextlib import ExitStack
from pathlib import Path
from typing import Iterator

from guest.lines import PWR_IN, remove_chips
from guest.process import Program
from guest.tracing import Recording
from on_board.lines import OwnLines
from on_board.switches import EVENTS, accounts
from on_board.system_calls import per_second
from processes import family, resident_kilobytes
from programs.daemon import FULL, daemon
from programs.names import BARE, BARE_CLOCK, BARE_STATIC, DEFAULT, MINIMAL, NUT, OVERDUE, PYTHON
from programs.names import SHELL, SMALL
from programs.nut import Nut

_PROGRAMS = Path(__file__).resolve().parent.parent / "programs"
# With records and lock of its own; nothing of what follows may be below /run.
_APART = 'mount -t tmpfs tmpfs /dev/shm && mount -t tmpfs tmpfs /run && exec "$@"'
_DAEMONS = (DEFAULT, OVERDUE, MINIMAL, SMALL)
_IN_ITS_LOOP = re.compile("(Full|Minimal) server")
_LONGEST_START_SECONDS = 30
# Until what a start leaves to do is done. In simulated time what is looked at each tenth of a
# second begins its ticks with a tenth, and no edge of a window may be near one.
_SETTLE_SECONDS = 5.05


def rounds(
    folder: Path, paths: dict, programs: list[str], rounds: int, window: float
) -> Iterator[dict]:
    # Once for nothing, so that every round finds the same files in the kernel's memory.
    _round(folder, paths, programs, 1)
    for _ in range(rounds):
        yield _round(folder, paths, programs, window)


def _round(folder: Path, paths: dict, programs: list[str], window: float) -> dict:
    """A window for the accounts and one for the system calls."""
    with ExitStack() as open_now:
        roots = _started(open_now, folder, paths, programs)
        time.sleep(_SETTLE_SECONDS)
        processes = {name: sorted(sum(map(family, roots[name]), [])) for name in roots}
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
            "memory": {name: sum(map(resident_kilobytes, roots[name])) for name in roots},
            "calls": per_second(processes, window, folder),
        }


def _started(
    open_now: ExitStack, folder: Path, paths: dict, programs: list[str]
) -> dict[str, list[int]]:
    """The processes that were started, until `open_now` ends; daemons have come to their loops."""
    remove_chips()
    started = {}
    for name, argv in _command_lines(folder, paths).items():
        if name in programs:
            program = open_now.enter_context(Program(argv))
            started[name] = [program.pid]
            if name in _DAEMONS:
                program.wait_for_line(_IN_ITS_LOOP, within=_LONGEST_START_SECONDS)
    if paths[NUT] and NUT in programs:
        scratch = open_now.enter_context(tempfile.TemporaryDirectory())
        nut = open_now.enter_context(Nut(paths[NUT], Path(scratch) / "nut"))
        started[NUT] = [*nut.serve(), nut.monitor()]
    return started


def _command_lines(folder: Path, paths: dict) -> dict[str, list[str]]:
    lines = map(OwnLines, itertools.count())

    def apart(program: str, *settings: str, last_test: float = time.time()) -> list[str]:
        own = next(lines)
        files = folder / own.names[PWR_IN]
        argv = daemon(paths[program], files, *own.settings, *settings, last_test=last_test)
        return ["unshare", "--mount", "sh", "-c", _APART, "sh", *argv]

    def bare(program: str, *words: str) -> list[str]:
        return [paths[program], next(lines).names[PWR_IN], *words]

    def script(*argv: str) -> list[str]:
        return [*argv, next(lines).chip.device, "0"]

    later = (time.localtime().tm_hour + 12) % 24
    return {
        DEFAULT: apart(DEFAULT, FULL),
        OVERDUE: apart(DEFAULT, FULL, f"test.hour={later}", "test.init.disable=0", last_test=0),
        MINIMAL: apart(DEFAULT),
        SMALL: apart(SMALL, FULL),
        BARE: bare(BARE),
        BARE_CLOCK: bare(BARE, "clock"),
        BARE_STATIC: bare(BARE_STATIC),
        PYTHON: script("/usr/bin/python3", f"{_PROGRAMS}/python_loop.py"),
        SHELL: script(f"{_PROGRAMS}/shell_loop"),
    }
