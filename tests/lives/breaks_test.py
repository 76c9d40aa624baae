"""The breaks that scripts/plant puts into the program still fit it, and lives show each."""

import json
import subprocess
import sys
from pathlib import Path

import pytest

_HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(_HERE))

import plant  # noqa: E402

_PATCHES = sorted((_HERE / "breaks").glob("*.patch"))


def test_a_life_is_kept_for_each():
    kept = json.loads((_HERE.parent.parent / "docs/figures/breaks.json").read_text())
    titles = [patch.read_text().split("\n", 1)[0] for patch in _PATCHES]
    assert sorted(titles) == sorted(row[0] for row in kept["rows"])
    assert all(int(row[1]) <= 2000 for row in kept["rows"])


@pytest.mark.parametrize("patch", _PATCHES, ids=lambda patch: patch.stem)
def test_a_break_says_what_it_is_and_applies(patch):
    title, space, first, *_ = patch.read_text().split("\n")
    assert title and not space and first.startswith("--- a/src/")
    words = ["patch", "--strip=1", "--dry-run", "--fuzz=0", f"--input={patch}"]
    root = _HERE.parent.parent
    tried = subprocess.run(words, cwd=root, capture_output=True, text=True, check=False)
    assert tried.returncode == 0, tried.stdout


@pytest.mark.parametrize("found, status", [("7", 0), ("none up to 2000", 1)])
def test_a_break_that_no_life_shows_is_an_error(monkeypatch, found, status):
    monkeypatch.setattr(plant, "Host", lambda on_board: None)
    monkeypatch.setattr(plant, "Copy", lambda folder: None)
    monkeypatch.setattr(plant, "row_of", lambda *_: ["A break", found, ""])
    monkeypatch.setattr(sys, "argv", ["plant", "one.patch"])
    assert plant.main() == status
