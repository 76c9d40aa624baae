"""System calls counted by strace, without those that a real kernel does not see."""

import re
import time
from contextlib import ExitStack
from pathlib import Path
from typing import Iterable, Mapping

from guest.process import Program

# Where the kernel and the processor have a fast clock these read it without a call.
_CLOCK_READS = "clock_gettime,gettimeofday,time,getcpu"
_STRACE = ["strace", "-f", "-qq", "-ttt", "-e", f"trace=!{_CLOCK_READS}", "-e", "signal=none"]
# A call that was under way when strace came; and the second line of one that was interrupted.
_NOT_NEW = re.compile(r".*(resuming interrupted|resumed>)")
_ATTACH_SECONDS = 2


def per_second(
    programs: Mapping[str, Iterable[int]], seconds: float, folder: Path
) -> dict[str, float]:
    """Of the processes of each program and what they start."""
    records = {name: folder / f"calls-{number}" for number, name in enumerate(programs)}
    tracers = {}
    # Asked to end, one would let go of one process after the other, and wait for ever for one
    # that waits for a child just forked; at the end of the `with` it is killed.
    with ExitStack() as open_now:
        for name, processes in programs.items():
            attached = [word for process in processes for word in ("-p", str(process))]
            tracer = Program([*_STRACE, "-o", str(records[name]), *attached])
            tracers[name] = open_now.enter_context(tracer)
        time.sleep(_ATTACH_SECONDS)
        begin = time.time()
        time.sleep(seconds)
        end = time.time()
        if ended := [name for name, tracer in tracers.items() if tracer.returncode is not None]:
            raise RuntimeError(f"strace has ended before {', '.join(ended)}")
    return {
        name: count(record.read_text().splitlines(), begin, end) / (end - begin)
        for name, record in records.items()
    }


def count(lines: Iterable[str], begin: float, end: float) -> int:
    """Calls that began in this time. A line has process, time and call."""
    return sum(
        begin <= float(line.split()[1]) < end for line in lines if not _NOT_NEW.match(line)
    )
