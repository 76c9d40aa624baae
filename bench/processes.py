"""Processes: started with nothing to read and nobody to write to, and as the kernel shows them."""

import os
import signal
import sys
import time
from pathlib import Path
from typing import Mapping, Optional, Sequence


def spawn(argv: Sequence[str], environment: Optional[Mapping[str, str]] = None) -> int:
    quiet = [
        (os.POSIX_SPAWN_OPEN, 0, os.devnull, os.O_RDWR, 0),
        (os.POSIX_SPAWN_DUP2, 0, 1),
        (os.POSIX_SPAWN_DUP2, 0, 2),
    ]
    everything = {**os.environ, **(environment or {})}
    return os.posix_spawnp(argv[0], argv, everything, file_actions=quiet)


def unwind_at_end() -> None:
    """From now on SIGTERM ends this process as an exception does, with all that it has started."""
    signal.signal(signal.SIGTERM, lambda number, _: sys.exit(128 + number))


def end(process: int, number: int) -> None:
    """Ends a process that was spawned here, which may have ended already."""
    os.kill(process, number)
    os.waitpid(process, 0)


def life_milliseconds(argv: Sequence[str]) -> float:
    """From the start to the end, which must be a good one."""
    begin = time.monotonic_ns()
    _, status = os.waitpid(spawn(argv), 0)
    milliseconds = (time.monotonic_ns() - begin) / 1e6
    if status != 0:
        raise RuntimeError(f"{' '.join(argv)} ended with {status}")
    return milliseconds


def family(process: int) -> set[int]:
    """The process and all that it has started, as far as they live."""
    parents = {}
    for folder in Path("/proc").glob("[0-9]*"):
        try:
            # The name, in parentheses, may hold anything.
            fields = (folder / "stat").read_text().rpartition(")")[2].split()
        except (FileNotFoundError, ProcessLookupError):
            continue
        parents[int(folder.name)] = int(fields[1])
    members = {process}
    while more := {child for child, parent in parents.items() if parent in members} - members:
        members |= more
    return members


def resident_kilobytes(process: int) -> int:
    """0 when it has ended."""
    return _of_status(process, "VmRSS")


def sleeps(process: int) -> int:
    return _of_status(process, "voluntary_ctxt_switches")


def descriptors(process: int) -> int:
    return len(os.listdir(f"/proc/{process}/fd"))


def cpu_milliseconds(process: int) -> float:
    """To the nanosecond, where the kernel keeps it."""
    return int(Path(f"/proc/{process}/schedstat").read_text().split()[0]) / 1e6


def _of_status(process: int, field: str) -> int:
    try:
        status = Path(f"/proc/{process}/status").read_text()
    except (FileNotFoundError, ProcessLookupError):
        return 0
    lines = (line.split() for line in status.splitlines())
    return next((int(words[1]) for words in lines if words[0] == f"{field}:"), 0)
