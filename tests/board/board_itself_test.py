"""The board's own instruments, before anything is measured with them."""

import errno
import os
import re
import shutil
import signal
import socket
import time
from pathlib import Path

import pytest

from guest import clock
from guest.board import found, wire
from guest.lines import chips, make_chip, remove_chips
from guest.process import Program, run
from guest.stand_in import StandIns
from guest.trace import Trace

pytestmark = pytest.mark.kernel

SECOND = 10**9
# A look at the clock costs 256 nanoseconds; the trace rounds to microseconds.
EXACT = 5000

# Version 2 of libgpiod's tools is called otherwise, and has no gpiofind.
TOOLS_1 = shutil.which("gpiofind") is not None


def gpioget(line):
    """The command line that prints the level of this line."""
    chip = [line.device] if TOOLS_1 else ["--numeric", "--chip", line.device]
    return ["gpioget", *chip, str(line.offset)]


def gpiofind(name):
    """The device and the offset that libgpiod's own tool finds for this name."""
    device, offset = run(["gpiofind" if TOOLS_1 else "gpioinfo", name]).stdout.split()[:2]
    return f"/dev/{device}", int(offset)


@pytest.fixture
def board():
    """A freshly wired board; the one that was there is gone."""
    remove_chips()
    yield wire()
    remove_chips()


def test_the_board_is_wired_before_the_command_starts():
    board = found()
    assert [line.name for line in board.chip.lines] == ["PWR-IN", "BAT-T1", "BAT-T2", "BAT-SW"]


def test_a_pull_is_what_a_program_reads(board):
    for level in (1, 0):
        board.pwr_in.pull(level)
        assert board.pwr_in.level() == level
        assert run(gpioget(board.pwr_in)).stdout == f"{level}\n"


def test_supply_and_battery_have_their_levels(board):
    levels = []
    for ac, good in ((True, True), (False, True), (False, False), (True, False)):
        board.ac(ac)
        board.battery(good)
        levels.append((board.pwr_in.level(), board.at1.level()))
    assert levels == [(0, 1), (1, 1), (1, 0), (0, 0)]


@pytest.mark.parametrize("natural, levels", [(False, (1, 0)), (True, (0, 1))])
def test_free_outputs_stand_at_their_pulls(natural, levels):
    remove_chips()
    board = wire(natural_pulls=natural)
    assert (board.at2.level(), board.bat_sw.level()) == levels


def test_a_released_output_returns_to_its_pull(board):
    with board.at2.hold(output=0):
        assert board.at2.level() == 0
    assert board.at2.level() == 1


def test_a_held_line_shows_its_holder_and_refuses_others(board):
    assert board.bat_sw.holder() is None
    with board.bat_sw.hold(consumer="a test", output=1):
        info = board.bat_sw.info()
        assert (info.used, info.holder, info.direction) == (True, "a test", "output")
        with pytest.raises(OSError) as refused:
            board.bat_sw.hold()
        assert refused.value.errno == errno.EBUSY
        assert run(gpioget(board.bat_sw)).status != 0
    assert not board.bat_sw.info().used


def test_chips_have_any_names_and_come_in_order():
    remove_chips()
    with make_chip(["A", None, "A"], {"A": 1}) as first, make_chip(["B"]) as second:
        assert [chip.device for chip in chips()] == [first.device, second.device]
        assert [line.name for line in first.lines] == ["A", None, "A"]
        assert [line.level() for line in first.lines] == [1, 0, 1]
        assert gpiofind("B") == (second.device, 0)
    assert chips() == []


def test_the_trace_has_each_write_at_its_time(board):
    with board.at2.hold(output=0) as held, Trace() as trace:
        start = clock.now()
        for at_seconds, level in ((1, 1), (4, 0)):
            clock.sleep_until(start + at_seconds * SECOND)
            held.write(level)
        writes = trace.writes("BAT-T2")
    assert [level for _, level in writes] == [1, 0]
    assert [time - start for time, _ in writes] == pytest.approx([SECOND, 4 * SECOND], abs=EXACT)


def test_the_trace_has_a_pulse_that_takes_no_time(board):
    with board.at2.hold(output=0) as held, Trace() as trace:
        held.write(1)
        held.write(0)
        writes = trace.writes("BAT-T2")
    assert [level for _, level in writes] == [1, 0]
    assert writes[1][0] - writes[0][0] < EXACT


def test_the_trace_has_what_another_program_does(board):
    board.pwr_in.pull(1)
    with Trace() as trace, Program(gpioget(board.pwr_in)) as program:
        program.wait_for_exit(within=1)
        events = [(event.kind, event.line, event.level, event.process) for event in trace.events()]
    assert events == [
        ("input", "PWR-IN", None, program.pid),
        ("read", "PWR-IN", 1, program.pid),
    ]


def test_the_trace_has_the_level_given_with_the_request(board):
    with Trace() as trace, board.bat_sw.hold(output=1):
        events = [(event.kind, event.line, event.level) for event in trace.events()]
    assert events == [("write", "BAT-SW", 1), ("output", "BAT-SW", None)]


def test_a_trace_of_writes_leaves_out_reads(board):
    with board.at2.hold(output=0) as held, Trace(writes_only=True) as trace:
        held.read()
        held.write(1)
        assert [event.kind for event in trace.events()] == ["write"]
    with board.at2.hold(output=0) as held, Trace() as trace:
        held.read()
        assert [event.kind for event in trace.events()] == ["read"]


def test_a_trace_keeps_what_it_has_read_until_cleared(board):
    with board.at2.hold(output=0) as held, Trace() as trace:
        held.write(1)
        assert len(trace.events()) == 1
        held.write(0)
        assert [event.level for event in trace.events()] == [1, 0]
        trace.clear()
        assert trace.events() == []


def test_a_trace_that_overflows_says_so(board):
    with board.at2.hold(output=0) as held, Trace(buffer_kilobytes=16) as trace:
        for _ in range(5000):
            held.write(1)
        with pytest.raises(RuntimeError, match="lost"):
            trace.events()


def test_a_sleep_is_exact():
    start = clock.now()
    time.sleep(1)
    assert clock.now() - start == pytest.approx(SECOND, abs=EXACT)


def test_a_day_is_slept_away():
    start = clock.now()
    clock.sleep_until(start + 86400 * SECOND)
    assert clock.now() - start == pytest.approx(86400 * SECOND, abs=EXACT)


def test_the_calendar_can_be_set_and_time_goes_on():
    before, monotonic = clock.wall(), clock.now()
    clock.set_wall(1_000_000_000.5)
    try:
        time.sleep(2)
        assert clock.wall() == pytest.approx(1_000_000_002.5, abs=0.001)
        assert clock.now() - monotonic == pytest.approx(2 * SECOND, abs=100 * EXACT)
    finally:
        clock.set_wall(before + (clock.now() - monotonic) / SECOND)


def test_waiting_for_what_never_comes_ends():
    start = clock.now()
    with pytest.raises(AssertionError, match="not true within 3 seconds"):
        clock.wait_until(lambda: False, within=3)
    assert clock.now() - start == pytest.approx(3 * SECOND, abs=0.02 * SECOND)


def test_printed_lines_have_the_time_of_their_arrival():
    with Program(["sh", "-c", "sleep 2; echo one; sleep 3; echo two >&2; sleep 1"]) as program:
        one = program.wait_for_line("one", within=10)
        two = program.wait_for_line("two", within=10, stream="stderr")
        assert program.wait_for_exit(within=10) == 0
    assert two.time - one.time == pytest.approx(3 * SECOND, abs=100 * EXACT)
    assert program.ended - two.time == pytest.approx(SECOND, abs=100 * EXACT)
    assert (program.stdout, program.stderr) == ("one\n", "two\n")


def test_a_line_that_does_not_come_shows_what_came():
    with Program(["sh", "-c", "echo something; sleep 100"]) as program:
        with pytest.raises(AssertionError, match="(?s)2 seconds.*still running.*stdout: something"):
            program.wait_for_line("else", within=2)
    with Program(["sh", "-c", "echo something; exit 4"]) as program:
        with pytest.raises(AssertionError, match="(?s)ended without.*status 4.*stdout: something"):
            program.wait_for_line("else", within=2)


def test_each_wait_goes_on_behind_the_line_found_before():
    with Program(["sh", "-c", "echo a; sleep 1; echo a"]) as program:
        first, second = (program.wait_for_line("a", within=5) for _ in range(2))
    assert second.time - first.time == pytest.approx(SECOND, abs=100 * EXACT)


def test_a_signal_and_what_it_does():
    with Program(["sleep", "1000"]) as program:
        program.send(signal.SIGTERM)
        assert program.wait_for_exit(within=1) == -signal.SIGTERM


def test_a_program_is_killed_with_its_children():
    with Program(["sh", "-c", "sleep 12345 & echo $!; wait"]) as program:
        program.wait_for_line(re.compile(r"\d+"), within=5)
        child = Path("/proc", program.stdout.strip())
        assert child.exists()
    clock.wait_until(lambda: not child.exists(), within=1)


def test_the_status_does_not_wait_for_those_left_behind():
    with Program(["sh", "-c", "sleep 1000 & echo done"]) as program:
        assert program.wait_for_exit(within=5) == 0
        assert program.stdout == "done\n"


def test_stand_ins_come_first_and_note_their_calls():
    real = shutil.which("reboot")
    with StandIns(then="sleep 5; exit 3") as stand_ins:
        start = clock.now()
        result = run(["sh", "-c", "reboot --now"])
        assert result.status == 3
        assert clock.now() - start == pytest.approx(5 * SECOND, abs=100 * EXACT)
        (call,) = stand_ins.calls()
        assert (call.name, call.arguments) == ("reboot", ["--now"])
        assert call.time - start < 100 * EXACT
        assert shutil.which("poweroff") != shutil.which("reboot") != real
    assert shutil.which("reboot") == real


@pytest.mark.parametrize("folder", [Path(__file__).parent, Path("/"), Path("/tmp"), Path("/etc")])
def test_the_host_cannot_be_written(folder):
    with pytest.raises(OSError) as refused:
        (folder / "written-on-the-board").touch()
    assert refused.value.errno == errno.EROFS


@pytest.mark.parametrize("folder", [os.environ["TMPDIR"], os.environ["HOME"], "/run", "/dev/shm"])
def test_the_boards_own_folders_can_be_written(folder):
    file = Path(folder, "written-on-the-board")
    file.touch()
    file.unlink()


@pytest.mark.parametrize(
    "family, address", [(socket.AF_INET, ("127.0.0.1", 80)), (socket.AF_UNIX, "/run/a-socket")]
)
def test_programs_meet_on_a_socket(family, address):
    with socket.socket(family) as server, socket.socket(family) as client:
        server.bind(address)
        server.listen()
        client.connect(address)
        client.sendall(b"from one to the other")
        assert server.accept()[0].recv(100) == b"from one to the other"
