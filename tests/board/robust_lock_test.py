"""The library's own lock in the segment, as newer versions make it: robust.

Daemon and lock are of this build; the other one's library makes a lock that is not, and does not
know how to go on with one that is.
"""

import os
import signal

import pytest

from rig import NO_RESULT_FILE, PROGRAM, SECOND, SEGMENT_TOOL
from status import ZERO_STATUS

from guest.clock import now, sleep_until
from guest.process import Program, run

OTHER = os.environ["OTHER_KELVO_PWR"]
LOST = NO_RESULT_FILE + "boost::interprocess::lock_exception\n"


def leave_lock_held():
    assert run([SEGMENT_TOOL, "die-with-lock"]).status == -signal.SIGKILL


def assert_waits(rig, program):
    with Program([program, "-c", str(rig.conf), "--run-test-now"]) as client:
        sleep_until(now() + 1000 * SECOND)
        assert (client.returncode, client.stderr) == (None, NO_RESULT_FILE)


def test_clients_that_ask_end_once_the_holder_was_killed(rig):
    daemon = rig.full_server("test.hour=-1")
    leave_lock_held()
    for word in ("--run-test", "--run-test-now") * 2:
        assert rig.client(word) == ("", LOST, 1)

    # The daemon and those who only look need no lock.
    sleep_until(daemon.started + 10 * SECOND + SECOND // 2)
    assert rig.status() == {**ZERO_STATUS, "count": 10}
    assert daemon.stdout == "Start\nFull server\n"

    daemon.end(within=1)
    rig.full_server("test.hour=-1")
    assert rig.client("--run-test-now") == ("", NO_RESULT_FILE, 0)


def test_an_older_client_ends_too_and_keeps_the_lock(rig):
    """It has become the holder, and has unmapped the segment before its end could be noticed."""
    rig.client_program = OTHER
    rig.full_server("test.hour=-1")
    leave_lock_held()
    assert rig.client("--run-test-now") == ("", LOST, 1)
    for program in (OTHER, PROGRAM):
        assert_waits(rig, program)
    assert rig.status()["runTestNow"] == 0


@pytest.mark.parametrize("program", [PROGRAM, OTHER], ids=["this_client", "older_client"])
def test_in_the_segment_of_an_older_daemon_they_wait(rig, program):
    rig.daemon_program = OTHER
    rig.full_server("test.hour=-1")
    leave_lock_held()
    assert_waits(rig, program)
