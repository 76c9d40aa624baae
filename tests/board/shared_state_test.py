"""The segment: made, found, left behind, replaced."""

import os
import subprocess

import pytest

from rig import NO_RESULT_FILE, PROGRAM, SECOND, SEGMENT, SEGMENT_TOOL

from guest.clock import sleep_until

CLIENTS = [["-s"], ["-r"], ["-n"]]


def as_nobody(rig, *words):
    """Runs a client as a user who owns nothing."""
    rig.folder.chmod(0o755)
    for parent in rig.folder.parents:
        if parent.is_relative_to("/run") and parent.owner() == "root":
            parent.chmod(0o755)
    return subprocess.run(
        ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]
        + [PROGRAM, "-c", str(rig.conf), *words],
        capture_output=True,
        text=True,
    )


@pytest.mark.parametrize("mask", [0o000, 0o022, 0o077, 0o777])
def test_its_size_and_mode_whatever_the_mask(rig, mask):
    rig.daemon(before=("/bin/sh", "-c", f'umask {mask:o}; exec "$@"', "sh")).wait_for_line(
        "Minimal server", within=1
    )
    state = SEGMENT.stat()
    assert (state.st_size, oct(state.st_mode)) == (1024, oct(0o100644))


def test_the_keys_of_the_records(rig):
    rig.full_server()
    content = SEGMENT.read_bytes()
    # The records are all zero and each stands before its key.
    assert bytes(8) + b"23KelvoPowerStatus_struct\0" in content
    assert bytes(4) + b"24KelvoPowerRequest_struct\0" in content


def test_a_new_daemon_starts_with_zeros_in_a_new_segment(rig):
    first = rig.full_server("test.hour=-1")
    sleep_until(first.started + 5 * SECOND + SECOND // 2)
    rig.set_fields(runTest=1, batteryEmpty=1, batteryBad=1, duration=9)
    first.send(15)
    first.wait_for_exit(within=1)
    left = rig.status()
    assert (left["count"], left["runTest"], left["batteryEmpty"]) == (5, 1, 1)
    old = SEGMENT.open("rb")
    rig.full_server("test.hour=-1")
    assert set(rig.status().values()) == {0}
    assert os.fstat(old.fileno()).st_ino != SEGMENT.stat().st_ino
    # Whoever has the old one open still sees its last values.
    assert old.read() != SEGMENT.read_bytes()


def test_no_client_makes_or_removes_the_segment(rig):
    for words in CLIENTS:
        rig.client(*words)
        assert not SEGMENT.exists()
    rig.minimal_server().kill()
    for words in CLIENTS:
        assert rig.client(*words).status == 0
        assert SEGMENT.exists()


@pytest.mark.parametrize("words", CLIENTS)
def test_a_segment_without_the_records_ends_a_client_without_a_word(rig, words):
    subprocess.run([SEGMENT_TOOL, "without-records"], check=True)
    assert rig.client(*words) == ("", NO_RESULT_FILE, 1)


def test_another_user_can_see_but_not_ask(rig):
    rig.full_server("test.hour=-1", "test.init.disable=0")
    result = as_nobody(rig, "--status")
    assert result.stdout == rig.client("--status").stdout
    assert (result.stderr, result.returncode) == (NO_RESULT_FILE, 0)
    for word in ("--run-test", "--run-test-now"):
        result = as_nobody(rig, word)
        assert (result.stdout, result.returncode) == ("", 1)
        assert result.stderr == NO_RESULT_FILE + "Permission denied\n"


def test_a_status_client_waits_for_no_lock(rig):
    """The library's own lock lies in the segment; a read-only client passes it by."""
    rig.minimal_server().kill()
    content = bytearray(SEGMENT.read_bytes())
    plain = rig.client("--status")
    # As a lock that a killed process holds would look: every word of the header after
    # the two that say that the segment is ready is set where the mutex may be.
    lock = content[8:48]
    SEGMENT.write_bytes(content[:8] + b"\1" * len(lock) + content[48:])
    assert rig.client("--status") == plain
