"""The daemon's own schedule: period, hour and the quiet time after boot."""

from datetime import datetime, timezone

import pytest

from rig import SECOND

from guest.clock import now, set_wall, sleep_until, wall

DAY = 86_400


def utc(*when):
    """Half a second into that second."""
    return datetime(*when, tzinfo=timezone.utc).timestamp() + 0.5


@pytest.fixture(autouse=True)
def past_the_quiet_time(rig):
    sleep_until(600 * SECOND)


def test_not_before_the_quiet_time_after_boot_is_over(rig):
    set_wall(utc(2026, 3, 1, 10, 0, 0))
    quiet = now() // SECOND + 20
    daemon = rig.full_server(f"test.init.disable={quiet}", "test.duration=1", env={"TZ": "UTC"})
    result = daemon.wait_for_line("Test result: Battery is good", within=25)
    # One tick may pass before the first whole second of the uptime that counts.
    assert quiet * SECOND <= result.time - SECOND < (quiet + 1) * SECOND


@pytest.mark.parametrize(
    "begin, tests",
    [((9, 59, 57), 1), ((9, 58, 0), 0), ((10, 59, 57), 1), ((11, 0, 0), 0)],
    ids=["from the full hour", "before it", "until its last second", "after it"],
)
def test_only_in_its_hour(rig, begin, tests):
    set_wall(utc(2026, 3, 1, *begin))
    daemon = rig.full_server("test.duration=1", env={"TZ": "UTC"})
    sleep_until(now() + 30 * SECOND)
    assert daemon.stdout.count("Test result") == tests


def test_the_first_tick_of_the_hour_starts_the_test(rig):
    set_wall(utc(2026, 3, 1, 9, 59, 57))
    rig.full_server("test.duration=1", env={"TZ": "UTC"})
    sleep_until(now() + 10 * SECOND)
    assert rig.saved_times()[0] == int(utc(2026, 3, 1, 10, 0, 0))


def test_the_hour_is_local(rig):
    set_wall(utc(2026, 3, 1, 9, 59, 57))
    daemon = rig.full_server("test.hour=19", "test.duration=1", env={"TZ": "Asia/Tokyo"})
    sleep_until(now() + 10 * SECOND)
    assert daemon.stdout.count("Test result") == 1


def test_a_change_of_the_time_zone_is_noticed(rig):
    """The hour is taken from the zone's rules each time, not once at start."""
    set_wall(utc(2026, 3, 29, 0, 59, 57))
    # In Berlin the clock goes from 1:59:59 to 3:00:00 three seconds later.
    daemon = rig.full_server("test.hour=3", "test.duration=1", env={"TZ": "Europe/Berlin"})
    sleep_until(now() + 10 * SECOND)
    assert rig.saved_times()[0] == int(utc(2026, 3, 29, 1, 0, 0))
    assert daemon.stdout.count("Test result") == 1


@pytest.mark.parametrize("hour", [-1, 24])
def test_an_hour_that_no_day_has_never_comes(rig, hour):
    set_wall(utc(2026, 3, 1, 0, 0, 0))
    rig.trace.close()
    daemon = rig.full_server(f"test.hour={hour}", "test.duration=1", env={"TZ": "UTC"})
    sleep_until(now() + DAY * SECOND)
    assert daemon.stdout == "Start\nFull server\n"
    assert rig.client("-n", "--test.duration=1").status == 0
    daemon.wait_for_line("Test result: Battery is good", within=3)


@pytest.mark.parametrize("passed, due", [(3600, True), (3599, False)])
def test_the_period_counts_from_the_last_start(rig, passed, due):
    set_wall(utc(2026, 3, 1, 10, 30, 0))
    begin = int(wall())
    rig.save_times(begin - passed, begin)
    rig.full_server("test.period=3600", "test.duration=1", env={"TZ": "UTC"})
    assert rig.status()["testing"] == due


def test_a_start_in_the_future_counts_as_long_ago(rig):
    set_wall(utc(2026, 3, 1, 10, 30, 0))
    rig.save_times(int(wall()) + 1, 0)
    rig.full_server("test.duration=1", env={"TZ": "UTC"})
    assert rig.status()["testing"] == 1


def test_a_clock_set_back_lets_the_next_test_come_at_once(rig):
    set_wall(utc(2026, 3, 2, 10, 30, 0))
    daemon = rig.full_server("test.duration=1", env={"TZ": "UTC"})
    daemon.wait_for_line("Test result: Battery is good", within=2)
    sleep_until(now() + 10 * SECOND)
    assert daemon.stdout.count("Test result") == 1
    set_wall(utc(2026, 3, 1, 10, 30, 0))
    daemon.wait_for_line("Test result: Battery is good", within=3)


def test_with_external_scheduling_there_is_no_schedule(rig):
    set_wall(utc(2026, 3, 1, 10, 0, 0))
    daemon = rig.full_server(
        "test.external-scheduling=true", "test.duration=1", env={"TZ": "UTC"}
    )
    sleep_until(now() + 3600 * SECOND)
    assert daemon.stdout == "Start\nFull server\n"


def test_run_test_now_beside_a_due_schedule_waits_for_the_next_tick(rig):
    set_wall(utc(2026, 3, 1, 9, 59, 57))
    daemon = rig.full_server("test.duration=20", env={"TZ": "UTC"})
    rig.trace.clear()
    sleep_until(now() + 2 * SECOND + SECOND // 2)
    rig.set_fields(runTestNow=1)
    daemon.wait_for_line("Test result: Battery is good", within=25)
    assert "Got run test now" not in daemon.stdout
    assert rig.status()["runTestNow"] == 1
    sleep_until(now() + 1 * SECOND + SECOND // 10)
    assert daemon.stdout.endswith("Test result: Battery is good\nGot run test now\n")
    status = rig.status()
    assert (status["runTestNow"], status["testing"]) == (0, 0)


def test_no_scheduled_test_while_power_is_missing(rig):
    set_wall(utc(2026, 3, 1, 10, 0, 0))
    rig.board.ac(False)
    daemon = rig.full_server("test.duration=1", env={"TZ": "UTC"})
    sleep_until(now() + 60 * SECOND)
    assert daemon.stdout == "Start\nFull server\n"
    rig.board.ac(True)
    daemon.wait_for_line("Test result: Battery is good", within=3)
