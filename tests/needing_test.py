"""A skip passes only where the run does not require what the test needs."""

import os
import subprocess
from pathlib import Path

import pytest

NEEDING = Path(__file__).parent / "needing"
SKIPPED, FAILED = 77, 1

SKIPS_AS_A_WHOLE = ("sh", "-c", "exit 77")
SKIPS_IN_PART = ("echo", "12 passed, 1 skipped, 2 warnings in 65.10s (0:01:05)")
SKIPS_IN_PART_VERBOSELY = ("echo", "======== 1 passed, 1 skipped in 0.01s =========")


def needing(*words, required="", path=os.environ["PATH"]):
    environment = {**os.environ, "KELVO_REQUIRES": required, "PATH": path}
    return subprocess.run([NEEDING, *words], env=environment, capture_output=True, text=True)


@pytest.mark.parametrize("command", [SKIPS_AS_A_WHOLE, SKIPS_IN_PART, SKIPS_IN_PART_VERBOSELY])
@pytest.mark.parametrize(
    "needs, required, status",
    [
        ("board", "", SKIPPED),
        ("board", "network root tools", SKIPPED),
        ("board", "root board", FAILED),
        ("board root", "board", SKIPPED),
        ("board root", "root board", FAILED),
        ("sh", "board", SKIPPED),
        ("sh", "tools", FAILED),
        ("tools", "tools", FAILED),
    ],
)
def test_a_skip(command, needs, required, status):
    assert needing(*needs.split(), "--", *command, required=required).returncode == status


@pytest.mark.parametrize(
    "script, status",
    [
        ("echo '12 passed in 1.00s'", 0),
        ("echo '1 skipped in 1.00s'; echo more", 0),
        ("echo '1 failed, 1 skipped in 1.00s'; exit 1", 1),
        ("exit 125", 125),
        ("kill -KILL $$", 137),
    ],
)
@pytest.mark.parametrize("required", ["", "board"])
def test_every_other_end_is_the_commands(script, status, required):
    assert needing("board", "--", "sh", "-c", script, required=required).returncode == status


@pytest.mark.parametrize("required, status", [("board", SKIPPED), ("board tools", FAILED)])
def test_a_tool_that_is_missing(tmp_path, required, status):
    (tmp_path / "echo").symlink_to("/usr/bin/echo")
    words = ("board", "echo", "valgrind", "--", "echo", "was run")
    done = needing(*words, required=required, path=str(tmp_path))
    assert done.stdout.splitlines()[0] == "SKIP: not installed: valgrind"
    assert done.returncode == status


def test_output_is_passed_on():
    done = needing("board", "--", "sh", "-c", "echo one; echo two >&2; printf three")
    assert (done.stdout, done.stderr) == ("one\nthree", "two\n")


def test_what_made_a_skip_an_error_is_told():
    done = needing("board", "--", *SKIPS_AS_A_WHOLE, required="root board")
    assert done.stdout == "needing: a skip is an error here: KELVO_REQUIRES is 'root board'\n"
