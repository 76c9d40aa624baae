"""The segment removed, overwritten or cut under the daemon, or never finished."""

import os
import signal
import subprocess

import pytest

from faults import BOOST_1_83, failing, nth_call
from rig import NO_RESULT_FILE, PROGRAM, SECOND, SEGMENT, SEGMENT_TOOL

from guest.clock import now, sleep_until
from guest.process import Program, run

CORRUPT = NO_RESULT_FILE + "boost::interprocess_exception::library_error\n"
LOST = NO_RESULT_FILE + "boost::interprocess::lock_exception\n"
MISSING = NO_RESULT_FILE + "No such file or directory\n"
CLIENTS = ["--status", "--run-test", "--run-test-now"]


def begin_test(rig, daemon, seconds):
    rig.client("-n", f"--test.duration={seconds}")
    daemon.wait_for_line("Got run test now", within=1.1)
    return now()


def overwrite(byte):
    """As any other program that may write there can."""
    with SEGMENT.open("r+b") as segment:
        segment.write(byte * 1024)


def levels(rig, line):
    return [level for _, level in rig.trace.writes(line)]


def assert_waits(rig, word):
    """The client is still there after ten seconds, and a signal ends it."""
    with Program([PROGRAM, "-c", str(rig.conf), word]) as client:
        sleep_until(now() + 10 * SECOND)
        assert client.returncode is None
        client.send(signal.SIGTERM)
        assert client.wait_for_exit(within=1) == 0
        assert client.stdout == "Interrupted with signal: 15\n"
        assert client.stderr == NO_RESULT_FILE


# Removed: the daemon goes on in the memory that it has, and nobody can see it.


def test_a_removed_segment_hides_the_daemon_until_its_next_start(rig):
    daemon = rig.full_server("test.hour=-1", "test.shut.timeout=0")
    SEGMENT.unlink()
    for word in CLIENTS:
        assert rig.client(word) == ("", MISSING, 1)
    second = rig.daemon()
    assert second.wait_for_exit(within=1) == 1
    assert second.stderr == NO_RESULT_FILE + "Another instance is running\n"
    assert not SEGMENT.exists()
    rig.board.battery(False)
    rig.board.ac(False)
    daemon.wait_for_line("Execute: reboot", within=22)
    daemon.send(signal.SIGTERM)
    assert daemon.wait_for_exit(within=0.1) == 0
    assert not SEGMENT.exists()
    rig.board.ac(True)
    rig.full_server()
    assert rig.status()["count"] == 0


def test_a_segment_removed_during_a_test_changes_nothing_for_it(rig):
    daemon = rig.full_server("test.hour=-1")
    begin_test(rig, daemon, 2)
    SEGMENT.unlink()
    daemon.wait_for_line("Test result: Battery is good", within=3)
    assert levels(rig, "BAT-T2") == [0, 1, 0]
    rig.saved_times()


def test_a_signal_during_a_test_restores_power_without_the_segment(rig):
    daemon = rig.full_server("test.hour=-1")
    begin_test(rig, daemon, 60)
    SEGMENT.unlink()
    daemon.send(signal.SIGTERM)
    assert daemon.wait_for_exit(within=0.1) == 0
    assert daemon.stdout.endswith("Power restored\n")
    assert levels(rig, "BAT-T2") == [0, 1, 0]


def test_requests_in_a_segment_of_somebody_else_are_never_served(rig):
    rig.full_server("test.hour=-1")
    subprocess.run([SEGMENT_TOOL, "make", "status", "request"], check=True)
    assert rig.client("--run-test-now") == ("", NO_RESULT_FILE, 0)
    sleep_until(now() + 10 * SECOND)
    status = rig.status()
    assert (status["runTestNow"], status["count"]) == (1, 0)
    assert levels(rig, "BAT-T2") == [0]


# Overwritten: the daemon takes the records for what they then hold.


@pytest.mark.kernel
def test_zeros_start_the_count_again_and_hold_clients_up(rig):
    daemon = rig.full_server("test.hour=-1")
    sleep_until(daemon.started + 5 * SECOND + SECOND // 2)
    before = SEGMENT.read_bytes()
    overwrite(b"\0")
    sleep_until(daemon.started + 8 * SECOND + SECOND // 2)
    at = before.index((5).to_bytes(8, "little") + b"23KelvoPowerStatus")
    assert SEGMENT.read_bytes()[at : at + 8] == (3).to_bytes(8, "little")
    for word in CLIENTS:
        assert_waits(rig, word)
    assert daemon.stdout == "Start\nFull server\n"
    assert daemon.returncode is None


def test_zeros_during_a_test_take_its_end_by_a_signal_for_idleness(rig):
    """Only the release of the line connects AC power again, where its pull does so."""
    daemon = rig.full_server("test.hour=-1")
    rig.board.at2.pull(0)
    began = begin_test(rig, daemon, 60)
    sleep_until(began + SECOND // 2)
    overwrite(b"\0")
    daemon.send(signal.SIGTERM)
    assert daemon.wait_for_exit(within=0.1) == 0
    assert daemon.stdout.endswith("Interrupted with signal: 15\n")
    assert levels(rig, "BAT-T2") == [0, 1]
    assert rig.board.at2.level() == 0


@pytest.mark.parametrize("byte", [b"\0", b"\xff"])
def test_a_test_ends_well_in_an_overwritten_segment(rig, byte):
    daemon = rig.full_server("test.hour=-1")
    began = begin_test(rig, daemon, 3)
    sleep_until(began + SECOND // 2)
    overwrite(byte)
    daemon.wait_for_line("Test result: Battery is good", within=3)
    assert levels(rig, "BAT-T2") == [0, 1, 0]
    start, end = rig.saved_times()
    assert end - start in (3, 4)


@pytest.mark.kernel
def test_bytes_that_are_no_request_are_not_served(rig):
    daemon = rig.full_server("test.hour=-1")
    overwrite(b"\xff")
    sleep_until(now() + 10 * SECOND)
    for word in CLIENTS:
        if BOOST_1_83:
            assert_waits(rig, word)
        else:
            assert rig.client(word) == ("", CORRUPT, 1)
    assert daemon.stdout == "Start\nFull server\n"
    assert levels(rig, "BAT-T2") == [0]


def test_bytes_that_are_a_request_are_served(rig):
    """Ones everywhere ask for a test of 257 seconds."""
    daemon = rig.full_server("test.hour=-1")
    overwrite(b"\1")
    daemon.wait_for_line("Got run test now", within=1.1)
    began = now()
    line = daemon.wait_for_line("Test result: Battery is good", within=258)
    assert round((line.time - began) / SECOND) == 257
    assert levels(rig, "BAT-T2") == [0, 1, 0]


# Cut: the memory is gone from under the daemon.


def test_a_segment_that_is_emptied_ends_an_idle_daemon(rig):
    daemon = rig.full_server("test.hour=-1")
    os.truncate(SEGMENT, 0)
    assert daemon.wait_for_exit(within=1.1) == -signal.SIGBUS
    assert daemon.stderr == NO_RESULT_FILE
    assert [line.holder() for line in rig.board.chip.lines] == [None] * 4


def test_a_segment_that_is_emptied_during_a_test_ends_the_daemon(rig):
    """Only the release of the line connects AC power again, where its pull does so."""
    daemon = rig.full_server("test.hour=-1")
    rig.board.at2.pull(0)
    began = begin_test(rig, daemon, 60)
    sleep_until(began + SECOND // 2)
    os.truncate(SEGMENT, 0)
    assert daemon.wait_for_exit(within=1.1) == -signal.SIGBUS
    assert levels(rig, "BAT-T2") == [0, 1]
    assert rig.board.at2.level() == 0
    start, end = rig.saved_times()
    assert start > end == 0


# Never finished: its daemon was killed between two steps of making it.


def kill_at(rig, start_calls, pattern):
    name, number = nth_call(start_calls, pattern)
    rig.configure("test.battery=true")
    log = rig.folder / "log"
    daemon = rig.daemon(before=failing(log, f"{name}:signal=KILL:when={number}"))
    assert daemon.wait_for_exit(within=1) == -signal.SIGKILL


@pytest.mark.kernel
@pytest.mark.parametrize(
    "pattern, content",
    [(r"(fallocate|ftruncate)\(", b""), (r"mmap\(NULL, 1024,", bytes(1024))],
    ids=["empty", "all zero"],
)
@pytest.mark.parametrize("word", ["--status", "--run-test-now"])
def test_clients_wait_for_a_segment_to_be_finished(rig, start_calls, pattern, content, word):
    kill_at(rig, start_calls, pattern)
    assert SEGMENT.read_bytes() == content
    assert_waits(rig, word)
    rig.full_server()
    assert rig.client(word).status == 0


# The library's own lock, in the segment.


@pytest.mark.kernel
def test_clients_that_ask_do_not_get_a_lock_whose_holder_was_killed(rig):
    """They wait for it, but newer versions of the library notice."""
    daemon = rig.full_server("test.hour=-1")
    assert run([SEGMENT_TOOL, "die-with-lock"]).status == -signal.SIGKILL
    assert rig.status()["testing"] == 0
    for word in ("--run-test", "--run-test-now"):
        if BOOST_1_83:
            assert rig.client(word) == ("", LOST, 1)
        else:
            assert_waits(rig, word)
    sleep_until(now() + SECOND)
    assert daemon.returncode is None
    assert daemon.stdout == "Start\nFull server\n"
    daemon.send(signal.SIGTERM)
    daemon.wait_for_exit(within=0.1)
    rig.full_server("test.hour=-1")
    assert rig.client("--run-test-now") == ("", NO_RESULT_FILE, 0)
