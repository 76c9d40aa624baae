"""Holds what was seen against what the model expected."""

from typing import Optional, Sequence

from guest.trace import Event, Trace
from world import TOLERANCE, Access, Called, Line, World


class Mismatch(Exception):
    """The text shows both sides."""


class Recorder(Trace):
    """A trace that hands out each event once, so that a long life fits into memory."""

    def taken(self) -> list[Event]:
        events = self.events()
        self._events.clear()
        return events


def equal(subject: str, expected, seen) -> None:
    if expected != seen:
        if isinstance(expected, dict) and isinstance(seen, dict):
            differ = [name for name in expected if expected[name] != seen.get(name)]
            subject += f": {', '.join(differ)}"
        raise Mismatch(f"{subject}\n  expected: {expected}\n  seen:     {seen}")


def text_equal(subject: str, expected: Sequence, seen: str) -> None:
    """A None among the expected lines stands for one or more in the words of a library."""
    lines = seen.splitlines()
    if None in expected:
        known = [line for line in expected if line is not None]
        if known == lines[: len(known)] and len(lines) > len(known):
            return
    elif list(expected) == lines and seen.endswith("\n") == bool(lines):
        return
    raise Mismatch(f"{subject}\n  expected: {list(expected)}\n  seen:     {lines}")


def compare(world: World, printed: Sequence, accesses: Sequence[Event], calls: Sequence) -> None:
    """Everything since the last comparison; the model's phase follows what was seen."""
    expected = world.taken()
    for stream in ("stdout", "stderr"):
        _lines(
            [one for one in expected if isinstance(one, Line) and one.stream == stream],
            [one for one in printed if one.stream == stream],
            stream,
        )
    last = _accesses([one for one in expected if isinstance(one, Access)], accesses)
    if world.daemon is not None:
        world.daemon.shift(last)
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
            subject = f"{stream}: {_difference(due, have and repr(have.text))}"
            raise Mismatch(f"{subject}\n  expected: {want}\n  seen:     {have}")
        _near(f"the time of {have.text!r}", want.time, have.time)


def _accesses(expected: list, seen: Sequence[Event]) -> int:
    """Returns how far the last one was from where it was expected, in nanoseconds."""
    difference = 0
    for position in range(max(len(expected), len(seen))):
        want = expected[position] if position < len(expected) else None
        have = seen[position] if position < len(seen) else None
        if want is None or have is None or want[1:] != have[1:4]:
            subject = _difference(_access(want), _access(have))
            raise Mismatch(f"{subject}\n  expected: {want}\n  seen:     {have}")
        _near(f"the time of {_access(have)}", want.time, have.time)
        difference = have.time - want.time
    return difference


def _access(one) -> Optional[str]:
    return one and f"a {one.kind} of {one.line} as {one.level}"


def _difference(want: Optional[str], have: Optional[str]) -> str:
    if want is None:
        return f"{have}, which is not due"
    return f"{have} in place of {want}" if have is not None else f"without {want}"


def _near(subject: str, expected: int, seen: int) -> None:
    if abs(expected - seen) > TOLERANCE:
        raise Mismatch(f"{subject}\n  expected: {expected}\n  seen:     {seen}")
