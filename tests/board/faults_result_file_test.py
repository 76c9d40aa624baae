"""The result file on full and read-only file systems, failing, and in pieces."""

import subprocess

import pytest

from faults import fail_from_now_on, failing, has_failed, nth_call
from rig import NO_RESULT_FILE, SYSTEM_CONFIGURATION

from guest.clock import set_wall
from guest.system_calls import mount

A_TIME = 1_790_000_000  # a second that the first test of each scenario begins in


@pytest.fixture
def volume(rig):
    """A file system of its own for the result file, one page in size."""
    folder = rig.folder / "volume"
    folder.mkdir()
    mount("tmpfs", str(folder), "tmpfs", "size=4k")
    rig.result_file = folder / "result.dat"
    yield folder
    subprocess.run(["umount", str(folder)], check=True)


def run_test(rig, daemon):
    """A test of one second, which goes as it would without a fault."""
    assert rig.client("-n", "--test.duration=1").status == 0
    daemon.wait_for_line("Got run test now", within=1.1)
    during = content(rig)
    daemon.wait_for_line("Test result: Battery is good", within=3)
    assert [level for _, level in rig.trace.writes("BAT-T2")] == [0, 1, 0]
    status = rig.status_of(rig.client("-s", "-c", "/dev/null"))
    return during


def content(rig):
    return rig.result_file.read_text() if rig.result_file.exists() else None
