"""A short run: everything is measured, everything is ended."""

import json
import os
import signal
import subprocess
import time
from pathlib import Path

import pytest

from host.children import adopt_orphans
from processes import family
from programs.names import DEFAULT
from report.figures import GOALS

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


@pytest.fixture(name="docs")
def fixture_docs(tmp_path):
    """With a page that is to show both tables."""
    names = ("cost_goals", "cost_programs")
    marks = "".join(f"<!-- figures: {name} -->\n<!-- end -->\n" for name in names)
    (tmp_path / "docs" / "figures").mkdir(parents=True)
    (tmp_path / "docs" / "page.md").write_text(marks)
    for name in names:
        (tmp_path / "docs" / "figures" / f"{name}.json").write_text("{}")
    return tmp_path / "docs"


def test_a_short_run(tmp_path, docs):
    """How fast this machine is decides nothing here; what does not depend on it has a test."""
    done = subprocess.run(
        [ROOT / "bench" / "run", *SHORT, "--output", tmp_path, "--keep", docs],
        stdout=subprocess.PIPE,
        text=True,
    )
    if done.returncode == 77:
        pytest.skip("this machine cannot measure")
    assert done.returncode in (0, 3), done
    assert_no_child_is_left()
    results = json.loads((tmp_path / "results.json").read_text())
    of_rounds = {"calls", "cpu", "memory", "own cpu", "start", "status", "wake-ups"}
    assert set(results) == {*of_rounds, "fall", "instructions", "size"}
    for figure, programs in results.items():
        assert DEFAULT in programs
        rounds = 2 if figure in of_rounds else 1
        for program, values in programs.items():
            assert len(values) == rounds, (figure, program)
            assert min(values) > 0, (figure, program)
    lines = map(str.rstrip, done.stdout.splitlines())
    verdicts = [line for line in lines if line.endswith(("reached", "MISSED"))]
    assert len(verdicts) == len(GOALS)
    assert (done.returncode == 0) == all(line.endswith("reached") for line in verdicts)
    assert (docs / "cost.svg").read_text().startswith("<?xml ")
    page = (docs / "page.md").read_text().splitlines()
    shown = [line for line in page if line.endswith(("| reached |", "| MISSED |"))]
    assert len(shown) == len(GOALS)
    assert any(line.startswith(f"| {DEFAULT} | ") for line in page)
