"""SIGTERM at each system call of a start, a battery test and the way down."""

import pytest

from faults import LINE_WRITE, OUTPUT_REQUEST
from interruptions import TERM, ended, interrupted
from rehearsals import begin_idle, begin_shutdown, begin_test, find, rehearse
from system_calls import chosen, meeting

pytestmark = pytest.mark.kernel


def test_at_each_call_of_a_battery_test(rig):
    """AC power is back in each case; the result file is whole or, between two calls, empty."""
    calls, first = rehearse(rig, begin_test, "Test result: Battery is good")
    saved = find(calls, "result.dat", "O_WRONLY|O_CREAT|O_TRUNC")
    closed = [next(i for i in find(calls, "close(") if i > opened) for opened in saved]
    driven = find(calls, LINE_WRITE)
    assert (len(saved), len(driven)) == (2, 2)
    moments = range(first, len(calls) - 1)
    assert len(moments) > 70
    for i in chosen(moments):
        daemon = begin_test(rig, meeting((calls[i], "signal=TERM")))
        # `testing` is set just before the start time is taken.
        is_testing = saved[0] - 1 <= i <= closed[1]
        levels = [0, 1, 0][: 1 + sum(call <= i for call in driven)] + [0] * is_testing
        found = ended(rig, daemon)
        assert found == (0, interrupted(calls, i, is_testing), "", (levels, [1])), calls[i]
        assert (rig.result_file.read_text() == "") == (i in saved), calls[i]


def test_at_each_call_of_a_start(rig):
    """As long as there is no handler the signal itself ends the process, then with status 0."""
    calls, first = rehearse(rig, begin_idle, "Full server")
    (handled,) = find(calls, "rt_sigaction(SIGTERM")
    driven = find(calls, *OUTPUT_REQUEST)
    moments = range(handled - 3, first)
    assert len(moments) > 100
    for i in chosen(moments):
        daemon = begin_idle(rig, meeting((calls[i], "signal=TERM")))
        found = ended(rig, daemon)
        levels = ([0] if driven[0] <= i else [], [1] if driven[1] <= i else [])
        if i < handled:
            assert found == (-TERM, "", "", levels), calls[i]
        else:
            assert found == (0, interrupted(calls, i, False), "", levels), calls[i]
    # The last of them held all lines and the lock, and the segment was its own.
    rig.full_server("test.hour=-1")


def test_at_each_call_around_the_shutdown_command(rig):
    """Status 0, also while the shell is being started; the battery stays connected till the cut."""
    calls, _ = rehearse(rig, begin_shutdown, "Still alive, force shutdown")
    (execute,) = find(calls, "write(1", "Execute: reboot")
    (alive,) = find(calls, "write(1", "Still alive")
    (cut,) = find(calls, LINE_WRITE)
    moments = [*range(execute, alive - 12), *range(alive - 1, cut + 1)]
    for i in chosen(moments):
        daemon = begin_shutdown(rig, meeting((calls[i], "signal=TERM")))
        levels = ([0], [1, 0] if i >= cut else [1])
        assert ended(rig, daemon) == (0, interrupted(calls, i, False), "", levels), calls[i]
