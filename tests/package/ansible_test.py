"""The role for a fleet, played by the host's Ansible in a system of its own, not booted."""

import shutil
import subprocess

import pytest

from debian_root import Root, base_system
from fleet import ROLE, command, counts, inventory
from packages import SYSTEMCTL, calls, run_systemd

CONFIGURATION = "etc/kelvo/kelvo-pwr.conf"
UNITS = "kelvo-pwr", "kelvo-pwr-monitor"
LIBRARY = "/usr/lib/python3/dist-packages"
# What is started is active from then on.
STARTED = """case "$*" in
  *restart*) ;;
  "start "*) touch "/run/started-$2" ;;
  "show "*) [ -e "/run/started-$2" ] && state=active || state=inactive
    printf 'Id=%s\\nLoadState=loaded\\nActiveState=%s\\n' "$2" $state ;;
  "enable "*) touch "/run/enabled-$2" ;;
  *is-enabled*) [ -e "/run/enabled-$2" ] || exit 1 ;;
esac
"""


@pytest.fixture
def board(mounts, libraries, deb, monitor_deb, tmp_path):
    base = base_system("ansible-root", [*libraries, "python3"])
    with Root(base, tmp_path) as root:
        run_systemd(root)
        (root.path / "bin/systemctl").write_text(SYSTEMCTL.replace("case", STARTED + "case"))
        library = root.path / "mnt/library"
        library.mkdir()
        subprocess.run(["mount", "--bind", LIBRARY, library], check=True)
        shutil.copytree(ROLE, root.path / "mnt/ansible")
        for package in (deb, monitor_deb):
            shutil.copy(package, root.path / "mnt")
        packages = f"/mnt/{deb.name}", f"/mnt/{monitor_deb.name}"
        (root.path / "mnt/fleet.yml").write_text(inventory(*packages))
        yield root


def play(board):
    """How many tasks changed something, and how many failed."""
    done = board.run(*command("/mnt/library", "/mnt/fleet.yml", "/mnt/ansible"))
    print(done.stdout, done.stderr)
    return counts(done.stdout)


def settings(board):
    lines = (board.path / CONFIGURATION).read_text().splitlines()
    return {line for line in lines if line and line[0] != "#"}


def test_the_second_time_nothing_changes(board):
    changed, failed = play(board)
    assert (changed > 0, failed) == (True, 0)
    assert settings(board) == {
        "test.battery=true",
        "test.shut.cmd=poweroff",
        "test.shut.cutoff=300",
        "sys.save.path=/var/lib/kelvo-pwr/kelvo-pwr.dat",
    }
    asked = calls(board)
    assert [f"start {unit}" in asked for unit in UNITS] == [True] * 2
    assert [(board.path / f"run/enabled-{unit}").exists() for unit in UNITS] == [True] * 2
    (board.path / "run/calls").unlink()
    assert play(board) == (0, 0)
    assert calls(board) == []


def test_a_setting_that_changes_restarts_the_daemon(board):
    play(board)
    (board.path / "run/calls").unlink()
    (board.path / CONFIGURATION).write_text("#test.battery=false\ntest.shut.cmd=poweroff\n")
    assert play(board) == (2, 0)
    assert settings(board) == {"test.battery=true", "test.shut.cmd=poweroff"}
    assert calls(board) == ["restart kelvo-pwr"]


def test_in_a_bad_moment_nothing_is_begun(board):
    play(board)
    (board.path / CONFIGURATION).write_text("test.battery=false\n")
    monitor = board.path / "usr/sbin/kelvo-pwr-monitor"
    monitor.write_text('#!/bin/sh\n[ "$*" = --gate ] && exit 1\n')
    assert play(board) == (0, 1)
    assert settings(board) == {"test.battery=false"}
