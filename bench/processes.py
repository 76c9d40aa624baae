"""What processes take that run: CPU time, wake-ups, memory."""

import time
from contextlib import contextmanager, suppress
from pathlib import Path
from typing import Iterator, Mapping

import psutil


@contextmanager
def taken_per_minute(processes: Mapping[str, int]) -> Iterator[dict[str, list[float]]]:
    """Milliseconds of CPU time, and sleeps, each of which has a wake-up; at the end."""
    before, begin = {name: _taken(process) for name, process in processes.items()}, time.monotonic()
    found: dict[str, list[float]] = {}
    yield found
    minutes = (time.monotonic() - begin) / 60
    for name, process in processes.items():
        found[name] = [(now - then) / minutes for now, then in zip(_taken(process), before[name])]


def _taken(process: int) -> tuple[float, int]:
    # To the nanosecond, where the kernel keeps it.
    nanoseconds = int(Path(f"/proc/{process}/schedstat").read_text().split()[0])
    return nanoseconds / 1e6, psutil.Process(process).num_ctx_switches().voluntary


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
