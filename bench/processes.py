"""What processes take: time from start to end, CPU time, memory."""

import os
import time
from contextlib import suppress
from pathlib import Path
from typing import Sequence

import psutil

_QUIET = [(os.POSIX_SPAWN_OPEN, number, os.devnull, os.O_RDWR, 0) for number in range(3)]


def spawn(argv: Sequence[str]) -> int:
    """Starts what is timed, with less before it than any other way has."""
    return os.posix_spawnp(argv[0], argv, os.environ, file_actions=_QUIET)


def life_milliseconds(argv: Sequence[str]) -> float:
    """From the start to the end, which must be a good one."""
    begin = time.monotonic_ns()
    _, status = os.waitpid(spawn(argv), 0)
    milliseconds = (time.monotonic_ns() - begin) / 1e6
    if status != 0:
        raise RuntimeError(f"{' '.join(argv)} ended with {status}")
    return milliseconds


def cpu_milliseconds(process: int) -> float:
    """To the nanosecond, where the kernel keeps it."""
    return int(Path(f"/proc/{process}/schedstat").read_text().split()[0]) / 1e6


def resident_kilobytes(process: int) -> int:
    """With all that it has started. Raises if it has ended, as `family` does."""
    total = psutil.Process(process).memory_info().rss
    for child in family(process)[1:]:
        with suppress(psutil.NoSuchProcess):
            total += psutil.Process(child).memory_info().rss
    return total // 1024


def family(process: int) -> list[int]:
    """The process and all that it has started, as far as they live."""
    children = psutil.Process(process).children(recursive=True)
    return [process, *(child.pid for child in children)]
