"""A daemon killed at any moment of a battery test."""

import pytest

from faults import LINE_WRITE
from kills import RELEASED, SIGKILL, assert_next_daemon_guards, left_behind
from rehearsals import A_TIME, LAST_TEST, begin_test, find, rehearse, times
from system_calls import chosen, meeting

pytestmark = pytest.mark.kernel


def test_at_each_call_of_a_battery_test(rig):
    """Between the two calls that rewrite the result file it is empty, else it is whole."""
    calls, first = rehearse(rig, begin_test, "Test result: Battery is good")
    saved = find(calls, "result.dat", "O_WRONLY|O_CREAT|O_TRUNC")
    written = find(calls, "write(", "result.start=")
    driven = find(calls, LINE_WRITE)
    assert (len(saved), len(written), len(driven)) == (2, 2, 2)
    contents = (
        [LAST_TEST] * (saved[0] + 1)
        + [""] * (written[0] - saved[0])
        + [times(A_TIME, 1_780_000_600)] * (saved[1] - written[0])
        + [""] * (written[1] - saved[1])
        + [times(A_TIME, A_TIME + 1)] * (len(calls) - written[1])
    )
    moments = range(first, len(calls))
    assert len(moments) > 70
    for i in chosen(moments):
        daemon = begin_test(rig, meeting((calls[i], "signal=KILL")))
        assert daemon.wait_for_exit(within=3) == -SIGKILL, calls[i]
        driven_so_far = sum(call < i for call in driven)
        # From the call that takes the start time to the one that closes the file at the end.
        testing = saved[0] - 1 <= i <= written[1] + 1
        assert left_behind(rig, daemon) == (
            contents[i],
            ([0, 1, 0][: 1 + driven_so_far], [1]),
            RELEASED,
            testing,
            0,
        ), calls[i]
        assert_next_daemon_guards(rig, calls[i])
