"""SIGINT and SIGTERM, whenever they come."""

import os
import signal
from pathlib import Path

import pytest

from rig import NO_RESULT_FILE, PROGRAM, PROGRESS, SECOND

from guest.clock import now, sleep_until
from guest.process import Program

SIGNALS = [signal.SIGINT, signal.SIGTERM]


def begin_test(rig, *settings):
    daemon = rig.full_server("test.hour=-1", *settings)
    rig.client("-n")
    daemon.wait_for_line(PROGRESS, within=1.1)
    return daemon


@pytest.mark.parametrize("number", SIGNALS)
def test_an_idle_daemon_ends(rig, number):
    daemon = rig.full_server("test.hour=-1")
    sleep_until(daemon.started + 2 * SECOND + SECOND // 2)
    daemon.send(number)
    assert daemon.wait_for_exit(within=0.1) == 0
    assert daemon.stdout == f"Start\nFull server\nInterrupted with signal: {int(number)}\n"
    assert daemon.stderr == NO_RESULT_FILE
    # Neither output is written again.
    assert [level for _, level in rig.trace.writes("BAT-T2")] == [0]
    assert [level for _, level in rig.trace.writes("BAT-SW")] == [1]


@pytest.mark.parametrize("number", SIGNALS)
def test_a_minimal_server_ends(rig, number):
    daemon = rig.minimal_server()
    daemon.send(number)
    assert daemon.wait_for_exit(within=0.1) == 0
    assert daemon.stdout == f"Start\nMinimal server\nInterrupted with signal: {int(number)}\n"
    assert rig.trace.writes("BAT-T2") == []


@pytest.mark.parametrize("number", SIGNALS)
def test_power_is_restored_during_a_test(rig, number):
    daemon = begin_test(rig)
    began = now()
    sleep_until(began + 2 * SECOND + SECOND // 3)
    assert rig.board.at2.level() == 1
    daemon.send(number)
    assert daemon.wait_for_exit(within=0.1) == 0
    assert daemon.stdout.endswith(
        f"Interrupted with signal: {int(number)}\n"
        "Interrupted while doing battery test\n"
        "Power restored\n"
    )
    assert daemon.stderr == NO_RESULT_FILE
    # The simulator pulls BAT-T2 to 1 once it is released, so what counts is that the
    # program itself drove it to 0 before it ended.
    levels = rig.trace.writes("BAT-T2")
    assert [level for _, level in levels] == [0, 1, 0]
    assert levels[-1][0] >= began + 2 * SECOND + SECOND // 3 - 1000
    assert [level for _, level in rig.trace.writes("BAT-SW")] == [1]
    start, end = rig.saved_times()
    assert start > end == 0
    # What it published last stays, the next daemon starts afresh.
    assert rig.status()["testing"] == 1
    rig.full_server("test.hour=-1")
    assert rig.status()["testing"] == 0


def test_power_that_cannot_be_restored_is_reported(rig):
    daemon = begin_test(rig)
    daemon.send(signal.SIGSTOP)
    rig.board.chip.remove()
    daemon.send(signal.SIGTERM)
    daemon.send(signal.SIGCONT)
    assert daemon.wait_for_exit(within=0.1) == 1
    assert daemon.stdout.endswith(
        "Interrupted with signal: 15\nInterrupted while doing battery test\n"
    )
    assert daemon.stderr == NO_RESULT_FILE + (
        "error setting GPIO line values: No such device\n"
    )


def test_a_killed_daemon_leaves_its_status_and_releases_its_lines(rig):
    daemon = begin_test(rig)
    sleep_until(now() + 2 * SECOND)
    daemon.send(signal.SIGKILL)
    assert daemon.wait_for_exit(within=0.1) == -9
    assert rig.status()["testing"] == 1
    assert rig.board.at2.holder() is None


def test_both_signals_at_once(rig):
    """The second one finds the first one's end under way."""
    daemon = begin_test(rig)
    sleep_until(now() + 2 * SECOND + SECOND // 3)
    daemon.send(signal.SIGSTOP)
    daemon.send(signal.SIGINT)
    daemon.send(signal.SIGTERM)
    daemon.send(signal.SIGCONT)
    assert daemon.wait_for_exit(within=0.1) == 0
    assert daemon.stderr == NO_RESULT_FILE
    assert "Interrupted while doing battery test\n" in daemon.stdout
    assert [level for _, level in rig.trace.writes("BAT-T2")][:3] == [0, 1, 0]


@pytest.mark.kernel
@pytest.mark.parametrize("number", SIGNALS)
def test_before_the_record_is_mapped_it_ends_like_an_idle_daemon(rig, number):
    """Held up at its configuration, a pipe that nobody writes to."""
    pipe = rig.folder / "pipe"
    os.mkfifo(pipe)
    with Program([PROGRAM, "-c", str(pipe)]) as daemon:
        sleep_until(now() + SECOND)
        daemon.send(number)
        assert daemon.wait_for_exit(within=0.1) == 0
        assert daemon.stdout == f"Interrupted with signal: {int(number)}\n"
        assert daemon.stderr == ""


def process_of(word):
    """The process of the program that was started with this word."""
    for folder in Path("/proc").glob("[0-9]*"):
        words = (folder / "cmdline").read_bytes().decode().split("\0")
        if words[0] == PROGRAM and word in words:
            return int(folder.name)
    raise LookupError(word)


def held_up_client(rig, *words):
    """A client that has mapped the segment and cannot go on: its output is full."""
    script = (
        f'exec 3>&1; {{ head -c 65536 /dev/zero; "{PROGRAM}" -c "{rig.conf}" {" ".join(words)}; '
        f'echo "status $?"; }} | {{ sleep 5; head -c 65536 >/dev/null; cat >&3; }}'
    )
    return Program(["/bin/sh", "-c", script])


@pytest.mark.kernel
def test_a_client_that_meets_a_running_test_cannot_restore_power(rig):
    """It sees `testing` through its own mapping and has no line to drive."""
    daemon = begin_test(rig)
    with held_up_client(rig, "--status") as client:
        sleep_until(now() + 2 * SECOND)
        os.kill(process_of("--status"), signal.SIGTERM)
        client.wait_for_exit(within=10)
        assert client.stdout.endswith(
            "Interrupted with signal: 15\nInterrupted while doing battery test\nstatus 1\n"
        )
        assert client.stderr == "object not holding a GPIO line handle\n"
    assert daemon.returncode is None
    assert rig.board.at2.level() == 1


def test_only_the_two_signals_are_handled_and_none_is_ignored(rig):
    daemon = rig.minimal_server()
    status = Path(f"/proc/{daemon.pid}/status").read_text()
    masks = dict(line.split(":\t") for line in status.splitlines() if line.startswith("Sig"))
    assert int(masks["SigCgt"], 16) == 1 << (signal.SIGINT - 1) | 1 << (signal.SIGTERM - 1)
    assert int(masks["SigIgn"], 16) == 0


def test_other_signals_keep_their_defaults(rig):
    daemon = rig.minimal_server()
    daemon.send(signal.SIGHUP)
    assert daemon.wait_for_exit(within=0.1) == -signal.SIGHUP
    assert daemon.stdout == "Start\nMinimal server\n"
