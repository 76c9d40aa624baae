"""Two weeks with the defaults, second by second."""

import os
import re
from pathlib import Path

from rig import SECOND, SEGMENT

from guest.clock import set_wall, sleep_until
from guest.trace import Trace

DAY = 86_400
FORTNIGHT = 14 * DAY

# 2026-03-01 07:30:00 UTC, and ten o'clock on that day.
HALF_PAST_SEVEN = 1_772_350_200
TEN = HALF_PAST_SEVEN + 9_000


def holdings(process):
    """Memory in kilobytes, descriptors, and the size of the segment."""
    status = Path(f"/proc/{process}/status").read_text()
    resident = int(re.search(r"VmRSS:\s+(\d+) kB", status)[1])
    return resident, sorted(os.listdir(f"/proc/{process}/fd")), SEGMENT.stat().st_size


def test_a_fortnight_lies_between_two_scheduled_tests(rig):
    sleep_until(600 * SECOND)
    set_wall(HALF_PAST_SEVEN + 0.5)
    rig.trace.close()
    daemon = rig.full_server(env={"TZ": "UTC"})
    starts, held = [], []
    for _ in range(2):
        with Trace(writes_only=True) as trace:
            daemon.wait_for_line("Test result: Battery is good", within=FORTNIGHT + DAY)
            (on, high), (off, low) = trace.writes("BAT-T2")
        assert (high, low, round((off - on) / SECOND)) == (1, 0, 600)
        starts.append(rig.saved_times()[0])
        held.append(holdings(daemon.pid))
    assert starts == [TEN, TEN + FORTNIGHT]
    assert held[0] == held[1]
    assert daemon.stdout.count("\n") == 2 + 2 * (600 + 1)
