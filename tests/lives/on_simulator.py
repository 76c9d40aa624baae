"""Lives in the simulated world: nothing is charged, and everything is seen to the nanosecond."""

from functools import cache
from itertools import groupby, zip_longest
from typing import Iterator, Optional

from guest.lines import name_of
from guest.process import Program
from guest.record import Record, watch
from guest.seen import FIELDS
from guest.segment import Records
from guest.stand_in import StandIns
from observer import Mismatch, access, difference
from simulator import simulator
from simulated_player import SimulatedPlayer as Player
from world import (
    NO_CHARGES,
    SECOND,
    Access,
    Called,
    Changed,
    Charges,
    Expected,
    Line,
    Saved,
    Synced,
    World,
)

__all__ = ["IS_SIMULATED", "Observer", "Player", "begin", "charges"]
IS_SIMULATED = True

_FIELDS = list(FIELDS)


def charges() -> Charges:
    return NO_CHARGES


def begin(life: dict, uptime: Optional[int]) -> None:
    simulator().now = (life["uptime"] if uptime is None else uptime) * SECOND


class Observer:
    """All that a daemon does, in its order; usable in a `with` statement."""

    def __init__(self, tell, _: StandIns, records: Records, __: list):
        self._tell = tell
        watch(records)
        self._program = None

    def __enter__(self) -> "Observer":
        self._names = cache(name_of)  # As long as there are no other lines.
        self._record = Record("read", "write", "field", "printed", "command", "sync", "saved")
        return self

    def __exit__(self, *_) -> None:
        self._record.close()

    def follow(self, program: Program) -> None:
        self._program = program
        self._begins = {"stdout": 0, "stderr": 0}
        self._rests = {"stdout": "", "stderr": ""}

    def compare(self, world: World) -> None:
        """Everything since the last comparison."""
        expected, seen = world.taken(), list(self._seen())
        if expected != seen:
            _compare(_in_order(expected), _in_order(seen))

    def _seen(self) -> Iterator[Expected]:
        for event in self._record.taken():
            if event.process != self._program.pid:
                continue
            if event.kind in ("read", "write"):
                yield Access(event.time, event.kind, self._names(event.subject), event.value)
            elif event.kind == "field":
                yield Changed(event.time, event.subject, event.value)
            elif event.kind == "printed":
                yield from self._lines(event.time, event.subject, event.value)
            elif event.kind == "command":
                yield Called(event.time, event.value)
            elif event.kind == "saved":
                yield Saved(event.time, event.value)
            else:
                yield Synced(event.time)

    def _lines(self, time: int, stream: str, end: int) -> Iterator[Line]:
        text = self._rests[stream] + self._program.text(stream, self._begins[stream], end)
        self._begins[stream] = end
        *lines, self._rests[stream] = text.split("\n")
        for line in lines:
            self._tell(f"{time / SECOND:15.6f}    {stream}: {line}")
            yield Line(time, stream, (line,))


def _in_order(story: list) -> list:
    """Fields that change between two calls are seen in the order of the records."""
    ordered = []
    for kind, group in groupby(story, key=lambda one: (type(one), one.time)):
        together = list(group)
        if kind[0] is Changed:
            together.sort(key=lambda one: _FIELDS.index(one.field))
        ordered += together
    return ordered


def _compare(expected: list, seen: list) -> None:
    for want, have in zip_longest(expected, seen):
        if want != have and not _is_library_text(want, have):
            subject = difference(_words(want), _words(have))
            if _words(want) == _words(have):
                subject = f"the time of {_words(have)}"
            raise Mismatch(f"{subject}\n  expected: {want}\n  seen:     {have}")


def _is_library_text(want, have) -> bool:
    return isinstance(want, Line) and not want.texts and have is not None and want[:2] == have[:2]


def _words(one) -> Optional[str]:
    if isinstance(one, Line):
        return f"{one.stream}: {one.texts[0]!r}" if one.texts else "a library's text"
    if isinstance(one, Access):
        return access(one)
    if isinstance(one, Called):
        return f"the command {one.name}"
    if isinstance(one, Changed):
        return f"{one.field} as {one.value}"
    if isinstance(one, Saved):
        return f"{one.file} written"
    return one and "a sync"
