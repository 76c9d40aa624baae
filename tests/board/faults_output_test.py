"""Standard output that is closed, full, failing, or that nobody reads any more."""

import fcntl
import os
import re
import signal
import subprocess

import pytest

from faults import fail_from_now_on, failing, has_failed, nth_call
from rig import LOCK, NO_RESULT_FILE, PROGRAM, SECOND

from guest.clock import now, sleep_until, wait_until
from guest.process import run

# Down as fast as it goes: the command after 20 seconds, the cut 15 seconds after it.
QUICK = ("test.battery=true", "test.hour=-1", "test.shut.timeout=0", "test.shut.cutoff=0")


def levels(rig, line):
    return [level for _, level in rig.trace.writes(line)]


def redirected(words):
    return ("/bin/sh", "-c", f'exec "$@" {words}', "sh")


def silent_server(rig, *before):
    """A full server that cannot say that it is one."""
    rig.configure(*QUICK)
    daemon = rig.daemon(before=before)
    wait_until(lambda: rig.board.bat_sw.level() == 1, within=1)
    return daemon


def assert_guards(rig):
    """A test from begin to end, and then the way down, as if somebody could read of it."""
    assert rig.client("-n", "--test.duration=1").status == 0
    sleep_until(now() + 3 * SECOND)
    assert levels(rig, "BAT-T2") == [0, 1, 0]
    start, end = rig.saved_times()
    assert end - start in (1, 2)
    assert rig.status()["testing"] == 0
    rig.board.battery(False)
    rig.board.ac(False)
    sleep_until(now() + 25 * SECOND)
    rig.board.ac(True)
    sleep_until(now() + 15 * SECOND)
    assert levels(rig, "BAT-SW") == [1, 0]
    assert [call.name for call in rig.commands.calls()] == ["reboot"]


@pytest.mark.parametrize("words", [">/dev/full", ">/dev/full 2>&1", ">&- 2>&- <&-"])
def test_a_daemon_that_cannot_print_guards_in_silence(rig, words):
    daemon = silent_server(rig, *redirected(words))
    assert_guards(rig)
    daemon.send(signal.SIGTERM)
    assert daemon.wait_for_exit(within=0.1) == 0
    assert daemon.stdout == ""


def test_with_a_closed_output_the_messages_go_to_the_lock_file(rig):
    """It is opened as the first free descriptor, and stays open."""
    LOCK.unlink(missing_ok=True)
    daemon = silent_server(rig, *redirected(">&-"))
    assert (daemon.stdout, LOCK.read_text()) == ("", "Start\nFull server\n")
    LOCK.write_text("")


def test_power_is_restored_in_silence(rig):
    daemon = silent_server(rig, *redirected(">/dev/full"))
    rig.client("-n")
    wait_until(lambda: rig.board.at2.level() == 1, within=2)
    daemon.send(signal.SIGTERM)
    assert daemon.wait_for_exit(within=0.1) == 0
    assert levels(rig, "BAT-T2") == [0, 1, 0]


def test_errors_that_cannot_be_printed_change_nothing(rig):
    daemon = rig.daemon("--gpio.pwr-in=NONE", before=redirected("2>/dev/full"))
    assert daemon.wait_for_exit(within=1) == 1
    assert (daemon.stdout, daemon.stderr) == ("Start\n", "")


@pytest.mark.parametrize("words", [">/dev/full", ">&-"])
@pytest.mark.parametrize("client", [["-h"], ["-v", "-s"], ["-n"]])
def test_a_client_does_not_notice_that_it_cannot_print(rig, client, words):
    rig.minimal_server()
    result = run([*redirected(words), PROGRAM, "-c", rig.conf, *client])
    assert result == ("", NO_RESULT_FILE, 0)


ALL_LINES = (
    "Start\nFull server\nGot run test now\nMS: ...\nTest result: Battery is good\n"
    "Battery empty\nNot ready for shutdown after 15 seconds\nExecute: reboot\n"
    "Still alive, force shutdown\nInterrupted with signal: 15\n"
)


@pytest.mark.kernel
@pytest.mark.parametrize("error", ["EIO", "EINTR"])
@pytest.mark.parametrize(
    "line, printed",
    [("Start", ""), ("Full server", ALL_LINES.replace("Full server\n", ""))],
    ids=["the first", "a later one"],
)
def test_a_line_that_fails_is_lost(rig, start_calls, line, printed, error):
    """With the very first one the stream gives up, and no line follows."""
    name, number = nth_call(start_calls, rf'write\(1, "{line}')
    log = rig.folder / "log"
    daemon = silent_server(rig, *failing(log, f"{name}:error={error}:when={number}"))
    assert has_failed(log)
    assert_guards(rig)
    daemon.send(signal.SIGTERM)
    assert daemon.wait_for_exit(within=0.1) == 0
    assert re.sub(r"MS: \d+", "MS: ...", daemon.stdout) == printed
    assert daemon.stderr == NO_RESULT_FILE


@pytest.mark.kernel
def test_a_progress_line_that_fails_changes_nothing_else(rig):
    daemon = rig.full_server("test.hour=-1")
    rig.client("-n", "--test.duration=3")
    daemon.wait_for_line("Got run test now", within=1.1)
    sleep_until(now() + SECOND // 2)
    log = rig.folder / "log"
    with fail_from_now_on(daemon, log, "write:error=ENOSPC:when=1"):
        daemon.wait_for_line("Test result: Battery is good", within=3)
    assert has_failed(log)
    assert daemon.stdout.count("MS: ") == 2
    assert (rig.status()["testing"], rig.status()["batteryBad"]) == (0, 0)
    rig.saved_times()


@pytest.mark.kernel
def test_the_listing_lacks_only_the_line_that_failed(rig):
    rig.minimal_server()
    whole = rig.client("-v", "-s").stdout.splitlines(keepends=True)
    log = rig.folder / "log"
    # The first write is the report of the missing result file.
    client = rig.daemon("-v", "-s", before=failing(log, "write:error=EIO:when=4"))
    assert client.wait_for_exit(within=1) == 0
    assert client.stdout == "".join(whole[:2] + whole[3:])


# A reader that ends.


def server_with_reader(rig, *settings, mask="trap - PIPE"):
    """A full server and the end of the pipe that it prints to."""
    rig.configure(*QUICK, *settings)
    reading, writing = os.pipe()
    script = f'{mask}; exec "{PROGRAM}" -c "{rig.conf}"'
    # Python ignores SIGPIPE and would pass that on.
    daemon = subprocess.Popen(
        ["/bin/sh", "-c", script], stdout=writing, stderr=subprocess.PIPE, restore_signals=True
    )
    os.close(writing)
    read_until(reading, b"Full server\n")
    return daemon, reading


def read_until(reading, line):
    text = b""
    while line not in text:
        arrived = os.read(reading, 4096)
        assert arrived, text
        text += arrived
    return text


@pytest.mark.kernel
def test_without_its_reader_the_daemon_ends_at_a_request(rig):
    """The request is taken, the test never begun."""
    daemon, reading = server_with_reader(rig)
    os.close(reading)
    rig.client("-n")
    assert daemon.wait(timeout=10) == -signal.SIGPIPE
    assert levels(rig, "BAT-T2") == [0]
    status = rig.status()
    assert (status["runTestNow"], status["testing"]) == (0, 0)
    assert not rig.result_file.exists()


@pytest.mark.kernel
def test_without_its_reader_the_daemon_ends_at_an_empty_battery(rig):
    """Nobody shuts the board down then."""
    daemon, reading = server_with_reader(rig)
    os.close(reading)
    rig.board.battery(False)
    rig.board.ac(False)
    assert daemon.wait(timeout=10) == -signal.SIGPIPE
    assert rig.commands.calls() == []
    assert levels(rig, "BAT-SW") == [1]
    assert (rig.status()["missingPower"], rig.status()["batteryEmpty"]) == (1, 0)


def begun_test(rig):
    daemon, reading = server_with_reader(rig)
    rig.board.at2.pull(0)
    rig.client("-n")
    read_until(reading, b"Got run test now\n")
    wait_until(lambda: rig.board.at2.level() == 1, within=1)
    return daemon, reading


def assert_left_in_test(rig):
    """Only the release of the line connects AC power again, where its pull does so."""
    assert levels(rig, "BAT-T2") == [0, 1]
    assert rig.board.at2.level() == 0
    assert rig.status()["testing"] == 1
    start, end = rig.saved_times()
    assert start > end == 0


@pytest.mark.kernel
def test_without_its_reader_the_daemon_ends_in_the_next_second_of_a_test(rig):
    daemon, reading = begun_test(rig)
    os.close(reading)
    assert daemon.wait(timeout=10) == -signal.SIGPIPE
    assert_left_in_test(rig)


@pytest.mark.kernel
@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM])
def test_without_its_reader_an_interrupted_test_does_not_restore_power(rig, number):
    """As when Ctrl-C ends a pipeline, the reader first."""
    daemon, reading = begun_test(rig)
    sleep_until(now() + SECOND // 2)
    os.close(reading)
    daemon.send_signal(number)
    assert daemon.wait(timeout=10) == -signal.SIGPIPE
    assert_left_in_test(rig)


@pytest.mark.kernel
def test_where_the_signal_is_ignored_the_daemon_guards_without_its_reader(rig):
    daemon, reading = server_with_reader(rig, mask="trap '' PIPE")
    os.close(reading)
    assert_guards(rig)
    daemon.send_signal(signal.SIGTERM)
    assert daemon.wait(timeout=10) == 0


# A reader that lives and does not read.


def unread_server(rig):
    """One that prints to a pipe of 4096 bytes, enough for some 400 seconds of a test."""
    daemon, reading = server_with_reader(rig)
    fcntl.fcntl(reading, fcntl.F_SETPIPE_SZ, 4096)
    return daemon, reading


@pytest.mark.kernel
def test_a_pipe_that_nobody_reads_holds_a_test_up_without_power(rig):
    """Not even a signal reconnects it before somebody reads."""
    daemon, reading = unread_server(rig)
    rig.client("-n")
    sleep_until(now() + 700 * SECOND)
    held_up = rig.status()
    assert held_up["testing"] == 1
    assert held_up["count"] < 600
    daemon.send_signal(signal.SIGTERM)
    sleep_until(now() + 3600 * SECOND)
    assert rig.status() == held_up
    assert daemon.poll() is None
    assert rig.board.at2.level() == 1
    text = read_until(reading, b"Power restored\n")
    assert b"Interrupted with signal: 15\nInterrupted while doing battery test\n" in text
    assert daemon.wait(timeout=10) == 0
    assert levels(rig, "BAT-T2") == [0, 1, 0]
