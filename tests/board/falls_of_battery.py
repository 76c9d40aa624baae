"""A battery that falls low during tests, each time at another moment of the second."""

from rig import PROGRESS, SECOND, Rig

from guest.clock import now, set_wall, sleep_until

# Beginning of the hour in which tests start by default, and half a second.
TEN_O_CLOCK = 1_772_359_200.5


def delays(rig: Rig, count: int) -> list[int]:
    """Nanoseconds from each fall to AC power being connected again.

    The falls are spread evenly over the second after the progress line. One test follows
    another; up to 2,000 of them fit into the hour.
    """
    set_wall(TEN_O_CLOCK)
    daemon = rig.full_server("test.period=0", "test.init.disable=0", env={"TZ": "UTC"})
    found = []
    for number in range(count):
        begin = daemon.wait_for_line(PROGRESS, within=2).time
        sleep_until(begin + number * SECOND // count)
        fall = now()
        rig.board.battery(False)
        daemon.wait_for_line("Test result: Battery is bad", within=2)
        back, level = rig.trace.writes("BAT-T2")[-1]
        assert level == 0
        found.append(back - fall)
        rig.board.battery(True)
        rig.trace.clear()
    return found
