"""Who had the processor, by the kernel's record of switches, and who called it, by strace."""

import re
import time
from contextlib import ExitStack
from pathlib import Path
from typing import Iterable, Mapping

from guest.process import Program

EVENTS = ("sched/sched_switch", "sched/sched_process_fork")

_SWITCH = re.compile(
    r".* (?P<time>\d+\.\d{6}): sched_switch: .* prev_pid=(?P<before>\d+) .*"
    r"prev_state=(?P<state>\S+) ==> .*"
)
_FORK = re.compile(r".*: sched_process_fork: .* pid=(?P<parent>\d+) .* child_pid=(?P<child>\d+)")
# Went on, against its will, or for ever; everything else is a sleep.
_NO_SLEEP = re.compile("[RXZ]")

# Where the kernel and the processor have a fast clock these read it without a call.
_CLOCK_READS = "clock_gettime,gettimeofday,time,getcpu"
_STRACE = ["strace", "-f", "-qq", "-ttt", "-e", f"trace=!{_CLOCK_READS}", "-e", "signal=none"]
# A call that was under way when strace came; and the second line of one that was interrupted.
_NOT_NEW = re.compile(r".*(resuming interrupted|resumed>)")
_ATTACH_SECONDS = 2


def accounts(lines: Iterable[str], programs: Mapping[int, str]) -> dict[str, tuple[float, int]]:
    """Seconds on the processor, and sleeps, each of which has a wake-up.

    `programs` has the program that a process belongs to; what that starts belongs to it, too.
    """
    owners = dict(programs)
    result = {program: (0.0, 0) for program in programs.values()}
    begin = 0.0
    for line in lines:
        if fork := _FORK.match(line):
            if (parent := int(fork["parent"])) in owners:
                owners[int(fork["child"])] = owners[parent]
        elif switch := _SWITCH.match(line):
            end, program = float(switch["time"]), owners.get(int(switch["before"]))
            # What ran at the begin of the record has no begin of its own.
            if program is not None and begin > 0:
                seconds, sleeps = result[program]
                sleeps += not _NO_SLEEP.match(switch["state"])
                result[program] = (seconds + end - begin, sleeps)
            begin = end
    return result


def calls_per_second(
    programs: Mapping[str, Iterable[int]], seconds: float, folder: Path
) -> dict[str, float]:
    """Of the processes of each program and what they start, as a real kernel would see them."""
    records = {name: folder / f"calls-{number}" for number, name in enumerate(programs)}
    # Asked to end, one would let go of one process after the other, and wait for ever for one
    # that waits for a child just forked; at the end of the `with` it is killed.
    with ExitStack() as open_now:
        tracers = []
        for name, processes in programs.items():
            attached = ["-p", ",".join(map(str, processes))]
            tracer = Program([*_STRACE, "-o", records[name], *attached])
            tracers.append(open_now.enter_context(tracer))
        time.sleep(_ATTACH_SECONDS)
        begin = time.time()
        time.sleep(seconds)
        end = time.time()
        if ended := [tracer.argv for tracer in tracers if tracer.returncode is not None]:
            raise RuntimeError(f"strace has ended: {ended}")
    return {
        name: count(record.read_text().splitlines(), begin, end) / (end - begin)
        for name, record in records.items()
    }


def count(lines: Iterable[str], begin: float, end: float) -> int:
    """Calls that began in this time. A line has process, time and call."""
    times = (float(line.split()[1]) for line in lines if not _NOT_NEW.match(line))
    return sum(begin <= time < end for time in times)
