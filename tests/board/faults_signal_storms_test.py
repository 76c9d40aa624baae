"""Signals while an earlier one is handled: a second one, and hundreds."""

import re
from pathlib import Path

import pytest

from faults import LINE_WRITE
from interruptions import DURING_TEST, INT, INTERRUPTED, TERM, ended
from rehearsals import begin_idle, begin_shutdown, begin_test, find, rehearse
from system_calls import calls_in, meeting, noting

from guest.clock import now, sleep_until, wait_until

pytestmark = pytest.mark.kernel

HIT = "signal=INT"


def interrupted_calls(rig, *events):
    """The calls of a daemon that SIGINT ends in the middle of its test, from the handler on."""
    log = rig.folder / "interrupted"
    daemon = begin_test(rig, meeting(*events, log=log))
    daemon.wait_for_exit(within=5)
    wait_until(lambda: "+++ exited" in log.read_text(), within=1)
    rig.trace.clear()
    calls = calls_in(log)
    (handler,) = find(calls, "write(1", "Interrupted with signal: 2")
    return calls[handler:]


def middle_of_a_test(rig):
    calls, _ = rehearse(rig, begin_test, "Test result: Battery is good")
    return [call for call in calls if call.name == "clock_nanosleep"][10]


def test_the_second_signal_at_each_call_of_the_first_one_s_end(rig):
    """AC power is back in each case, and the status is 0."""
    middle = middle_of_a_test(rig)
    calls = interrupted_calls(rig, (middle, HIT))
    (restored,) = find(calls, LINE_WRITE)
    (unmapped,) = find(calls, "munmap")
    for i, call in enumerate(calls[:-1]):
        daemon = begin_test(rig, meeting((middle, HIT), (call, "signal=TERM")))
        status, text, stderr, levels = ended(rig, daemon)
        # Until the segment is given up the second handler restores AC power once more.
        first = [0] if i >= restored else []
        second = [0] if i < unmapped else []
        assert (status, stderr, levels) == (0, "", ([0, 1, *first, *second], [1])), call
        assert text.endswith(INTERRUPTED.format(15) + (DURING_TEST if i < unmapped else "")), call


def test_the_second_signal_can_hide_that_power_was_not_restored(rig):
    """Once the segment is given up its handler knows of no test: the status is 0 then, not 1."""
    middle = middle_of_a_test(rig)
    (restoring,) = find(calls := interrupted_calls(rig, (middle, HIT)), LINE_WRITE)
    gone = (calls[restoring], "error=ENODEV")
    refused = "error setting GPIO line values: No such device\n"

    calls = interrupted_calls(rig, (middle, HIT), gone)
    reported = find(calls, "write(2")[-1]
    (unmapped,) = find(calls, "munmap")
    assert ended(rig, begin_test(rig, meeting((middle, HIT), gone)))[0] == 1
    for i, call in enumerate(calls[reported:-1], reported):
        daemon = begin_test(rig, meeting((middle, HIT), gone, (call, "signal=TERM")))
        status, text, stderr, levels = ended(rig, daemon)
        # The lines are back by then, as far as the second handler tries.
        again = [0] if i < unmapped else []
        assert (status, stderr, levels) == (0, refused, ([0, 1, *again], [1])), call


@pytest.mark.parametrize("microseconds", [2, 5])
@pytest.mark.parametrize(
    "begin, line, levels",
    [
        (begin_idle, "Start", ([], [])),
        (begin_idle, "Full server", ([0], [1])),
        (begin_test, "MS: N", ([0, 1, 0], [1])),
        (begin_test, "Test result: Battery is good", ([0, 1, 0], [1])),
        (begin_shutdown, "Execute: reboot", ([0], [1])),
    ],
)
def test_a_storm_of_signals(rig, begin, line, levels, microseconds):
    """It ends as by one signal, but for lines that stand there up to three times."""
    # Half a millisecond for each call, so that signals come in between.
    daemon = begin(rig, (*noting(Path("/dev/null")), "--inject=all:delay_enter=500"))
    daemon.wait_for_line(re.compile(line.replace("N", r"\d+")), within=60)
    sent = 0
    while daemon.returncode is None and sent < 10_000:
        daemon.send((INT, TERM)[sent % 2])
        sent += 1
        sleep_until(now() + 1000 * microseconds)
    assert 200 < sent < 10_000
    status, text, stderr, found = ended(rig, daemon)
    assert (status, stderr, found) == (0, "", levels)
    before, stormy = text.split(f"{line}\n", 1)
    assert f"{line}\n" not in before
    during_test = DURING_TEST if line.startswith("MS") else ""
    assert {text: stormy.count(text) for text in stormy.splitlines()} == {
        line: 2,
        "Interrupted with signal: 2": 2,
        **{text: 1 for text in (INTERRUPTED.format(15) + during_test).splitlines()},
    }
