"""A system call fails once in a loop, during a test or on the way down."""

import pytest

from faults import fail_from_now_on, has_failed, text_of
from rig import MILLISECOND, NO_RESULT_FILE, SECOND

from guest.clock import now, sleep_until, wait_until
from guest.stand_in import StandIns

pytestmark = pytest.mark.kernel

UNHANDLED = "terminate called after throwing an instance of 'std::system_error'\n  what():  "
READING, SETTING = (f"error {what} GPIO line values: " for what in ("reading", "setting"))
# Down as fast as it goes: the command after 20 seconds, the cut 15 seconds after it.
QUICK = ("test.hour=-1", "test.shut.timeout=0", "test.shut.cutoff=0")


@pytest.fixture
def fail(rig):
    """Lets calls of a daemon fail; ends with the check that each fault was met."""
    logs = []

    def fail(daemon, *faults):
        log = rig.folder / f"log{len(logs)}"
        logs.append(log)
        return fail_from_now_on(daemon, log, *faults)

    yield fail
    assert all(has_failed(log) for log in logs)


def assert_unhandled(daemon, stderr):
    assert daemon.wait_for_exit(within=3.1) == -6
    assert daemon.stderr.removeprefix(NO_RESULT_FILE) == UNHANDLED + stderr + "\n"


def assert_dead(rig):
    """The lines are free, and the status stands still as it was."""
    assert [line.holder() for line in rig.board.chip.lines] == [None] * 4
    left = rig.status()
    sleep_until(now() + 3 * SECOND)
    assert rig.status() == left


def levels(rig, line):
    return [level for _, level in rig.trace.writes(line)]


@pytest.mark.parametrize("error", ["EIO", "EINTR"])
def test_a_failing_read_of_the_power_line_ends_the_minimal_server(rig, fail, error):
    daemon = rig.minimal_server()
    with fail(daemon, f"ioctl:error={error}:when=3"):
        assert_unhandled(daemon, READING + text_of(error))
    assert rig.status()["count"] == 3
    assert_dead(rig)


@pytest.mark.parametrize("error", ["EIO", "EINTR"])
def test_a_failing_read_of_the_battery_without_power_ends_the_daemon(rig, fail, error):
    """Nobody shuts the board down then."""
    daemon = rig.full_server(*QUICK)
    with fail(daemon, f"ioctl:error={error}:when=2"):
        rig.board.battery(False)
        rig.board.ac(False)
        assert_unhandled(daemon, READING + text_of(error))
    assert daemon.stdout == "Start\nFull server\n"
    assert (rig.status()["missingPower"], rig.status()["batteryEmpty"]) == (1, 0)
    assert_dead(rig)
    assert rig.commands.calls() == []
    assert levels(rig, "BAT-SW") == [1]


# What a tick does with the lines that begins a test of one second: how many accesses come
# before the one that fails, what that is, the levels that BAT-T2 was given, and what the
# test printed.
ACCESSES = [
    pytest.param(0, READING, [0], None, id="PWR-IN at the tick"),
    pytest.param(1, SETTING, [0], 0, id="BAT-T2 to 1"),
    pytest.param(2, READING, [0, 1], 0, id="BAT-T1 before the watch"),
    pytest.param(3, READING, [0, 1], 1, id="BAT-T1 as the watch begins"),
    pytest.param(4, READING, [0, 1], 1, id="BAT-T1 at the first sample"),
    pytest.param(23, READING, [0, 1], 1, id="BAT-T1 at the last sample"),
    pytest.param(24, SETTING, [0, 1], 1, id="BAT-T2 back to 0"),
]


@pytest.mark.parametrize("error", ["EIO", "EINTR"])
@pytest.mark.parametrize("before, what, driven, progress_lines", ACCESSES)
def test_a_failing_line_ends_a_test(rig, fail, error, before, what, driven, progress_lines):
    """Only the release of the line connects AC power again, where its pull does so."""
    rig.save_times(5, 6)
    daemon = rig.full_server("test.hour=-1")
    rig.board.at2.pull(0)
    with fail(daemon, f"ioctl:error={error}:when={before + 1}"):
        assert rig.client("-n", "--test.duration=1").status == 0
        assert_unhandled(daemon, what + text_of(error))
    assert levels(rig, "BAT-T2") == driven
    assert rig.board.at2.level() == 0
    assert levels(rig, "BAT-SW") == [1]
    status, (start, end) = rig.status(), rig.saved_times()
    if progress_lines is None:
        assert daemon.stdout == "Start\nFull server\n"
        assert (status["testing"], status["runTestNow"], start, end) == (0, 1, 5, 6)
    else:
        assert daemon.stdout.startswith("Start\nFull server\nGot run test now\n")
        assert daemon.stdout.count("\n") == 3 + progress_lines
        assert (status["testing"], status["runTestNow"], start > 6, end) == (1, 0, True, 6)
    assert_dead(rig)


@pytest.mark.parametrize("error", ["EIO", "EINTR"])
@pytest.mark.parametrize("number", [2, 15])
def test_power_that_the_handler_cannot_restore_is_reported(rig, fail, error, number):
    daemon = rig.full_server("test.hour=-1")
    rig.board.at2.pull(0)
    rig.client("-n")
    daemon.wait_for_line("Got run test now", within=1.1)
    sleep_until(now() + SECOND // 2)
    with fail(daemon, f"ioctl:error={error}:when=1"):
        daemon.send(number)
        assert daemon.wait_for_exit(within=0.1) == 1
    assert daemon.stderr == NO_RESULT_FILE + SETTING + text_of(error) + "\n"
    assert daemon.stdout.endswith(
        f"Interrupted with signal: {number}\nInterrupted while doing battery test\n"
    )
    assert levels(rig, "BAT-T2") == [0, 1]
    assert rig.board.at2.level() == 0
    assert rig.status()["testing"] == 1
    assert_dead(rig)


def lose_power(rig, daemon):
    rig.board.battery(False)
    rig.board.ac(False)
    return daemon.wait_for_line("Battery empty", within=1.1).time


def assert_cut(rig, daemon, begin, seconds):
    """The battery is cut so many seconds after it read empty, and the daemon lives on."""
    daemon.wait_for_line("Still alive, force shutdown", within=60)
    wait_until(lambda: len(rig.trace.writes("BAT-SW")) == 2, within=10)
    cut, level = rig.trace.writes("BAT-SW")[-1]
    assert (level, round((cut - begin) / MILLISECOND)) == (0, seconds * 1000)
    assert daemon.returncode is None


@pytest.mark.parametrize("error", ["EIO", "EINTR"])
def test_a_battery_that_cannot_be_cut_ends_the_daemon(rig, fail, error):
    daemon = rig.full_server(*QUICK)
    begin = lose_power(rig, daemon)
    sleep_until(begin + 25 * SECOND)
    with fail(daemon, f"ioctl:error={error}:when=1"):
        assert daemon.wait_for_exit(within=11) == -6
    assert daemon.stderr == NO_RESULT_FILE + UNHANDLED + SETTING + text_of(error) + "\n"
    assert daemon.stdout.endswith("Execute: reboot\nStill alive, force shutdown\n")
    assert levels(rig, "BAT-SW") == [1]
    assert_dead(rig)


@pytest.mark.parametrize(
    "fault",
    [
        "clone3:error=EAGAIN:when=1",
        "clone3:error=ENOMEM:when=1",
        # The stack on which the child begins.
        "mmap:error=ENOMEM:when=1",
    ],
)
def test_a_command_that_cannot_be_started_changes_nothing_else(rig, fail, fault):
    daemon = rig.full_server(*QUICK)
    begin = lose_power(rig, daemon)
    with fail(daemon, fault):
        assert_cut(rig, daemon, begin, 20 + 15)
    assert rig.commands.calls() == []
    assert daemon.stderr == NO_RESULT_FILE


@pytest.mark.parametrize("error, seconds", [("EINTR", 20 + 7 + 15), ("ECHILD", 20 + 15)])
def test_a_wait_for_the_command_that_fails(rig, fail, error, seconds):
    """An interruption is waited out; after any other error the cut comes sooner."""
    with StandIns(then="exec sleep 7") as commands:
        daemon = rig.full_server(*QUICK)
        begin = lose_power(rig, daemon)
        with fail(daemon, f"wait4:error={error}:when=1"):
            assert_cut(rig, daemon, begin, seconds)
        assert [call.name for call in commands.calls()] == ["reboot"]


@pytest.mark.parametrize("fault, seconds", [("error=EIO", 35), ("delay_enter=5s", 35 + 5)])
def test_the_cut_waits_for_the_sync_and_does_not_ask_how_it_went(rig, fail, fault, seconds):
    daemon = rig.full_server(*QUICK)
    begin = lose_power(rig, daemon)
    with fail(daemon, f"sync:{fault}:when=1"):
        assert_cut(rig, daemon, begin, seconds)


# An injected EINTR leaves all of the sleep to be done; another error ends it at once.


@pytest.mark.parametrize(
    "fault, count",
    [
        ("error=EINTR:when=1", 10),
        ("error=EINTR:when=1..100", 10),
        ("error=EINVAL:when=2", 10 + 1),
        ("error=EINVAL:when=2..6", 10 + 5),
        ("error=EFAULT:when=2", 10 + 1),
    ],
)
def test_a_failing_sleep_shortens_its_second_unless_it_was_interrupted(rig, fail, fault, count):
    daemon = rig.full_server("test.hour=-1")
    with fail(daemon, f"clock_nanosleep:{fault}"):
        sleep_until(daemon.started + 10 * SECOND + SECOND // 2)
    assert rig.status()["count"] == count
    assert daemon.stdout == "Start\nFull server\n"
    assert daemon.stderr == NO_RESULT_FILE


@pytest.mark.parametrize("error, earlier", [("EINTR", 0), ("EINVAL", 3)])
def test_failing_sleeps_before_the_command(rig, fail, error, earlier):
    daemon = rig.full_server(*QUICK)
    begin = lose_power(rig, daemon)
    with fail(daemon, f"clock_nanosleep:error={error}:when=2..4"):
        line = daemon.wait_for_line("Execute: reboot", within=21)
    assert round((line.time - begin) / MILLISECOND) == (20 - earlier) * 1000
    assert "Not ready for shutdown after 15 seconds\n" in daemon.stdout


@pytest.mark.parametrize("error", ["EINTR", "EINVAL"])
def test_failing_sleeps_between_samples_do_not_change_a_test_s_length(rig, fail, error):
    """The steady clock measures it; only the steps between samples are shorter."""
    daemon = rig.full_server("test.hour=-1")
    rig.client("-n", "--test.duration=2")
    began = daemon.wait_for_line("Got run test now", within=1.1).time
    with fail(daemon, f"clock_nanosleep:error={error}:when=5..8"):
        line = daemon.wait_for_line("Test result: Battery is good", within=3)
    assert daemon.stdout.count("MS: ") == 2
    assert abs(round((line.time - began) / MILLISECOND) - 2000) <= 1
