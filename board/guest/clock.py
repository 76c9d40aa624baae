"""The board's clocks."""

import time
from typing import Callable


def now() -> int:
    """Nanoseconds on the monotonic clock, which starts at 0 when the board does."""
    return time.monotonic_ns()


def wall() -> float:
    """Seconds since the Unix epoch by the board's calendar clock."""
    return time.time()


def set_wall(seconds: float) -> None:
    """Sets the calendar clock; the monotonic clock goes on undisturbed.

    A test for which an exact second matters sets a time half way between two
    seconds: time(2) follows the calendar clock only once per timer tick.
    """
    time.clock_settime(time.CLOCK_REALTIME, seconds)


def set_wall_ahead(nanoseconds: int) -> None:
    """Sets the calendar clock so far ahead of the monotonic one."""
    time.clock_settime_ns(time.CLOCK_REALTIME, time.monotonic_ns() + nanoseconds)


def sleep_until(monotonic_nanoseconds: int) -> None:
    """Returns at once when that time has passed."""
    while (left := monotonic_nanoseconds - now()) > 0:
        time.sleep(left / 1e9)


def wait_until(condition: Callable[[], bool], within: float, step: float = 0.01) -> None:
    """Looks every `step` seconds; raises when not true `within` seconds."""
    end = now() + round(within * 1e9)
    while not condition():
        if now() >= end:
            raise AssertionError(f"not true within {within} seconds")
        time.sleep(step)
