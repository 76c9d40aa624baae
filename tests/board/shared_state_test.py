"""The segment: made, found, left behind, replaced."""

import os
import subprocess

import pytest

from rig import NO_RESULT_FILE, PROGRAM, SECOND, SEGMENT, SEGMENT_TOOL

from guest.clock import now, sleep_until
from guest.process import Program

CLIENTS = [["-s"], ["-r"], ["-n"]]


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
@pytest.mark.parametrize("records", [[], ["status"], ["request"]])
def test_a_segment_without_both_records_ends_a_client_without_a_word(rig, words, records):
    subprocess.run([SEGMENT_TOOL, "make", *records], check=True)
    assert rig.client(*words) == ("", NO_RESULT_FILE, 1)


@pytest.mark.kernel
def test_another_user_can_see_but_not_ask(rig):
    rig.full_server("test.hour=-1", "test.init.disable=0")
    assert rig.client_of_nobody("--status") == rig.client("--status")
    for word in ("--run-test", "--run-test-now"):
        assert rig.client_of_nobody(word) == ("", NO_RESULT_FILE + "Permission denied\n", 1)


@pytest.mark.kernel
def test_a_status_client_waits_for_no_lock(rig):
    """The library's own lock lies in the segment; a read-only client passes it by."""
    rig.minimal_server().kill()
    plain = rig.client("--status")
    take_lock_for_ever()
    assert rig.client("--status") == plain
    with Program([PROGRAM, "-c", str(rig.conf), "--run-test"]) as client:
        sleep_until(now() + 1000 * SECOND)
        assert client.returncode is None


def take_lock_for_ever():
    """Leaves the lock as a process does that is killed while it holds it."""
    content = bytearray(SEGMENT.read_bytes())
    # The C library's mutex: lock, count, owner, users, kind; the kind of this one is
    # recursive and shared between processes, in newer versions of the library also robust,
    # a word that stands nowhere else.
    words = (b"\x81\0\0\0", b"\x91\0\0\0")
    kinds = [at for at in range(0, 256, 4) if content[at : at + 4] in words]
    (kind,) = kinds
    content[kind - 16 : kind - 12] = (1).to_bytes(4, "little")
    content[kind - 8 : kind - 4] = (999_999).to_bytes(4, "little")
    with SEGMENT.open("r+b") as segment:
        segment.write(content)
