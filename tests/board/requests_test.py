"""Requests on their way from a client to the daemon's decision."""

import pytest

from rig import NO_RESULT_FILE, SECOND

from guest.clock import now, set_wall, sleep_until

A_TIME = 1_790_000_000


def one_tick():
    """Lets the daemon take what has been posted."""
    sleep_until(now() + 1 * SECOND + SECOND // 10)


def test_run_test_is_served_with_external_scheduling_at_any_hour(rig):
    daemon = rig.full_server(
        "test.external-scheduling=true", "test.hour=-1", "test.init.disable=0", "test.duration=3"
    )
    assert rig.client("-r") == ("", NO_RESULT_FILE, 0)
    assert rig.status()["runTest"] == 1
    daemon.wait_for_line("Test result: Battery is good", within=5)
    assert "Got run test now" not in daemon.stdout
    assert rig.status()["runTest"] == 0


def test_run_test_is_never_served_without_external_scheduling(rig):
    daemon = rig.full_server("test.hour=-1", "test.init.disable=0")
    assert rig.client("-r") == ("", NO_RESULT_FILE, 0)
    sleep_until(now() + 100 * SECOND)
    assert rig.status()["runTest"] == 1
    assert daemon.stdout == "Start\nFull server\n"


@pytest.mark.parametrize(
    "period, served", [(100, True), (101, False)], ids=["exactly", "a second less"]
)
def test_the_daemon_checks_the_period_again(rig, period, served):
    set_wall(A_TIME + 0.5)
    rig.save_times(A_TIME - 100, A_TIME - 90)
    daemon = rig.full_server(
        "test.external-scheduling=true",
        f"test.period={period}",
        "test.init.disable=0",
        "test.duration=2",
    )
    rig.set_fields(runTest=1)
    set_wall(A_TIME + 0.5 - 0.9)  # the next tick comes at the end of this second
    sleep_until(daemon.started + 1 * SECOND + SECOND // 10)
    assert rig.status()["runTest"] == 0
    assert rig.status()["testing"] == served
    assert "Got run test now" not in daemon.stdout


def test_a_run_test_too_soon_after_boot_is_taken_and_dropped(rig):
    assert now() < 65535 * SECOND
    daemon = rig.full_server("test.external-scheduling=true", "test.init.disable=65535")
    rig.set_fields(runTest=1)
    one_tick()
    assert rig.status()["runTest"] == 0
    assert daemon.stdout == "Start\nFull server\n"


@pytest.mark.parametrize("passed, served", [(59, False), (60, True)])
def test_run_test_now_needs_twice_the_requested_length(rig, passed, served):
    set_wall(A_TIME + 0.5)
    rig.save_times(A_TIME - passed, A_TIME)
    daemon = rig.full_server("test.hour=-1")
    rig.set_fields(runTestNow=1, duration=30)
    set_wall(A_TIME + 0.5 - 1)
    daemon.wait_for_line("Got run test now", within=1.1)
    status = rig.status()
    assert (status["runTestNow"], status["testing"]) == (0, served)


def test_a_refused_request_is_not_kept(rig):
    set_wall(A_TIME + 0.5)
    rig.save_times(A_TIME, A_TIME)
    daemon = rig.full_server("test.hour=-1")
    rig.set_fields(runTestNow=1, duration=5)
    sleep_until(now() + 100 * SECOND)
    assert daemon.stdout == "Start\nFull server\nGot run test now\n"
    assert rig.status()["runTestNow"] == 0


def test_only_the_value_1_is_a_request(rig):
    daemon = rig.full_server("test.external-scheduling=true", "test.init.disable=0")
    rig.set_fields(runTest=2, runTestNow=255)
    one_tick()
    status = rig.status()
    assert (status["runTest"], status["runTestNow"]) == (2, 255)
    assert daemon.stdout == "Start\nFull server\n"


def test_the_length_of_a_refused_request_applies_to_the_next_scheduled_test(rig):
    set_wall(A_TIME + 0.5)
    rig.save_times(A_TIME, A_TIME)
    daemon = rig.full_server(
        "test.external-scheduling=true", "test.period=60", "test.init.disable=0", "test.duration=9"
    )
    rig.set_fields(runTestNow=1, duration=40)
    daemon.wait_for_line("Got run test now", within=1.1)
    assert rig.status()["testing"] == 0
    sleep_until(now() + 60 * SECOND)
    rig.set_fields(runTest=1)
    daemon.wait_for_line("Test result: Battery is good", within=42)
    assert daemon.stdout.count("MS: ") == 40
    assert rig.status()["duration"] == 9


def test_run_test_now_beside_run_test_waits_for_the_next_tick_and_is_refused(rig):
    daemon = rig.full_server(
        "test.external-scheduling=true", "test.init.disable=0", "test.duration=3"
    )
    rig.set_fields(runTest=1, runTestNow=1)
    daemon.wait_for_line("Test result: Battery is good", within=5)
    status = rig.status()
    assert (status["runTest"], status["runTestNow"]) == (0, 1)
    assert "Got run test now" not in daemon.stdout
    one_tick()
    assert daemon.stdout.endswith("Test result: Battery is good\nGot run test now\n")
    status = rig.status()
    assert (status["runTestNow"], status["testing"]) == (0, 0)


def test_requests_wait_while_power_is_missing(rig):
    daemon = rig.full_server("test.hour=-1")
    rig.board.ac(False)
    one_tick()
    rig.set_fields(runTestNow=1, duration=1)
    sleep_until(now() + 20 * SECOND)
    assert rig.status()["runTestNow"] == 1
    rig.board.ac(True)
    daemon.wait_for_line("Got run test now", within=1.1)
