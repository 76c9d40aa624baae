"""The result file behind failing calls, and on full and read-only file systems."""

import re
import subprocess

import pytest

from faults import fail_from_now_on, failing, has_failed, nth_call
from rig import NO_RESULT_FILE, PROGRESS

from guest.clock import set_wall
from guest.system_calls import mount

A_TIME = 1_790_000_000
# After an earlier test, during one that began at the first tick after A_TIME, after it.
OLD, BEGUN, DONE = (
    f"result.start={start}\nresult.end={end}\n"
    for start, end in ((5, 6), (A_TIME + 1, 6), (A_TIME + 1, A_TIME + 2))
)


def full_server(rig):
    set_wall(A_TIME + 0.5)
    return rig.full_server("test.hour=-1")


def content(rig):
    return rig.result_file.read_text() if rig.result_file.exists() else None


def begin_test(rig, daemon):
    """A test of one second, at the next tick."""
    assert rig.client("-n", "--test.duration=1").status == 0
    daemon.wait_for_line(PROGRESS, within=1.1)


def end_test(rig, daemon):
    """It ends as it does without a fault."""
    daemon.wait_for_line("Test result: Battery is good", within=1.1)
    assert [level for _, level in rig.trace.writes("BAT-T2")] == [0, 1, 0]
    assert daemon.stderr in ("", NO_RESULT_FILE)
    assert daemon.returncode is None


def listed_times(rig):
    """What the next start takes from the file, and what it reports."""
    result = rig.client("-v", "-s")
    assert result.status == 0
    times = re.search(r"startTimestamp +: (\d+)\nendTimestamp +: (\d+)\n", result.stdout)
    return int(times[1]), int(times[2]), result.stderr


# The daemon opens the file as the test begins and as it ends. What it writes in between,
# "Got run test now" among it, makes the two contents its second and fourth write.
REWRITES = [
    *(
        (f"openat:error={error}:when=1..2", OLD, OLD)
        for error in ("EACCES", "EINTR", "EIO", "EMFILE", "ENOSPC", "EROFS")
    ),
    ("openat:error=ENOSPC:when=1", OLD, DONE),
    ("openat:error=ENOSPC:when=2", BEGUN, BEGUN),
    ("write:error=ENOSPC:when=2", "", DONE),
    ("write:error=ENOSPC:when=4", BEGUN, ""),
    ("write:error=EIO:when=4", BEGUN, ""),
    ("write:error=EINTR:when=4", BEGUN, DONE),
    ("close:error=EIO:when=1..2", BEGUN, DONE),
]


@pytest.mark.kernel
@pytest.mark.parametrize("fault, during, after", REWRITES)
def test_a_rewrite_that_fails_is_silent(rig, fault, during, after):
    """Where the opening fails the file stays; where the writing fails it is left empty."""
    rig.save_times(5, 6)
    daemon = full_server(rig)
    log = rig.folder / "log"
    with fail_from_now_on(daemon, log, fault):
        begin_test(rig, daemon)
        assert content(rig) == during
        end_test(rig, daemon)
        assert content(rig) == after
    assert has_failed(log)


def test_the_daemon_remembers_what_the_file_does_not_hold(rig):
    """So it drops a request that its client, which reads the file, thought allowed."""
    rig.result_file = rig.folder / "missing" / "result.dat"
    daemon = full_server(rig)
    begin_test(rig, daemon)
    end_test(rig, daemon)
    assert rig.client("-n", "--test.duration=60") == ("", NO_RESULT_FILE, 0)
    daemon.wait_for_line("Got run test now", within=1.1)
    assert rig.status()["testing"] == 0
    assert [level for _, level in rig.trace.writes("BAT-T2")] == [0, 1, 0]


@pytest.mark.kernel
def test_a_file_that_cannot_be_read_counts_as_empty(rig, start_calls):
    """The stream library keeps the error to itself."""
    rig.save_times(5, 6)
    rig.configure("test.battery=true")
    name, number = nth_call(start_calls, r"read\(.*sys.save.path")
    log = rig.folder / "log"
    # Behind the configuration and its end.
    daemon = rig.daemon("-v", before=failing(log, f"{name}:error=EIO:when={number + 2}"))
    daemon.wait_for_line("Full server", within=1)
    assert has_failed(log)
    assert "startTimestamp           : 0\nendTimestamp             : 0\n" in daemon.stdout
    assert daemon.stderr == ""
    assert content(rig) == OLD


@pytest.fixture
def volume(rig):
    """Mounts a file system for the result file alone, with these options."""
    folder = rig.folder / "volume"
    folder.mkdir()
    rig.result_file = folder / "result.dat"

    def make(options):
        mount("tmpfs", str(folder), "tmpfs", options)
        return folder

    yield make
    subprocess.run(["umount", "--lazy", str(folder)], check=True)


def make_read_only(folder):
    # With the source, or `mount` repeats all options: the owner's number, too, which in a namespace
    # of users is refused.
    subprocess.run(["mount", "-o", "remount,ro", "tmpfs", str(folder)], check=True)


def test_a_full_file_system_leaves_a_new_file_empty(rig, volume):
    (volume("size=4k") / "other").write_bytes(bytes(4096))
    daemon = full_server(rig)
    assert daemon.stderr == NO_RESULT_FILE
    begin_test(rig, daemon)
    end_test(rig, daemon)
    assert content(rig) == ""
    assert listed_times(rig) == (0, 0, "")


def test_a_full_file_system_keeps_the_place_of_a_file_that_is_there(rig, volume):
    folder = volume("size=8k")
    rig.save_times(5, 6)
    (folder / "other").write_bytes(bytes(4096))
    daemon = full_server(rig)
    begin_test(rig, daemon)
    assert content(rig) == BEGUN
    end_test(rig, daemon)
    assert content(rig) == DONE


def test_a_file_system_without_room_for_a_name(rig, volume):
    volume("nr_inodes=1")
    daemon = full_server(rig)
    begin_test(rig, daemon)
    end_test(rig, daemon)
    assert content(rig) is None
    assert listed_times(rig) == (0, 0, NO_RESULT_FILE)


@pytest.mark.parametrize("times", [(5, 6), None], ids=["with a file", "without"])
def test_a_read_only_file_system_keeps_what_it_has(rig, volume, times):
    folder = volume("")
    if times:
        rig.save_times(*times)
    make_read_only(folder)
    daemon = full_server(rig)
    begin_test(rig, daemon)
    end_test(rig, daemon)
    assert content(rig) == (OLD if times else None)
    assert listed_times(rig) == ((5, 6, "") if times else (0, 0, NO_RESULT_FILE))


def test_a_file_system_that_becomes_read_only_during_a_test(rig, volume):
    """As after a power cut, the file holds a start later than its end."""
    folder = volume("")
    rig.save_times(5, 6)
    daemon = full_server(rig)
    begin_test(rig, daemon)
    make_read_only(folder)
    end_test(rig, daemon)
    assert content(rig) == BEGUN
    assert listed_times(rig) == (A_TIME + 1, 6, "")
