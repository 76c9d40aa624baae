"""Two weeks with the defaults, second by second."""

from rig import SECOND

from guest.clock import set_wall, sleep_until
from guest.trace import Trace

DAY = 86_400
FORTNIGHT = 14 * DAY

# 2026-03-01 07:30:00 UTC, and ten o'clock on that day.
HALF_PAST_SEVEN = 1_772_350_200
TEN = HALF_PAST_SEVEN + 9_000


def test_a_fortnight_lies_between_two_scheduled_tests(rig):
    sleep_until(600 * SECOND)
    set_wall(HALF_PAST_SEVEN + 0.5)
    rig.trace.close()
    daemon = rig.full_server(env={"TZ": "UTC"})
    starts = []
    for _ in range(2):
        with Trace(writes_only=True) as trace:
            daemon.wait_for_line("Test result: Battery is good", within=FORTNIGHT + DAY)
            (on, high), (off, low) = trace.writes("BAT-T2")
        assert (high, low, round((off - on) / SECOND)) == (1, 0, 600)
        starts.append(rig.saved_times()[0])
    assert starts == [TEN, TEN + FORTNIGHT]
    assert daemon.stdout.count("\n") == 2 + 2 * (600 + 1)
