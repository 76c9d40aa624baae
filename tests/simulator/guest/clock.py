"""The clocks of the simulated world."""

from typing import Callable

from simulator import simulator

_SECOND = 10**9


def now() -> int:
    """Nanoseconds on the monotonic clock."""
    return simulator().now


def wall() -> float:
    """Seconds since the Unix epoch by the calendar clock."""
    return simulator().wall / _SECOND


def set_wall(seconds: float) -> None:
    """Sets the calendar clock; the monotonic clock goes on undisturbed."""
    simulator().wall = round(seconds * _SECOND)


def set_wall_ahead(nanoseconds: int) -> None:
    """Sets the calendar clock so far ahead of the monotonic one."""
    simulator().shared.wall = nanoseconds


def sleep_until(monotonic_nanoseconds: int) -> None:
    """What is due at that instant is done, too. Returns at once when that time has passed."""
    if monotonic_nanoseconds >= simulator().now:
        simulator().go(monotonic_nanoseconds)


def wait_until(condition: Callable[[], bool], within: float, step: float = 0.01) -> None:
    """Looks every `step` seconds; raises when not true `within` seconds."""
    end = now() + round(within * _SECOND)
    while not condition():
        if now() >= end:
            raise AssertionError(f"not true within {within} seconds")
        sleep_until(now() + round(step * _SECOND))
