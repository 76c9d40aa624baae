"""The month that `month` plays: what is done, and what is right to be told of it."""

from datetime import datetime, timezone
from typing import NamedTuple, Optional

MINUTE, HOUR, DAY = 60, 3600, 86_400
# What the calendar shows then; all other times are seconds since.
BEGIN = int(datetime(2026, 3, 1, tzinfo=timezone.utc).timestamp())
END = 30 * DAY
# As often as Prometheus is to scrape at least.
SCRAPE = 30
SETTINGS = ("test.hour=10", f"test.period={6 * DAY}", f"test.duration={MINUTE}")


class Step(NamedTuple):
    at: int
    what: str
    action: Optional[str]  # of the board's part
    events: list[tuple[int, str]]  # when they happen
    ups: str
    alerts: list[str]  # that fire from then on


def _at(day: int, hour: int, minute: int = 0, second: int = 0) -> int:
    return ((day * 24 + hour) * 60 + minute) * 60 + second


def _test(day: int) -> Step:
    begin = _at(day, 10)
    events = [(begin, "test-begun"), (begin + MINUTE, "test-good")]
    return Step(begin + 2 * MINUTE, "a scheduled test of a good battery", None, events, "OL", [])


def _lost(at: int) -> Step:
    return Step(at, "AC power lost", "lose_power", [(at, "power-lost")], "OB", ["PowerMissing"])


def _back(at: int) -> Step:
    return Step(at, "AC power back", "give_power", [(at, "power-back")], "OL", [])


_LOW = _at(12, 10, 0, 20)

STEPS = [
    _test(0),
    _lost(_at(3, 14)),
    _back(_at(3, 14, 20)),
    _test(6),
    _lost(_at(8, 22, 30)),
    _back(_at(9, 1, 30)),
    Step(_at(9, 15), "the daemon restarted", "restart_daemon", [], "OL", []),
    Step(
        _LOW,
        "a scheduled test of a bad battery",
        "make_low",
        [(_at(12, 10), "test-begun"), (_LOW, "test-bad")],
        "OL RB",
        ["BatteryBad"],
    ),
    Step(
        _at(15, 3),
        "all killed, and started a minute later",
        "restart_all",
        [],
        "OL RB",
        ["BatteryBad"],
    ),
    _test(18),
    _lost(_at(20, 9)),
    _back(_at(20, 9, 30)),
    _test(24),
]
