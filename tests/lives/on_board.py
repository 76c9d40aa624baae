"""Lives on the virtual board: what its time charges, and what is seen of a daemon there."""

import os
from contextlib import ExitStack
from functools import cache
from typing import Optional, Sequence

from guest.clock import now, sleep_until
from guest.process import Program
from guest.seen import Event
from guest.segment import Records
from guest.stand_in import StandIns
from guest.trace import Trace
from observer import Mismatch, access, difference, equal
from player import Player
from world import SECOND, Access, Called, Charges, Line, World

__all__ = ["IS_SIMULATED", "Observer", "Player", "begin", "charges"]
IS_SIMULATED = False

_TOLERANCE = 100_000


@cache
def charges() -> Charges:
    """A look at the clock is documented; so is that computing is free. The trace looks at the
    clock for each access that it records. The rest is measured: what a short sleep adds, a
    printed line, whose reader lets two microseconds pass, and a command, which differs from
    kernel to kernel.
    """
    with StandIns(then="sleep 0; exit 0") as stand_ins:
        for _ in range(2):  # The first takes longer than all others.
            begin = now()
            os.system("reboot")
            end = now()
        call = stand_ins.calls()[-1]
    return Charges(
        clock_read=256,
        access=256,
        short_sleep=128,
        printed_line=11 * 256,
        before_note=call.time - begin,
        command=end - begin,
        tolerance=_TOLERANCE,
    )


def begin(_: dict, uptime: Optional[int]) -> None:
    if uptime is not None:
        sleep_until(uptime * SECOND)


class Observer:
    """What a daemon does, compared stream by stream; usable in a `with` statement."""

    def __init__(self, tell, commands: StandIns, _: Records, story: list):
        self._tell = tell
        self._commands = commands
        self._story = story
        self._program = None
        self._seen_lines = self._seen_calls = 0
        self._open = ExitStack()

    def __enter__(self) -> "Observer":
        self._trace = self._open.enter_context(Trace(buffer_kilobytes=4096))
        return self

    def __exit__(self, *_) -> None:
        self._open.close()

    def follow(self, program: Program) -> None:
        self._program, self._seen_lines = program, 0

    def compare(self, world: World) -> None:
        """Everything since the last comparison; the model's phase follows what was seen."""
        printed = self._program.lines[self._seen_lines :]
        self._seen_lines += len(printed)
        for line in printed:
            self._tell(f"{line.time / SECOND:15.6f}    {line.stream}: {line.text}")
        self._story.extend((line.time, line.stream, line.text) for line in printed)
        expected = world.taken()
        for stream in ("stdout", "stderr"):
            _lines(
                [one for one in expected if isinstance(one, Line) and one.stream == stream],
                [one for one in printed if one.stream == stream],
                stream,
            )
        accesses = [
            event
            for event in self._trace.taken()
            if event.process == self._program.pid and event.kind in ("read", "write")
        ]
        self._story.extend(event[:4] for event in accesses)
        last = _accesses([one for one in expected if isinstance(one, Access)], accesses)
        if world.daemon is not None:
            world.daemon.shift(last)
        calls = self._commands.calls()[self._seen_calls :]
        self._seen_calls += len(calls)
        self._story.extend((call.time, "called", call.name) for call in calls)
        called = [one for one in expected if isinstance(one, Called)]
        equal("commands run", [one.name for one in called], [call.name for call in calls])
        for one, call in zip(called, calls):
            equal("arguments of a command", [], call.arguments)
            _near(f"the time of {one.name}", one.time, call.time)


def _lines(expected: list, seen: list, stream: str) -> None:
    for position in range(max(len(expected), len(seen))):
        want = expected[position] if position < len(expected) else None
        have = seen[position] if position < len(seen) else None
        if want is None or have is None or (want.texts and have.text not in want.texts):
            due = want and (" or ".join(map(repr, want.texts)) or "a library's text")
            subject = f"{stream}: {difference(due, have and repr(have.text))}"
            raise Mismatch(f"{subject}\n  expected: {want}\n  seen:     {have}")
        _near(f"the time of {have.text!r}", want.time, have.time)


def _accesses(expected: list, seen: Sequence[Event]) -> int:
    """Returns how far the last one was from where it was expected, in nanoseconds."""
    last = 0
    for position in range(max(len(expected), len(seen))):
        want = expected[position] if position < len(expected) else None
        have = seen[position] if position < len(seen) else None
        if want is None or have is None or want[1:] != have[1:4]:
            subject = difference(access(want), access(have))
            raise Mismatch(f"{subject}\n  expected: {want}\n  seen:     {have}")
        _near(f"the time of {access(have)}", want.time, have.time)
        last = have.time - want.time
    return last


def _near(subject: str, expected: int, seen: int) -> None:
    if abs(expected - seen) > _TOLERANCE:
        raise Mismatch(f"{subject}\n  expected: {expected}\n  seen:     {seen}")
