"""Who had the processor, by the record that the board's kernel makes of each switch."""

import re
from pathlib import Path
from typing import Iterable, Mapping

_TRACING = Path("/sys/kernel/tracing")
_EVENTS = ("sched/sched_switch", "sched/sched_process_fork")
_BUFFER_KILOBYTES = 16384

_SWITCH = re.compile(
    r".* (?P<time>\d+\.\d{6}): sched_switch: .* prev_pid=(?P<before>\d+) .*"
    r"prev_state=(?P<state>\S+) ==> .* next_pid=(?P<after>\d+) .*"
)
_FORK = re.compile(r".*: sched_process_fork: .* pid=(?P<parent>\d+) .* child_pid=(?P<child>\d+)")
# Went on, against its will, or for ever; everything else is a sleep.
_NO_SLEEP = re.compile("[RXZ]")


class Account:
    """Of a program with all its processes."""

    def __init__(self) -> None:
        self.cpu_seconds = 0.0
        self.sleeps = 0  # each has a wake-up


class Switches:
    """Has the kernel record the switches; in real time, to the microsecond."""

    def __enter__(self) -> "Switches":
        _write("tracing_on", "0")
        _write("trace_clock", "mono")
        _write("options/overwrite", "0")
        _write("buffer_size_kb", str(_BUFFER_KILOBYTES))
        _write("trace", "")
        for event in _EVENTS:
            _write(f"events/{event}/enable", "1")
        _write("tracing_on", "1")
        return self

    def __exit__(self, *_) -> None:
        for event in _EVENTS:
            _write(f"events/{event}/enable", "0")

    def accounts(self, processes: Mapping[int, str]) -> dict[str, Account]:
        """Ends the record. `processes` has the program that each process belongs to."""
        _write("tracing_on", "0")
        lost = re.search(r"dropped events: (\d+)", (_TRACING / "per_cpu/cpu0/stats").read_text())
        if int(lost[1]) > 0:
            raise RuntimeError(f"the trace lost {lost[1]} events")
        with (_TRACING / "trace").open() as lines:
            return accounts(lines, processes)


def accounts(lines: Iterable[str], processes: Mapping[int, str]) -> dict[str, Account]:
    """What a program starts belongs to it."""
    owners = dict(processes)
    result = {program: Account() for program in processes.values()}
    begin = 0.0
    for line in lines:
        if fork := _FORK.match(line):
            if (parent := int(fork["parent"])) in owners:
                owners[int(fork["child"])] = owners[parent]
        elif switch := _SWITCH.match(line):
            end = float(switch["time"])
            account = result.get(owners.get(int(switch["before"])))
            # What ran at the begin of the record has no begin of its own.
            if account is not None and begin > 0:
                account.cpu_seconds += end - begin
                account.sleeps += not _NO_SLEEP.match(switch["state"])
            begin = end
    return result


def _write(file: str, text: str) -> None:
    (_TRACING / file).write_text(text)
