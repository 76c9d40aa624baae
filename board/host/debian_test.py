"""`board/board system` as seen from the host; run by pytest there, not on the board.

DEBIAN_RELEASE names the Debian to boot; without it that is the host's own.
"""

import json
import os
import platform
import subprocess
from pathlib import Path

import pytest

BOARD = Path(__file__).parent.parent / "board"
RELEASE = os.environ.get("DEBIAN_RELEASE")


def run(*command, options=()):
    release = ["--release", RELEASE] if RELEASE else []
    argv = [BOARD, "system", *release, *options, "--", *command]
    return subprocess.run(argv, capture_output=True, text=True, timeout=600)


@pytest.fixture(scope="module", autouse=True)
def tried():
    result = run("sh", "-c", "echo out; echo err >&2; systemctl is-system-running --wait; exit 3")
    if result.returncode == 77:
        pytest.skip(result.stderr)
    return result


def test_the_debian_is_the_one_that_was_asked_for():
    expected = RELEASE or platform.freedesktop_os_release()["VERSION_CODENAME"]
    assert f"VERSION_CODENAME={expected}" in run("cat", "/etc/os-release").stdout.splitlines()


def test_outputs_and_status_are_the_commands(tried):
    assert (tried.stdout, tried.stderr, tried.returncode) == ("out\nrunning\n", "err\n", 3)


def test_what_was_prepared_is_there_and_the_journal_is_kept(tmp_path):
    script = 'cat /etc/prepared; pwd; echo text >"$BOARD_OUTPUT/file"; logger said'
    options = ["--prepare", "echo before >/etc/prepared", "--output", tmp_path]
    result = run("sh", "-c", script, options=options)
    assert result.stdout == f"before\n/host{Path.cwd()}\n"
    assert (tmp_path / "file").read_text() == "text\n"
    messages = [json.loads(line)["MESSAGE"] for line in (tmp_path / "journal.json").open()]
    assert messages.index("said") < messages.index("Shutting down.")
    assert " / overlay ro," in (tmp_path / "mounts").read_text()
    assert "All filesystems unmounted." in (tmp_path / "kernel-messages").read_text()


def test_a_preparation_that_fails():
    result = run("true", options=["--prepare", "echo because; false; echo not reached"])
    assert result.returncode == 125
    assert result.stderr == "board: the preparation failed:\nbecause\n\n"


def test_a_system_that_goes_down_by_itself():
    result = run("sh", "-c", "systemctl reboot; sleep infinity")
    assert (result.returncode, result.stderr) == (125, "board: the command was ended by reboot\n")


def test_a_command_that_cannot_be_run():
    result = run("/no/such/command")
    assert result.returncode == 125
    assert result.stderr == "board: [Errno 2] No such file or directory: '/no/such/command'\n"


def test_an_ordinary_user_is_told_that_it_takes_root():
    command = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]
    if subprocess.run([*command, "test", "-x", BOARD]).returncode != 0:
        pytest.skip("other users cannot reach this checkout")
    argv = [*command, BOARD, "system", "--", "true"]
    result = subprocess.run(argv, capture_output=True, text=True)
    assert (result.returncode, result.stderr) == (
        77,
        "SKIP: a root file system of Debian can be made and read only by root\n",
    )
