"""The breaks that scripts/plant puts into the program still fit it."""

import subprocess
from pathlib import Path

import pytest

_HERE = Path(__file__).resolve().parent
_PATCHES = sorted((_HERE / "breaks").glob("*.patch"))


def test_there_are_breaks():
    assert _PATCHES


@pytest.mark.parametrize("patch", _PATCHES, ids=lambda patch: patch.stem)
def test_a_break_says_what_it_is_and_applies(patch):
    title, space, first, *_ = patch.read_text().split("\n")
    assert title and not space and first.startswith("--- a/src/")
    words = ["patch", "--strip=1", "--dry-run", "--fuzz=0", f"--input={patch}"]
    root = _HERE.parent.parent
    tried = subprocess.run(words, cwd=root, capture_output=True, text=True, check=False)
    assert tried.returncode == 0, tried.stdout
