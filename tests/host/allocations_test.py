"""The loops allocate nothing of their own, so that they cannot come to want memory."""

import os
import re
import subprocess

import pytest

PROGRAM = os.environ["KELVO_PWR"]
PRELOADED = f"{os.environ['ALLOCATIONS']}:{os.environ['STAND_IN']}"
TICKS = 60
OF_A_READ = 3


@pytest.mark.parametrize(
    "settings, last_line",
    [
        (["--test.battery=true", "--test.hour=-1"], "Full server"),
        (["--test.battery=false"], "Minimal server"),
    ],
    ids=["full server", "minimal server"],
)
def test_only_the_line_library_allocates(tmp_path, settings, last_line):
    """With a test overdue, when the daemon looks at most: it has no result file."""
    stand_ins = {"LD_PRELOAD": PRELOADED, "TIME_IS_SIMULATED": "1"}
    conf = tmp_path / "conf"
    conf.write_text(f"sys.save.path={tmp_path}/result\n")
    done = subprocess.run(
        [PROGRAM, "-c", conf, *settings],
        env={**os.environ, **stand_ins, "TZ": "UTC"},
        capture_output=True,
        text=True,
        timeout=60,
    )
    assert done.returncode == 0
    assert done.stdout.splitlines() == ["Start", last_line]
    # The library makes some objects for each read of a line, and each tick has one.
    assert re.fullmatch(
        rf"Cant read timestamp conf\nallocates: \S+/libgpiodcxx\.so\.1 {TICKS * OF_A_READ}\n",
        done.stderr,
    ), done.stderr
