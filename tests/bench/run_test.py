"""A short run: everything is measured, everything is ended."""

import json
import os
import signal
import subprocess
import time
from pathlib import Path

import pytest

from goals import CALLS, CPU, FALL, GOALS, INSTRUCTIONS, MEMORY, OWN_CPU, SIZE, START, STATUS
from goals import WAKE_UPS
from host.children import adopt_orphans
from processes import family
from programs import DEFAULT

ROOT = Path(__file__).parent.parent.parent

SHORT = ["--rounds", "2", "--window", "4", "--starts", "2", "--falls", "20"]
# Both builds are made, if they have to be.
LONGEST_WAIT_SECONDS = 600


def name_of(process):
    try:
        return Path(f"/proc/{process}/comm").read_text().strip()
    except (FileNotFoundError, ProcessLookupError):
        return ""


def assert_no_child_is_left():
    with pytest.raises(ChildProcessError):
        os.waitpid(-1, os.WNOHANG)


@pytest.fixture(autouse=True)
def adopted():
    """What is left behind becomes our child."""
    adopt_orphans()


def test_a_run_that_is_ended_ends_what_it_has_started(tmp_path):
    bench = subprocess.Popen(
        [ROOT / "bench" / "run", *SHORT, "--window", "600", "--output", tmp_path],
        stdout=subprocess.DEVNULL,
    )
    end = time.monotonic() + LONGEST_WAIT_SECONDS
    try:
        # One that would go on for ever.
        while "bare_loop" not in map(name_of, family(bench.pid)):
            if bench.poll() == 77:
                pytest.skip("this machine cannot measure")
            assert bench.returncode is None and time.monotonic() < end
            time.sleep(0.2)
    finally:
        bench.terminate()
    assert bench.wait() == 128 + signal.SIGTERM
    assert_no_child_is_left()


def test_a_short_run(tmp_path):
    done = subprocess.run(
        [ROOT / "bench" / "run", *SHORT, "--output", tmp_path], stdout=subprocess.PIPE, text=True
    )
    if done.returncode == 77:
        pytest.skip("this machine cannot measure")
    assert done.returncode in (0, 3), done
    assert_no_child_is_left()
    results = json.loads((tmp_path / "results.json").read_text())
    of_rounds = {CALLS, CPU, MEMORY, OWN_CPU, START, STATUS, WAKE_UPS}
    assert set(results) == {*of_rounds, FALL, INSTRUCTIONS, SIZE}
    for figure, programs in results.items():
        assert DEFAULT in programs
        rounds = 2 if figure in of_rounds else 1
        for program, values in programs.items():
            assert len(values) == rounds, (figure, program)
            assert min(values) > 0, (figure, program)
    # That one wakes up once a second and makes two calls does not depend on the machine.
    assert round(results[WAKE_UPS][DEFAULT][0] / 60) == 1
    assert round(results[CALLS][DEFAULT][0]) == 2
    lines = done.stdout.splitlines()
    verdicts = [line for line in lines if line.endswith(("reached", "MISSED"))]
    assert len(verdicts) == len(GOALS)
    assert (done.returncode == 0) == all(line.endswith("reached") for line in verdicts)
    assert (tmp_path / "cost.svg").read_text().startswith("<svg ")
    assert any(line.startswith(f"| {DEFAULT} |") for line in (tmp_path / "cost.md").open())
