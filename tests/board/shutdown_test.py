"""Power lost, battery empty: the way down, second by second."""

import pytest

from rig import LOCK, MILLISECOND, NO_RESULT_FILE, SECOND

from guest.clock import now, sleep_until, wait_until
from guest.stand_in import StandIns

SEQUENCE = (
    "Battery empty",
    "Not ready for shutdown after 15 seconds",
    "Execute: reboot",
    "Still alive, force shutdown",
)


def lose_power(rig, daemon):
    """AC power and battery gone; returns when the daemon says so."""
    rig.board.battery(False)
    rig.board.ac(False)
    return daemon.wait_for_line("Battery empty", within=1.1).time


def seconds(time, begin):
    """Whole seconds between two times that must be so many."""
    passed = round((time - begin) / SECOND)
    assert abs(time - begin - passed * SECOND) < SECOND // 1000
    return passed


def test_the_sequence_with_the_defaults(rig):
    daemon = rig.full_server("test.hour=-1")
    begin = lose_power(rig, daemon)
    count = rig.status()["count"]
    assert rig.status()["batteryEmpty"] == 1

    line = daemon.wait_for_line("Not ready for shutdown after 15 seconds", within=16)
    assert seconds(line.time, begin) == 15
    line = daemon.wait_for_line("Execute: reboot", within=106)
    assert seconds(line.time, begin) == 120
    wait_until(lambda: rig.commands.calls(), within=1)
    assert rig.board.bat_sw.level() == 1
    line = daemon.wait_for_line("Still alive, force shutdown", within=121)
    assert seconds(line.time, begin) == 240
    wait_until(lambda: rig.board.bat_sw.level() == 0, within=0.1)

    (call,) = rig.commands.calls()
    assert (call.name, call.arguments, seconds(call.time, begin)) == ("reboot", [], 120)
    (_, connected), (cut, off) = rig.trace.writes("BAT-SW")
    assert (connected, off, seconds(cut, begin)) == (1, 0, 240)
    assert daemon.stdout.splitlines()[:6] == ["Start", "Full server", *SEQUENCE]
    assert rig.status()["count"] == count + 240


@pytest.mark.parametrize(
    "timeout, until_command",
    [(0, 20), (15, 20), (16, 16), (19, 19), (20, 20), (120, 120), (4294967295, None)],
)
def test_the_timeout(rig, timeout, until_command):
    daemon = rig.full_server("test.hour=-1", f"test.shut.timeout={timeout}")
    rig.trace.close()
    begin = lose_power(rig, daemon)
    if until_command is None:
        sleep_until(now() + 100_000 * SECOND)
        assert "Execute" not in daemon.stdout
    else:
        line = daemon.wait_for_line("Execute: reboot", within=until_command + 1)
        assert seconds(line.time, begin) == until_command


@pytest.mark.parametrize(
    "cutoff, until_cut", [(0, 15), (14, 15), (15, 15), (16, 16), (120, 120), (300, 300)]
)
def test_the_cutoff(rig, cutoff, until_cut):
    daemon = rig.full_server("test.hour=-1", f"test.shut.cutoff={cutoff}", "test.shut.timeout=0")
    lose_power(rig, daemon)
    command = daemon.wait_for_line("Execute: reboot", within=21).time
    line = daemon.wait_for_line("Still alive, force shutdown", within=until_cut + 1)
    assert seconds(line.time, command) == until_cut
    wait_until(lambda: len(rig.trace.writes("BAT-SW")) == 2, within=0.1)
    assert seconds(rig.trace.writes("BAT-SW")[-1][0], command) == until_cut


def test_the_cutoff_counts_from_the_end_of_the_command(rig):
    with StandIns(then="sleep 7") as commands:
        daemon = rig.full_server(
            "test.hour=-1", "test.shut.timeout=0", "test.shut.cutoff=0", "test.shut.cmd=poweroff"
        )
        begin = lose_power(rig, daemon)
        line = daemon.wait_for_line("Still alive, force shutdown", within=60)
        assert seconds(line.time, begin) == 20 + 7 + 15
        (call,) = commands.calls()
        assert (call.name, seconds(call.time, begin)) == ("poweroff", 20)


@pytest.mark.parametrize(
    "then, stderr",
    [("exit 1", ""), pytest.param("kill -9 $$", "Killed\n", marks=pytest.mark.kernel)],
    ids=["fails", "is killed"],
)
def test_a_command_that_fails_changes_nothing(rig, then, stderr):
    with StandIns(then=then):
        daemon = rig.full_server("test.hour=-1", "test.shut.timeout=0", "test.shut.cutoff=0")
        begin = lose_power(rig, daemon)
        line = daemon.wait_for_line("Still alive, force shutdown", within=36)
        assert seconds(line.time, begin) == 35
        assert daemon.stderr == NO_RESULT_FILE + stderr


@pytest.mark.kernel
def test_a_command_that_does_not_exist_changes_nothing(rig):
    daemon = rig.full_server(
        "test.hour=-1", "test.shut.timeout=0", "test.shut.cutoff=0", env={"PATH": "/nowhere"}
    )
    begin = lose_power(rig, daemon)
    line = daemon.wait_for_line("Still alive, force shutdown", within=36)
    assert seconds(line.time, begin) == 35
    assert daemon.stderr == NO_RESULT_FILE + "sh: 1: reboot: not found\n"


def test_power_that_returns_does_not_call_it_off(rig):
    daemon = rig.full_server("test.hour=-1")
    rig.trace.clear()
    begin = lose_power(rig, daemon)
    sleep_until(begin + 3 * SECOND)
    rig.board.ac(True)
    rig.board.battery(True)
    daemon.wait_for_line("Still alive, force shutdown", within=240)
    # The trace rounds its times to microseconds: the read that found the battery empty
    # may seem to come after the line about it.
    first = begin + MILLISECOND
    reads = [
        event.line
        for event in rig.trace.events()
        if event.kind == "read" and first < event.time < begin + 239 * SECOND
    ]
    assert reads == []
    assert rig.status()["batteryEmpty"] == 1


def test_who_survives_the_cut_goes_on_without_the_battery(rig):
    daemon = rig.full_server("test.hour=-1", "test.shut.timeout=0", "test.shut.cutoff=0")
    begin = lose_power(rig, daemon)
    daemon.wait_for_line("Still alive, force shutdown", within=36)
    # Power still missing: the whole sequence again, on the next tick.
    again = daemon.wait_for_line("Battery empty", within=2)
    assert seconds(again.time, begin) == 36
    assert [level for _, level in rig.trace.writes("BAT-SW")] == [1, 0]
    daemon.wait_for_line("Still alive, force shutdown", within=36)
    # Power back: the daemon guards on, yet nothing connects the battery again.
    rig.board.ac(True)
    rig.board.battery(True)
    sleep_until(now() + 100 * SECOND)
    assert [call.name for call in rig.commands.calls()] == ["reboot", "reboot"]
    assert daemon.stdout.splitlines() == ["Start", "Full server", *SEQUENCE, *SEQUENCE]
    assert [level for _, level in rig.trace.writes("BAT-SW")] == [1, 0, 0]
    assert rig.board.bat_sw.level() == 0
    status = rig.status()
    assert (status["missingPower"], status["batteryEmpty"]) == (0, 1)


def test_another_process_can_cut_the_grace_wait_short(rig):
    daemon = rig.full_server("test.hour=-1")
    begin = lose_power(rig, daemon)
    sleep_until(begin + 2 * SECOND + SECOND // 2)
    rig.set_fields(batteryEmpty=0)
    line = daemon.wait_for_line("Execute: reboot", within=120)
    assert seconds(line.time, begin) == 3 + 105
    assert "Not ready" not in daemon.stdout


def test_missing_power_with_a_good_battery_is_ridden_out(rig):
    daemon = rig.full_server("test.hour=-1")
    rig.board.ac(False)
    sleep_until(now() + 3600 * SECOND)
    status = rig.status()
    assert (status["missingPower"], status["batteryEmpty"]) == (1, 0)
    assert daemon.stdout == "Start\nFull server\n"
    rig.board.ac(True)
    wait_until(lambda: rig.status()["missingPower"] == 0, within=1.1)


def test_an_empty_battery_with_power_is_not_looked_at(rig):
    daemon = rig.full_server("test.hour=-1")
    rig.board.battery(False)
    sleep_until(now() + 60 * SECOND)
    assert {event.line for event in rig.trace.events() if event.kind == "read"} == {"PWR-IN"}
    assert rig.status()["batteryEmpty"] == 0
    assert daemon.stdout == "Start\nFull server\n"


def test_a_signal_during_the_cutoff_wait_leaves_the_battery_connected(rig):
    """This is how a system that goes down properly ends the daemon."""
    daemon = rig.full_server("test.hour=-1")
    begin = lose_power(rig, daemon)
    sleep_until(begin + 150 * SECOND)
    daemon.send(15)
    assert daemon.wait_for_exit(within=1) == 0
    assert daemon.stdout.endswith("Execute: reboot\nInterrupted with signal: 15\n")
    assert [level for _, level in rig.trace.writes("BAT-SW")] == [1]


def test_while_the_command_runs_sigint_is_ignored_and_sigterm_ends_the_daemon(rig):
    with StandIns(then="exec sleep 50"):
        daemon = rig.full_server("test.hour=-1", "test.shut.timeout=0")
        begin = lose_power(rig, daemon)
        sleep_until(begin + 30 * SECOND)
        daemon.send(2)
        sleep_until(begin + 40 * SECOND)
        assert daemon.returncode is None
        daemon.send(15)
        assert daemon.wait_for_exit(within=31) == 0
        assert daemon.stdout.endswith("Execute: reboot\nInterrupted with signal: 15\n")


def test_the_command_inherits_the_lock(rig):
    """No second daemon starts as long as the command runs, even if the first is gone."""
    with StandIns(then="exec sleep 50 >/dev/null 2>&1"):
        daemon = rig.full_server("test.hour=-1", "test.shut.timeout=0")
        begin = lose_power(rig, daemon)
        sleep_until(begin + 30 * SECOND)
        daemon.send(9)
        daemon.wait_for_exit(within=1)
        second = rig.daemon()
        assert second.wait_for_exit(within=1) == 1
        assert second.stderr == NO_RESULT_FILE + "Another instance is running\n"
        assert LOCK.exists()
        sleep_until(begin + 71 * SECOND)
        rig.full_server()
