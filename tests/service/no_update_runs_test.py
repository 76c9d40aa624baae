"""Whether an update runs, by the locks that it holds."""

import fcntl
import subprocess
from contextlib import contextmanager
from pathlib import Path

import pytest

COMMAND = Path(__file__).parents[2] / "service/no-update-runs"


@pytest.fixture
def locks(tmp_path):
    """One for flock(1), two as dpkg has them."""
    files = [tmp_path / name for name in ("update.lock", "lock-frontend", "lock")]
    for file in files:
        file.touch()
    return files


@contextmanager
def held(path, lock):
    with path.open("r+") as file:
        lock(file, fcntl.LOCK_EX)
        yield


def look(locks):
    done = subprocess.run([COMMAND, *locks], capture_output=True, text=True)
    assert done.stderr == ""
    return done.stdout, done.returncode


def test_nobody_holds_one(locks, tmp_path):
    other = tmp_path / "other"
    other.touch()
    with held(other, fcntl.lockf):
        assert look(locks) == ("", 0)


@pytest.mark.parametrize("number, lock", [(0, fcntl.flock), (1, fcntl.lockf), (2, fcntl.lockf)])
def test_an_update_holds_one(locks, number, lock):
    with held(locks[number], lock):
        told = f"No battery test is asked for: an update holds {locks[number]}\n"
        assert look(locks) == (told, 1)
    assert look(locks) == ("", 0)


def test_files_that_are_missing_are_held_by_nobody(locks):
    for file in locks:
        file.unlink()
    assert look(locks) == ("", 0)
    assert not locks[0].exists()
