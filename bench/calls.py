"""System calls counted by strace, without those that a real kernel does not see."""

import re
import subprocess
import time
from pathlib import Path
from typing import Iterable, Mapping

# Where the kernel and the processor have a fast clock these read it without a call.
_CLOCK_READS = "clock_gettime,gettimeofday,time,getcpu"
# A call that was under way when strace came; and the second line of one that was interrupted.
_NOT_NEW = re.compile(r".*(resuming interrupted|resumed>)")
_ATTACH_SECONDS = 2


def per_second(
    groups: Mapping[str, Iterable[int]], seconds: float, folder: Path
) -> dict[str, float]:
    """Of each program with all its processes, and with what they start."""
    tracers = {}
    try:
        for name, processes in groups.items():
            record = folder / f"calls-{len(tracers)}"
            argv = ["strace", "-f", "-qq", "-e", f"trace=!{_CLOCK_READS}", "-e", "signal=none"]
            argv += ["-ttt", "-o", str(record)]
            argv += [word for process in processes for word in ("-p", str(process))]
            # It complains of a child that has ended in between.
            tracers[name] = (subprocess.Popen(argv, stderr=subprocess.DEVNULL), record)
        time.sleep(_ATTACH_SECONDS)
        begin = time.time()
        time.sleep(seconds)
        end = time.time()
        for name, (tracer, _) in tracers.items():
            if tracer.poll() is not None:
                raise RuntimeError(f"strace has ended before {name}")
    finally:
        # Asked to end, it would let go of one after the other, and wait for ever for a process
        # that waits for a child just forked.
        for tracer, _ in tracers.values():
            tracer.kill()
        for tracer, _ in tracers.values():
            tracer.wait()
    return {
        name: count(record.read_text().splitlines(), begin, end) / (end - begin)
        for name, (_, record) in tracers.items()
    }


def count(lines: Iterable[str], begin: float, end: float) -> int:
    """Calls that began in this time. A line has process, time and call."""
    return sum(
        begin <= float(line.split()[1]) < end for line in lines if not _NOT_NEW.match(line)
    )
