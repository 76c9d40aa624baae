"""What a run of lives ends with."""

import subprocess
import sys
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).parent))

import soak  # noqa: E402
from on_host import ROOT  # noqa: E402


@pytest.mark.parametrize("script", ["soak", "plant"])
def test_a_build_that_is_missing_is_said_once(tmp_path, script):
    missing = tmp_path / "kelvo-pwr"
    done = subprocess.run(
        [ROOT / "scripts" / script], env={"KELVO_PWR": missing}, capture_output=True, text=True
    )
    told = f"{missing} is missing; scripts/build release makes it\n"
    assert (done.returncode, done.stdout, done.stderr) == (77, "", told)


@pytest.mark.parametrize(
    "verdicts, status",
    [
        ({}, 0),
        ({199: "undecided", 200: "undecided"}, 0),
        ({1: "undecided", 99: "undecided", 200: "undecided"}, 1),
        (dict.fromkeys(range(1, 201), "undecided"), 1),
        ({7: "mismatch"}, 1),
        ({200: "failed"}, 1),
    ],
)
def test_few_lives_may_be_without_a_verdict_and_none_goes_wrong(verdicts, status):
    class Host:
        def seeds(self, first, count):
            for seed in range(first, first + count):
                verdict = verdicts.get(seed, "agreed")
                yield {"seed": seed, "verdict": verdict, "detail": None, "steps": 1, "seconds": 1}

    assert soak.soak(Host(), 1, 200, is_kept=False) == status
