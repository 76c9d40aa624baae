"""Instructions of a tick outside the kernel, which no noise changes; valgrind counts them."""

import os
import re
import subprocess
from pathlib import Path
from typing import Sequence

from on_host.loops import LINES, SIMULATED_TIME
from programs.daemon import FULL, daemon
from programs.names import BARE, BARE_CLOCK, DEFAULT, MINIMAL

_VALGRIND = ["valgrind", "--tool=cachegrind", "--cache-sim=no", "--cachegrind-out-file=/dev/null"]
_COUNTED = re.compile(r"I\s+refs:\s+([\d,]+)")
# From one to the other there are ticks only; the start is in both.
_FEW_TICKS, _MANY_TICKS = 100, 1100
# A little before the stand-in's begin of time: no test is due.
_LAST_TEST = 1_717_400_000


def of_a_tick(folder: Path, paths: dict) -> dict[str, dict[str, list[float]]]:
    conf = daemon(paths[DEFAULT], folder, last_test=_LAST_TEST)
    programs = {
        DEFAULT: [*conf, f"--{FULL}"],
        MINIMAL: conf,
        BARE: [paths[BARE], "PWR-IN"],
        BARE_CLOCK: [paths[BARE], "PWR-IN", "clock"],
    }
    return {"instructions": {name: [_of_a_tick(argv)] for name, argv in programs.items()}}


def _of_a_tick(argv: Sequence[str]) -> float:
    more = _counted(argv, _MANY_TICKS) - _counted(argv, _FEW_TICKS)
    return more / (_MANY_TICKS - _FEW_TICKS)


def _counted(argv: Sequence[str], ticks: int) -> int:
    environment = {**os.environ, **LINES, **SIMULATED_TIME, "ENDS_AT_SLEEP": str(ticks)}
    words = [*_VALGRIND, *argv]
    done = subprocess.run(words, env=environment, capture_output=True, text=True, check=True)
    return int(_COUNTED.search(done.stderr)[1].replace(",", ""))
