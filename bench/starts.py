"""Programs that are timed, started with less before it than any other way has."""

import os
import time
from statistics import median
from typing import Callable, Mapping, Sequence

_QUIET = [(os.POSIX_SPAWN_OPEN, number, os.devnull, os.O_RDWR, 0) for number in range(3)]


def spawn(argv: Sequence[str]) -> int:
    return os.posix_spawnp(argv[0], argv, os.environ, file_actions=_QUIET)


def life_milliseconds(argv: Sequence[str]) -> float:
    """From the start to the end, which must be a good one."""
    begin = time.monotonic_ns()
    _, status = os.waitpid(spawn(argv), 0)
    milliseconds = (time.monotonic_ns() - begin) / 1e6
    if status != 0:
        raise RuntimeError(f"{' '.join(argv)} ended with {status}")
    return milliseconds


def in_turns(measures: Mapping[str, Callable[[], float]], turns: int) -> dict[str, float]:
    """The median of each."""
    values = [[measure() for measure in measures.values()] for _ in range(turns)]
    return dict(zip(measures, map(median, zip(*values))))
