"""Processes: started with nothing to read, and as the kernel shows them."""

import os
import signal
import sys
import time
from pathlib import Path
from typing import Callable, Mapping, Optional, Sequence, Union

_LONGEST_LIFE_AFTER_PARENT_SECONDS = 10


def spawn(
    argv: Sequence[str],
    environment: Optional[Mapping[str, str]] = None,
    output: Union[str, Path] = os.devnull,
) -> int:
    redirected = [
        (os.POSIX_SPAWN_OPEN, 0, os.devnull, os.O_RDONLY, 0),
        (os.POSIX_SPAWN_OPEN, 1, str(output), os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o644),
        (os.POSIX_SPAWN_DUP2, 1, 2),
    ]
    everything = {**os.environ, **(environment or {})}
    return os.posix_spawnp(argv[0], argv, everything, file_actions=redirected)


def unwind_at_end() -> None:
    """From now on SIGTERM ends this process as an exception does, with all that it has started."""
    signal.signal(signal.SIGTERM, lambda number, _: sys.exit(128 + number))


def end(process: int, number: int) -> None:
    """Ends a process that was spawned here; raises if it has ended before."""
    had_ended = has_ended(process)
    os.kill(process, number)
    _, status = os.waitpid(process, 0)
    if had_ended:
        raise RuntimeError(f"process {process} has ended by itself, with {status}")


def has_ended(process: int) -> bool:
    """Of a process that was spawned here and not yet waited for."""
    return os.waitid(os.P_PID, process, os.WEXITED | os.WNOHANG | os.WNOWAIT) is not None


def wait_until(
    condition: Callable[[], bool], process: int, seconds: float, look_every: float = 0.1
) -> None:
    """Looks again and again; raises once the process, spawned here, has ended or time is up."""
    end_of_time = time.monotonic() + seconds
    while not condition():
        if has_ended(process):
            raise RuntimeError(f"process {process} has ended")
        if time.monotonic() > end_of_time:
            raise RuntimeError(f"process {process} took more than {seconds} seconds")
        time.sleep(look_every)


def wait_for_orphans() -> None:
    """Until all that was started by what has been started here, and adopted, has ended, too."""
    end_of_time = time.monotonic() + _LONGEST_LIFE_AFTER_PARENT_SECONDS
    try:
        while time.monotonic() < end_of_time:
            if os.waitpid(-1, os.WNOHANG) == (0, 0):
                time.sleep(0.1)
    except ChildProcessError:
        return
    raise RuntimeError(f"still there: {sorted(family(os.getpid()))}")


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
