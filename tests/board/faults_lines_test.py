"""Chips that go away under a running daemon, lines that another process takes first."""

import re
from pathlib import Path

import pytest

from faults import LINE_REQUEST
from rig import NO_RESULT_FILE, SECOND
from system_calls import calls_in, meeting, noting

from guest.board import found
from guest.clock import now, sleep_until
from guest.lines import AT1, AT2, BAT_SW, LINES, PWR_IN, Chip, chips, make_chip, remove_chips

SIGABRT = 6

DRIVER = Path("/sys/bus/platform/drivers/gpio-sim")

BUSY = "error requesting GPIO lines: Device or resource busy\n"


def unhandled(action):
    """What the runtime says of the line library's exception."""
    return NO_RESULT_FILE + (
        "terminate called after throwing an instance of 'std::system_error'\n"
        f"  what():  error {action} GPIO line values: No such device\n"
    )


def unbind(_):
    """Takes the only chip's driver away, as when its module is unloaded."""
    (device,) = DRIVER.glob("gpio-sim.*")
    (DRIVER / "unbind").write_text(device.name)


def bind():
    for device in Path("/sys/devices/platform").glob("gpio-sim.*"):
        if not (DRIVER / device.name).exists():
            (DRIVER / "bind").write_text(device.name)


TAKE_AWAY = {"removed": Chip.remove, "unbound": unbind}


@pytest.fixture(autouse=True)
def bound_again():
    """A chip without a driver cannot be found, nor removed."""
    yield
    bind()


@pytest.fixture(params=["removed", pytest.param("unbound", marks=pytest.mark.kernel)])
def take_away(request):
    return TAKE_AWAY[request.param]


def assert_aborted(daemon, within, stdout, action):
    assert daemon.wait_for_exit(within) == -SIGABRT
    assert re.sub(r"MS: \d+", "MS: N", daemon.stdout) == "Start\n" + stdout
    assert daemon.stderr == unhandled(action)


def lose_power(rig):
    rig.board.battery(False)
    rig.board.ac(False)


def begin_test(rig, daemon):
    rig.client("-n", "--test.duration=10")
    daemon.wait_for_line("Got run test now", within=1.1)


def writes(rig):
    return {name: [level for _, level in rig.trace.writes(name)] for name in (AT2, BAT_SW)}


# All four lines at once.


def test_idle_on_ac_power(rig, take_away):
    daemon = rig.full_server("test.hour=-1")
    sleep_until(daemon.started + 3 * SECOND + SECOND // 2)
    assert writes(rig) == {AT2: [0], BAT_SW: [1]}
    take_away(rig.board.chip)
    assert_aborted(daemon, 0.6, "Full server\n", "reading")
    assert rig.status()["count"] == 4


def test_idle_on_the_battery(rig, take_away):
    daemon = rig.full_server("test.hour=-1")
    rig.board.ac(False)
    sleep_until(daemon.started + 3 * SECOND + SECOND // 2)
    assert writes(rig) == {AT2: [0], BAT_SW: [1]}
    take_away(rig.board.chip)
    assert_aborted(daemon, 0.6, "Full server\n", "reading")
    status = rig.status()
    assert (status["count"], status["missingPower"], status["batteryEmpty"]) == (4, 1, 0)
    assert rig.commands.calls() == []


def test_the_minimal_server(rig, take_away):
    daemon = rig.minimal_server()
    sleep_until(daemon.started + 3 * SECOND + SECOND // 2)
    take_away(rig.board.chip)
    assert_aborted(daemon, 0.6, "Minimal server\n", "reading")
    status = rig.status()
    assert (status["count"], status["missingPower"], status["testing"]) == (4, 0, 255)


def test_in_the_middle_of_a_test(rig, take_away):
    """AC power stays disconnected as far as the daemon goes: it drives nothing any more."""
    daemon = rig.full_server("test.hour=-1")
    begin_test(rig, daemon)
    sleep_until(now() + 2 * SECOND + SECOND // 2)
    assert writes(rig) == {AT2: [0, 1], BAT_SW: [1]}
    take_away(rig.board.chip)
    assert_aborted(daemon, 0.05, "Full server\nGot run test now\n" + 3 * "MS: N\n", "reading")
    # The status goes on saying so, and the file that a test was cut short.
    status = rig.status()
    assert (status["testing"], status["batteryBad"]) == (1, 0)
    start, end = rig.saved_times()
    assert start > end == 0


@pytest.mark.parametrize("after", [5, 18, 30], ids=["grace wait", "timeout", "cut-off wait"])
def test_on_the_way_down(rig, take_away, after):
    """No line is looked at on the way: the command still runs, the cut ends the daemon."""
    daemon = rig.full_server("test.hour=-1", "test.shut.timeout=0", "test.shut.cutoff=0")
    lose_power(rig)
    begin = daemon.wait_for_line("Battery empty", within=1.1).time
    sleep_until(begin + after * SECOND + SECOND // 2)
    take_away(rig.board.chip)
    assert_aborted(
        daemon,
        36 - after,
        "Full server\n"
        "Battery empty\n"
        "Not ready for shutdown after 15 seconds\n"
        "Execute: reboot\n"
        "Still alive, force shutdown\n",
        "setting",
    )
    assert round((daemon.ended - begin) / SECOND) == 35
    assert [call.name for call in rig.commands.calls()] == ["reboot"]


@pytest.mark.kernel
def test_the_next_daemon_serves_a_chip_that_is_back(rig):
    daemon = rig.full_server("test.hour=-1")
    begin_test(rig, daemon)
    unbind(rig.board.chip)
    assert daemon.wait_for_exit(within=0.1) == -SIGABRT
    daemon = rig.daemon()
    assert daemon.wait_for_exit(within=0.1) == 1
    assert (daemon.stdout, daemon.stderr) == ("Start\n", f"Failed to get line '{PWR_IN}'\n")
    bind()
    rig.board = found()
    rig.full_server("test.hour=-1")
    assert (rig.board.at2.level(), rig.board.bat_sw.level()) == (0, 1)


@pytest.mark.kernel
def test_a_chip_that_is_back_between_two_looks_is_lost_all_the_same(rig):
    daemon = rig.full_server("test.hour=-1")
    sleep_until(daemon.started + 3 * SECOND + SECOND // 2)
    unbind(rig.board.chip)
    bind()
    assert_aborted(daemon, 0.6, "Full server\n", "reading")


# One of the lines alone, on a chip of its own.


@pytest.fixture
def lone(rig):
    """Moves that line to a chip of its own."""

    def move(name):
        remove_chips()
        pulls = {AT1: 1, AT2: 1}
        make_chip([line for line in LINES if line != name], pulls)
        return make_chip([name], pulls)

    return move


def pull(name, level):
    """Whichever chip the line is on."""
    (line,) = (line for chip in chips() for line in chip.lines if line.name == name)
    line.pull(level)


def test_the_battery_input_alone_is_missed_when_ac_power_fails(rig, lone):
    """The daemon that is to shut the system down ends at that moment instead."""
    chip = lone(AT1)
    daemon = rig.full_server("test.hour=-1")
    chip.remove()
    sleep_until(daemon.started + 60 * SECOND)
    assert daemon.stdout == "Start\nFull server\n"
    pull(PWR_IN, 1)
    assert_aborted(daemon, 1.1, "Full server\n", "reading")
    status = rig.status()
    assert (status["missingPower"], status["batteryEmpty"]) == (1, 0)
    assert rig.commands.calls() == []


@pytest.mark.parametrize("name, action", [(AT1, "reading"), (AT2, "setting")])
def test_a_battery_line_alone_is_missed_by_the_next_test(rig, lone, name, action):
    chip = lone(name)
    daemon = rig.full_server("test.hour=-1")
    chip.remove()
    begin_test(rig, daemon)
    assert_aborted(daemon, 0.1, "Full server\nGot run test now\n", action)
    assert rig.status()["testing"] == 1
    start, end = rig.saved_times()
    assert start > end == 0
    # With BAT-T1 gone, BAT-T2 had been driven to 1 and was not driven back.
    if name == AT1:
        assert [level for _, level in rig.trace.writes(AT2)] == [0, 1]


def test_the_battery_switch_alone_is_missed_by_the_cut(rig, lone):
    chip = lone(BAT_SW)
    daemon = rig.full_server("test.hour=-1", "test.shut.timeout=0", "test.shut.cutoff=0")
    chip.remove()
    pull(AT1, 0)
    pull(PWR_IN, 1)
    daemon.wait_for_line("Execute: reboot", within=22)
    assert daemon.wait_for_exit(within=16) == -SIGABRT
    assert daemon.stdout.endswith("Still alive, force shutdown\n")
    assert daemon.stderr == unhandled("setting")
    assert [call.name for call in rig.commands.calls()] == ["reboot"]


# Taken by another process between the daemon's look and its request.


@pytest.mark.kernel
@pytest.mark.parametrize("name", LINES)
def test_a_line_taken_between_look_and_request_ends_the_start(rig, name):
    rehearsal = rig.folder / "rehearsal"
    rig.configure("test.battery=true", "test.hour=-1")
    daemon = rig.daemon(before=noting(rehearsal))
    daemon.wait_for_line("Full server", within=1)
    daemon.kill()
    rig.trace.clear()
    requests = [call for call in calls_in(rehearsal) if re.search(LINE_REQUEST, call.text)]
    assert len(requests) == len(LINES)

    daemon = rig.daemon(before=meeting((requests[LINES.index(name)], "delay_enter=1s")))
    sleep_until(daemon.started + SECOND // 2)
    line = rig.board.chip.line(name)
    requested = list(LINES[: LINES.index(name)])
    assert [other.name for other in rig.board.chip.lines if other.holder()] == requested
    with line.hold():
        assert daemon.wait_for_exit(within=1) == 1
        assert line.holder() == "somebody-else"
    assert (daemon.stdout, daemon.stderr) == ("Start\n", NO_RESULT_FILE + BUSY)
    # What it had requested is given back, and was at its initial level till then.
    assert [other.holder() for other in rig.board.chip.lines] == [None] * 4
    assert writes(rig) == {AT2: [0] if name == BAT_SW else [], BAT_SW: []}
