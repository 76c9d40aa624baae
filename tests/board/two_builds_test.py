"""A daemon of one build and clients of another: other compiler, other libraries."""

import filecmp
import os

import pytest

from rig import NO_RESULT_FILE, PROGRAM, SECOND

from guest.clock import sleep_until

OTHER = os.environ["OTHER_KELVO_PWR"]

SETTINGS = ("test.hour=-1", "test.init.disable=0", "test.external-scheduling=true")


@pytest.fixture(params=[(PROGRAM, OTHER), (OTHER, PROGRAM)], ids=["client", "daemon"])
def mixed(rig, request):
    """The client, or the daemon, is of the other build."""
    assert not filecmp.cmp(PROGRAM, OTHER, shallow=False)
    rig.daemon_program, rig.client_program = request.param
    return rig


def test_a_client_shows_what_the_daemon_writes(mixed):
    daemon = mixed.full_server(*SETTINGS)
    mixed.board.ac(False)
    sleep_until(daemon.started + 3 * SECOND + SECOND // 2)
    assert mixed.client("--status") == (
        "count                    : 3\n"
        "missingPower             : 1\n"
        "batteryEmpty             : 0\n"
        "batteryBad               : 0\n"
        "testing                  : 0\n"
        "runTest                  : 0\n"
        "runTestNow               : 0\n"
        "duration                 : 0\n",
        NO_RESULT_FILE,
        0,
    )


@pytest.mark.parametrize(
    "word, field, start",
    [
        ("--run-test", "runTest", "Start\nFull server\n"),
        ("--run-test-now", "runTestNow", "Start\nFull server\nGot run test now\n"),
    ],
)
def test_a_daemon_serves_what_a_client_asks_for(mixed, word, field, start):
    daemon = mixed.full_server(*SETTINGS)
    assert mixed.client(word, "--test.duration=3") == ("", NO_RESULT_FILE, 0)
    assert (mixed.status()[field], mixed.status()["duration"]) == (1, 3)
    daemon.wait_for_line("Test result: Battery is good", within=5)
    assert daemon.stdout.startswith(start)
    assert daemon.stdout.count("MS: ") == 3
    assert mixed.status()[field] == 0


def test_the_segment_and_the_lock_are_for_both(mixed):
    first = mixed.full_server(*SETTINGS)
    mixed.daemon_program, mixed.client_program = mixed.client_program, mixed.daemon_program
    second = mixed.daemon()
    assert second.wait_for_exit(within=1) == 1
    assert second.stderr == NO_RESULT_FILE + "Another instance is running\n"
    mixed.client("--run-test")
    first.kill()
    mixed.full_server(*SETTINGS)
    assert set(mixed.status().values()) == {0}
