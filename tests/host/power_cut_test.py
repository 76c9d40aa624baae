"""A loss of power at the very start of a battery test: what the disk has then.

A copy of a mounted disk is what a board finds that starts again. Needs a loop device; runs
with a /dev/shm and a /run of its own.
"""

import os
import shutil
import subprocess
import time
from pathlib import Path

import pytest

PROGRAM = os.environ["KELVO_PWR"]
TMPFILES = Path(__file__).parent.parent.parent / "packaging/systemd/kelvo-pwr.tmpfiles"
STATE = "/var/lib/kelvo-pwr"


def run(*words):
    return subprocess.run([*map(str, words)], capture_output=True, text=True)


@pytest.fixture
def disk(tmp_path):
    """A mounted file system with its defaults, and the file that is its disk."""
    image, folder = tmp_path / "disk", tmp_path / "mounted"
    with image.open("wb") as file:
        file.truncate(16 * 2**20)
    assert run("mkfs.ext4", "-q", image).returncode == 0
    folder.mkdir()
    mounted = run("mount", "-o", "loop", image, folder)
    if mounted.returncode != 0:
        pytest.skip(f"no loop device: {mounted.stderr.strip()}")
    yield image, folder
    run("umount", folder)


def found_after_a_cut(image, tmp_path, name):
    """What the file of this name has on the disk as it is at this moment."""
    copy, folder = tmp_path / "copy", tmp_path / "after"
    shutil.copyfile(image, copy)
    folder.mkdir()
    mounted = run("mount", "-o", "loop", copy, folder)
    assert mounted.returncode == 0, mounted.stderr
    try:
        return (folder / name).read_text()
    finally:
        run("umount", folder)


# The file as an earlier version made it, and none.
@pytest.mark.parametrize("before", ["result.start=1\nresult.end=2\n", None])
def test_the_start_of_a_test_is_not_forgotten(disk, tmp_path, before):
    image, folder = disk
    state = folder / "state"
    state.mkdir()
    if before:
        (state / "times").write_text(before)
    lines = [line for line in TMPFILES.read_text().splitlines() if f" {STATE} " in line]
    places = tmp_path / "places.conf"
    places.write_text("".join(f"{line}\n" for line in lines).replace(STATE, str(state)))
    made = run("systemd-tmpfiles", "--create", places)
    assert (made.stdout, made.stderr, made.returncode) == ("", "", 0)
    run("sync", "--file-system", folder)

    configuration = tmp_path / "configuration"
    configuration.write_text(
        f"sys.save.path={state}/times\ntest.battery=true\ntest.hour=-1\ntest.duration=5\n"
    )
    environment = {**os.environ, "LD_PRELOAD": os.environ["STAND_IN"]}
    begin = int(time.time())
    with subprocess.Popen(
        [PROGRAM, "-c", configuration], stdout=subprocess.PIPE, text=True, env=environment
    ) as daemon:
        try:
            for line in daemon.stdout:
                if line == "Full server\n":
                    assert run(PROGRAM, "-c", configuration, "--run-test-now").returncode == 0
                if line.startswith("MS: "):
                    break
            times = found_after_a_cut(image, tmp_path, "state/times")
        finally:
            daemon.terminate()
    start = int(times.splitlines()[0].removeprefix("result.start="))
    assert begin <= start <= time.time()
    assert times == f"result.start={start}\nresult.end={2 if before else 0}\n"
