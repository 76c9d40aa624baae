"""The loops allocate nothing of their own, so that they cannot come to want memory."""

import os
import re
import subprocess
from pathlib import Path

import pytest

PROGRAM = os.environ["KELVO_PWR"]
PRELOADED = f"{os.environ['ALLOCATIONS']}:{os.environ['STAND_IN']}"
TICKS = 60
# The bindings of libgpiod's version 1 make some objects for each read of a line, and each tick has
# one. Version 2 is used without bindings.
OF_A_READ = 3
BINDINGS = b"libgpiodcxx.so" in Path(PROGRAM).read_bytes()
ALLOCATES = rf"allocates: \S+/libgpiodcxx\.so\.1 {TICKS * OF_A_READ}\n" if BINDINGS else ""


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
    assert re.fullmatch(rf"Cant read timestamp conf\n{ALLOCATES}", done.stderr), done.stderr
