"""The battery test: what it drives, when it looks, what it says."""

import pytest

from rig import MILLISECOND, NO_RESULT_FILE, PROGRESS, SECOND

from guest.clock import now, set_wall, sleep_until, wait_until

A_TIME = 1_790_000_000  # any date; set half a second past so that no second is in doubt


def ask_for_test(rig, daemon, seconds):
    """Posts a request and returns when the daemon took it."""
    assert rig.client("-n", f"--test.duration={seconds}").status == 0
    return daemon.wait_for_line("Got run test now", within=1.5).time


def progress_lines(daemon):
    return [line for line in daemon.lines if PROGRESS.fullmatch(line.text)]


def battery_reads(rig):
    return [
        event
        for event in rig.trace.events()
        if event.kind == "read" and event.line == "BAT-T1"
    ]


def fall(rig, at):
    """The battery voltage falls at that moment."""
    sleep_until(at)
    rig.board.battery(False)


def test_the_road_of_one_test_from_request_to_result(rig):
    set_wall(A_TIME + 0.5)
    daemon = rig.full_server("test.hour=-1")
    started = daemon.started
    sleep_until(started + 2 * SECOND + SECOND // 2)
    assert rig.client("-n", "--test.duration=30") == ("", NO_RESULT_FILE, 0)
    status = rig.status()
    assert (status["runTestNow"], status["duration"], status["count"]) == (1, 30, 2)

    daemon.wait_for_line("Got run test now", within=1)
    began = daemon.wait_for_line(PROGRESS, within=1).time
    assert rig.trace.writes("BAT-T2")[-1][1] == 1
    sleep_until(began + 10 * SECOND)
    status = rig.status()
    assert (status["testing"], status["runTestNow"], status["duration"]) == (1, 0, 30)
    assert status["batteryBad"] == 0
    assert rig.board.at2.level() == 1
    start, end = rig.saved_times()
    assert (start, end) == (A_TIME + 3, 0)

    daemon.wait_for_line("Test result: Battery is good", within=30)
    assert rig.board.at2.level() == 0
    start, end = rig.saved_times()
    assert start == A_TIME + 3
    assert end - start in (30, 31)
    status = rig.status()
    assert (status["testing"], status["batteryBad"], status["duration"]) == (0, 0, 600)
    assert status["count"] == 3 + 30
    assert daemon.stderr == NO_RESULT_FILE

    times = [int(PROGRESS.fullmatch(line.text)[1]) for line in progress_lines(daemon)]
    assert len(times) == 30
    assert times[0] - began // MILLISECOND in (0, 1)
    # Reading the clock takes the board a little time, so now and then a second is longer.
    assert {later - earlier for earlier, later in zip(times, times[1:])} <= {1000, 1001}
    assert times[-1] - times[0] in (29_000, 29_001)
    assert daemon.stdout.splitlines() == [
        "Start",
        "Full server",
        "Got run test now",
        *(f"MS: {time}" for time in times),
        "Test result: Battery is good",
    ]


def test_samples_come_every_50_milliseconds_10_into_each_step(rig):
    daemon = rig.full_server("test.hour=-1")
    began = ask_for_test(rig, daemon, 2)
    daemon.wait_for_line("Test result: Battery is good", within=3)
    first_second = [
        round((event.time - began) / MILLISECOND)
        for event in battery_reads(rig)
        if event.time - began < SECOND - MILLISECOND
    ]
    # One reading before the watch, one at its start, then twenty steps.
    assert first_second == [0, 0, *range(10, 1000, 50)]
    (_, request), (on, high), (off, low) = rig.trace.writes("BAT-T2")
    assert (request, high, low) == (0, 1, 0)
    assert round((off - on) / MILLISECOND) == 2000


@pytest.mark.parametrize(
    "after_sample, until_connected",
    [(-1, 41), (1, 89), (25, 65)],
    ids=["just before a sample", "just after a sample", "between samples"],
)
def test_a_low_sample_is_acted_on_after_the_rest_of_its_step(rig, after_sample, until_connected):
    daemon = rig.full_server("test.hour=-1")
    began = ask_for_test(rig, daemon, 60)
    sample = began + 2310 * MILLISECOND
    falls = sample + after_sample * MILLISECOND
    fall(rig, falls)
    daemon.wait_for_line("Test result: Battery is bad", within=1)
    connected, level = rig.trace.writes("BAT-T2")[-1]
    assert level == 0
    assert round((connected - falls) / MILLISECOND) == until_connected


def test_a_battery_that_fails_in_the_third_second(rig):
    daemon = rig.full_server("test.hour=-1")
    began = ask_for_test(rig, daemon, 600)
    count = rig.status()["count"]
    fall(rig, began + 2400 * MILLISECOND)
    daemon.wait_for_line("Test result: Battery is bad", within=1)
    assert now() - (began + 2400 * MILLISECOND) < 100 * MILLISECOND
    assert len(progress_lines(daemon)) == 3
    assert rig.board.at2.level() == 0
    status = rig.status()
    assert (status["batteryBad"], status["testing"]) == (1, 0)
    assert status["count"] == count + 3
    start, end = rig.saved_times()
    assert 2 <= end - start <= 3


def test_a_battery_that_is_low_from_the_start_gives_no_progress_line(rig):
    daemon = rig.full_server("test.hour=-1")
    rig.board.battery(False)
    ask_for_test(rig, daemon, 600)
    daemon.wait_for_line("Test result: Battery is bad", within=0.1)
    assert progress_lines(daemon) == []
    (_, _), (on, high), (off, low) = rig.trace.writes("BAT-T2")
    assert (high, low) == (1, 0)
    assert off - on < MILLISECOND
    assert len(battery_reads(rig)) == 1


def test_a_bad_result_stays_until_a_good_test(rig):
    daemon = rig.full_server("test.hour=-1")
    rig.board.battery(False)
    ask_for_test(rig, daemon, 1)
    daemon.wait_for_line("Test result: Battery is bad", within=0.1)
    rig.board.battery(True)
    sleep_until(now() + 3 * SECOND)
    assert rig.status()["batteryBad"] == 1
    ask_for_test(rig, daemon, 1)
    daemon.wait_for_line("Test result: Battery is good", within=2)
    assert rig.status()["batteryBad"] == 0


def test_five_seconds_print_five_lines_and_count_five(rig):
    daemon = rig.full_server("test.hour=-1")
    ask_for_test(rig, daemon, 5)
    count = rig.status()["count"]
    daemon.wait_for_line("Test result: Battery is good", within=6)
    assert len(progress_lines(daemon)) == 5
    assert rig.status()["count"] == count + 5


def test_a_length_of_zero_everywhere_is_a_pulse_without_length(rig):
    """Request and setting both 0."""
    daemon = rig.full_server("test.hour=-1", "test.duration=0")
    ask_for_test(rig, daemon, 0)
    daemon.wait_for_line("Test result: Battery is good", within=0.1)
    assert progress_lines(daemon) == []
    (_, _), (on, high), (off, low) = rig.trace.writes("BAT-T2")
    assert (high, low) == (1, 0)
    assert off - on < MILLISECOND


def test_the_request_s_length_0_stands_for_the_daemon_s_own(rig):
    daemon = rig.full_server("test.hour=-1", "test.duration=4")
    ask_for_test(rig, daemon, 0)
    wait_until(lambda: rig.status()["testing"] == 1, within=1)
    assert rig.status()["duration"] == 4
    daemon.wait_for_line("Test result: Battery is good", within=5)
    assert len(progress_lines(daemon)) == 4
    assert rig.status()["duration"] == 4


def test_the_wall_clock_does_not_matter_during_a_test(rig):
    daemon = rig.full_server("test.hour=-1")
    began = ask_for_test(rig, daemon, 10)
    sleep_until(began + 3 * SECOND + SECOND // 2)
    set_wall(A_TIME - 10_000_000)
    sleep_until(began + 5 * SECOND + SECOND // 2)
    set_wall(A_TIME + 10_000_000)
    result = daemon.wait_for_line("Test result: Battery is good", within=10)
    assert len(progress_lines(daemon)) == 10
    assert round((result.time - began) / MILLISECOND) == 10_000


def test_power_is_not_read_during_a_test(rig):
    daemon = rig.full_server("test.hour=-1")
    began = ask_for_test(rig, daemon, 10)
    sleep_until(began + 2 * SECOND + SECOND // 2)
    rig.board.ac(False)
    sleep_until(began + 9 * SECOND)
    assert rig.status()["missingPower"] == 0
    during = [
        event for event in rig.trace.events() if event.line == "PWR-IN" and event.time > began
    ]
    assert during == []
    daemon.wait_for_line("Test result: Battery is good", within=2)
    wait_until(lambda: rig.status()["missingPower"] == 1, within=1.5)


def test_a_line_that_vanishes_during_a_test_ends_the_daemon(rig):
    daemon = rig.full_server("test.hour=-1")
    began = ask_for_test(rig, daemon, 10)
    sleep_until(began + 2 * SECOND + SECOND // 2)
    rig.board.chip.remove()
    assert daemon.wait_for_exit(within=1) == -6
    assert daemon.stderr.endswith("  what():  error reading GPIO line values: No such device\n")
    assert "Test result" not in daemon.stdout
    assert rig.status()["testing"] == 1


def test_600_seconds(rig):
    daemon = rig.full_server("test.hour=-1")
    ask_for_test(rig, daemon, 600)
    daemon.wait_for_line("Test result: Battery is good", within=601)
    assert len(progress_lines(daemon)) == 600
