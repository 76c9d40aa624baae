"""Each system call of a program, told and met by strace."""

import os
from collections import Counter
from pathlib import Path
from typing import NamedTuple, Sequence

# For a quick verdict only some of all calls are met.
EVERY_NTH = int(os.environ.get("EVERY_NTH_CALL", "1"))


class Call(NamedTuple):
    name: str
    number: int  # counted from 1 among the calls of this name
    text: str  # as strace writes it


def chosen(calls: Sequence[int]) -> Sequence[int]:
    """Those of the calls that this run is to meet."""
    return calls[::EVERY_NTH]


def noting(log: Path) -> tuple[str, ...]:
    """What to put before a command line so that its calls stand in this file."""
    # As a process of its own, so that signals and status are the program's.
    return ("strace", "--daemonize", "--string-limit=128", "--output", str(log))


def calls_in(log: Path) -> list[Call]:
    """All calls noted so far, oldest first."""
    numbers: Counter = Counter()
    calls = []
    for text in log.read_text().splitlines():
        name, bracket, _ = text.partition("(")
        # The other lines tell of signals and of the end.
        if bracket and name.isidentifier():
            numbers[name] += 1
            calls.append(Call(name, numbers[name], text))
    return calls


def meeting(*events: tuple[Call, str], log: Path = Path("/dev/null")) -> tuple[str, ...]:
    """What to put before the same command line again so that this happens at these calls.

    In strace's words: "signal=KILL" ends the program before the call has had any effect,
    every other signal arrives when the call is done, "delay_enter=1s" holds it up. Calls
    of one name can have one event.
    """
    injected = [f"--inject={call.name}:{what}:when={call.number}" for call, what in events]
    return (*noting(log), *injected)
