"""A daemon killed at any moment of the way down."""

import pytest

from faults import LINE_WRITE
from kills import RELEASED, SIGKILL, assert_next_daemon_guards, left_behind
from moments import chosen, meeting
from rig import SECOND
from roads import LAST_TEST, begin_shutdown, find, rehearse

from guest.clock import now, sleep_until
from guest.stand_in import StandIns

pytestmark = pytest.mark.kernel

# The way down by these settings, with a command that takes three seconds.
PRINTED = {
    0: "Battery empty",
    15: "Not ready for shutdown after 15 seconds",
    20: "Execute: reboot",
    38: "Still alive, force shutdown",
    39: "Battery empty",
}
COMMAND_BEGINS, COMMAND_ENDS, CUT = 20, 23, 38


@pytest.fixture
def commands(rig):
    with StandIns(then="sleep 3") as commands:
        yield commands


def printed(daemon):
    return daemon.stdout.splitlines()[2:]


def assert_command_keeps_the_next_daemon_out(rig, moment):
    """It has inherited the lock; when it is over, the next daemon starts."""
    daemon = rig.daemon()
    assert daemon.wait_for_exit(within=0.1) == 1, moment
    assert (daemon.stdout, daemon.stderr) == ("", "Another instance is running\n"), moment
    sleep_until(now() + 3 * SECOND)


def test_at_a_hundred_moments_of_the_way_down(rig, commands):
    moments = chosen(range(100))
    for moment in moments:
        daemon = begin_shutdown(rig)
        begun = daemon.wait_for_line("Full server", within=0.1).time
        seconds = 0.4 * moment + 0.237
        sleep_until(begun + round(seconds * SECOND))
        daemon.send(SIGKILL)
        assert daemon.wait_for_exit(within=0.5) == -SIGKILL
        assert printed(daemon) == [PRINTED[time] for time in PRINTED if time < seconds], seconds
        switched = [1, 0] if seconds > CUT else [1]
        assert left_behind(rig, daemon) == (LAST_TEST, ([0], switched), RELEASED, 0, 1), seconds
        if COMMAND_BEGINS < seconds < COMMAND_ENDS:
            assert_command_keeps_the_next_daemon_out(rig, seconds)
        assert_next_daemon_guards(rig, seconds)
    after_the_command = sum(0.4 * moment + 0.237 > COMMAND_BEGINS for moment in moments)
    assert len(commands.calls()) == after_the_command


def test_at_each_call_of_the_way_down(rig, commands):
    calls, first = rehearse(rig, begin_shutdown, "Still alive, force shutdown")
    (empty,) = find(calls, "write(1", "Battery empty")
    (started,) = find(calls, "CLONE_VFORK")
    (awaited,) = find(calls, "wait4(")
    (cut,) = find(calls, LINE_WRITE)
    says = {i: text for text in PRINTED.values() for i in find(calls, "write(1", text[:30])}
    assert first < empty < started < awaited < cut and len(says) == 4
    moments = range(first, len(calls))
    assert len(moments) > 50
    for i in chosen(moments):
        daemon = begin_shutdown(rig, meeting((calls[i], "signal=KILL")))
        assert daemon.wait_for_exit(within=40) == -SIGKILL, calls[i]
        assert printed(daemon) == [says[said] for said in sorted(says) if said < i], calls[i]
        switched = [1, 0] if i > cut else [1]
        assert left_behind(rig, daemon) == (
            LAST_TEST,
            ([0], switched),
            RELEASED,
            0,
            1 if i > empty else 0,
        ), calls[i]
        if started < i <= awaited:
            assert_command_keeps_the_next_daemon_out(rig, calls[i])
        assert_next_daemon_guards(rig, calls[i])


@pytest.mark.parametrize("power_back", [False, True])
def test_the_next_daemon_begins_the_way_down_anew_if_power_is_still_missing(rig, power_back):
    daemon = begin_shutdown(rig)
    daemon.wait_for_line("Execute: reboot", within=21)
    sleep_until(now() + 5 * SECOND)
    daemon.send(SIGKILL)
    assert daemon.wait_for_exit(within=0.5) == -SIGKILL
    rig.board.ac(power_back)
    daemon = rig.daemon()
    begun = daemon.wait_for_line("Full server", within=0.1).time
    sleep_until(begun + 30 * SECOND)
    assert rig.status()["batteryEmpty"] == (0 if power_back else 1)
    again = [] if power_back else [PRINTED[0], PRINTED[15], PRINTED[20]]
    assert printed(daemon) == again
    assert len(rig.commands.calls()) == (1 if power_back else 2)
