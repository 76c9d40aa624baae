"""Who had the processor, by the record that the kernel makes of each switch."""

import re
from typing import Iterable, Mapping

EVENTS = ("sched/sched_switch", "sched/sched_process_fork")

_SWITCH = re.compile(
    r".* (?P<time>\d+\.\d{6}): sched_switch: .* prev_pid=(?P<before>\d+) .*"
    r"prev_state=(?P<state>\S+) ==> .* next_pid=(?P<after>\d+) .*"
)
_FORK = re.compile(r".*: sched_process_fork: .* pid=(?P<parent>\d+) .* child_pid=(?P<child>\d+)")
# Went on, against its will, or for ever; everything else is a sleep.
_NO_SLEEP = re.compile("[RXZ]")


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
