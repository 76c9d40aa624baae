"""kelvo-pwr-end by itself on the board, outside of any way down: real lines and processes."""

import os
import re
from pathlib import Path

import pytest

from guest.board import wire
from guest.clock import wait_until
from guest.lines import BAT_SW, PWR_IN, remove_chips
from guest.process import Program
from guest.trace import Trace

PROGRAM = os.environ["KELVO_PWR_END"]
NOTE = Path("/run/kelvo-pwr/way-down")
CUT = "AC power is missing: the battery is cut"
# Within which it looks once more, and ends.
SOON = 0.2


class End:
    """A board without AC power, a note, and what the program says and does."""

    def __init__(self, trace):
        self.board = wire(natural_pulls=True)
        self.board.ac(False)
        NOTE.parent.mkdir(exist_ok=True)
        self.leave_note("reboot")
        self._trace = trace
        self._log = os.open("/dev/kmsg", os.O_RDONLY | os.O_NONBLOCK)
        os.lseek(self._log, 0, os.SEEK_END)

    def leave_note(self, command):
        NOTE.write_text(f"command={command}\ngpio.pwr-in=PWR-IN\ngpio.bat-sw=BAT-SW\n")

    def start(self, command="reboot"):
        return Program([PROGRAM, command])

    def said(self):
        """In the kernel's log."""
        records = []
        try:
            while True:
                records.append(os.read(self._log, 8192).decode())
        except BlockingIOError:
            return re.findall(r"^\d+,.*;kelvo-pwr: (.*)$", "".join(records), re.MULTILINE)

    def asked(self, line):
        """What was asked of a line, in its order."""
        return [event for event in self._trace.events() if event.line == line]


@pytest.fixture
def end():
    remove_chips()
    with Trace() as trace:
        yield End(trace)
    NOTE.unlink(missing_ok=True)


@pytest.mark.parametrize("note, command", [(None, "reboot"), ("poweroff", "reboot")])
def test_a_way_down_that_is_not_the_note_s_is_left_alone(end, note, command):
    if note:
        end.leave_note(note)
    else:
        NOTE.unlink()
    with end.start(command) as program:
        assert program.wait_for_exit(within=SOON) == 0
    assert end.asked(PWR_IN) + end.asked(BAT_SW) == []
    assert end.said() == []


def test_the_battery_is_connected_again_on_the_line_that_is_held(end):
    with end.start() as program:
        wait_until(lambda: end.board.bat_sw.level() == 0, within=SOON)
        end.board.ac(True)
        assert program.wait_for_exit(within=SOON) == 0
    # Requested once.
    assert [(event.kind, event.level) for event in end.asked(BAT_SW)] == [
        ("write", 0),
        ("output", None),
        ("write", 1),
    ]
    assert end.said() == [CUT]


def test_a_cut_without_effect_ends_after_half_a_minute(end):
    with end.start() as program:
        wait_until(lambda: end.board.bat_sw.level() == 0, within=SOON)
        program.wait_for_exit(within=31)
    assert program.returncode == 0
    assert end.said() == [CUT, "the cut of the battery has had no effect"]
    assert end.board.bat_sw.holder() is None


def test_a_line_that_somebody_else_holds_is_told(end):
    with end.board.bat_sw.hold(output=1), end.start() as program:
        assert program.wait_for_exit(within=SOON) == 1
    assert end.said() == [CUT, "line 'BAT-SW': Device or resource busy"]


def test_it_waits_for_what_was_started_beside_it(end):
    with Program(["sleep", "5"]) as other, end.start() as program:
        wait_until(lambda: end.asked(PWR_IN), within=5 + SOON)
        end.board.ac(True)
        assert program.wait_for_exit(within=SOON) == 0
    assert end.asked(PWR_IN)[0].time > other.ended
