"""A daemon killed at any moment of the way down."""

import pytest

from faults import LINE_WRITE
from kills import RELEASED, SIGKILL, assert_next_daemon_guards, left_behind
from rehearsals import LAST_TEST, begin_shutdown, find, rehearse
from rig import SECOND
from system_calls import chosen, meeting

from guest.clock import now, sleep_until
from guest.stand_in import StandIns

pytestmark = pytest.mark.kernel

PRINTED = (
    "Battery empty",
    "Not ready for shutdown after 15 seconds",
    "Execute: reboot",
    "Still alive, force shutdown",
)


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


def test_at_each_call_of_the_way_down(rig, commands):
    calls, first = rehearse(rig, begin_shutdown, "Still alive, force shutdown")
    (empty,) = find(calls, "write(1", "Battery empty")
    (started,) = find(calls, "CLONE_VFORK")
    (awaited,) = find(calls, "wait4(")
    (cut,) = find(calls, LINE_WRITE)
    says = {i: text for text in PRINTED for i in find(calls, "write(1", text[:30])}
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
    # The rehearsal had the command run, too.
    assert len(commands.calls()) == 1 + sum(i > started for i in chosen(moments))


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
    assert printed(daemon) == ([] if power_back else [*PRINTED[:3]])
    assert len(rig.commands.calls()) == (1 if power_back else 2)
