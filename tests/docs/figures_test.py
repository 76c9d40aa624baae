"""scripts/figures, in a folder of its own."""

import json
import subprocess
from pathlib import Path

import pytest

_SCRIPT = Path(__file__).resolve().parent.parent.parent / "scripts" / "figures"
_KEPT = {
    "text": "In {days} days:",
    "values": {"days": 3},
    "columns": ["What", "How often"],
    "rows": [["falls", "1,000"], ["starts", "2"]],
}
_PAGE = "Before.\n\n<!-- figures: lives -->\n{}<!-- end -->\n\nAfter.\n"
_TABLE = "| What | How often |\n| --- | --- |\n| falls | 1,000 |\n| starts | 2 |\n"
_WRITTEN = _PAGE.format(f"In 3 days:\n\n{_TABLE}")


@pytest.fixture(name="page")
def fixture_page(tmp_path):
    (tmp_path / "figures").mkdir()
    (tmp_path / "figures" / "lives.json").write_text(json.dumps(_KEPT))
    page = tmp_path / "page.md"
    page.write_text(_PAGE.format("| old |\n"))
    return page


def run(page, *words, given=""):
    words = [_SCRIPT, *words, page.parent]
    return subprocess.run(words, input=given, capture_output=True, text=True)


def test_writes_what_is_kept_between_its_marks_and_nothing_else(page):
    assert run(page).returncode == 0
    assert page.read_text() == _WRITTEN


def test_a_check_shows_the_difference_and_changes_nothing(page):
    before = page.read_text()
    result = run(page, "--check")
    assert result.returncode == 1
    assert "\n-| old |\n" in result.stdout and "\n+| falls | 1,000 |\n" in result.stdout
    assert page.read_text() == before


def test_a_check_passes_a_page_that_was_written(page):
    run(page)
    result = run(page, "--check")
    assert (result.returncode, result.stdout) == (0, "")


@pytest.mark.parametrize("block", ["figures: others -->\n<!-- end", "figures: lives"])
def test_a_block_without_results_or_end_is_refused(page, block):
    page.write_text(f"<!-- {block} -->\n")
    result = run(page)
    assert result.returncode == 1
    assert "a block without its end, or without its results" in result.stderr


def test_results_that_no_page_shows_are_refused(page):
    page.write_text("")
    result = run(page)
    assert result.returncode == 1
    assert result.stderr == "results that no page shows: lives\n"


def test_long_text_is_folded(page):
    kept = page.parent / "figures" / "lives.json"
    kept.write_text(json.dumps({"text": "word " * 30}))
    run(page)
    lines = page.read_text().splitlines()
    assert lines[3] == " ".join(["word"] * 20)
    assert lines[4] == " ".join(["word"] * 10)


def test_results_are_kept_a_row_in_a_line_and_shown(page):
    (page.parent / "figures" / "lives.json").unlink()
    assert run(page, "--keep", "lives", given=json.dumps(_KEPT)).returncode == 0
    kept = (page.parent / "figures" / "lives.json").read_text()
    assert json.loads(kept) == _KEPT
    assert '\n    ["falls", "1,000"],\n' in kept
    assert page.read_text() == _WRITTEN
