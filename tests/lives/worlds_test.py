"""The same lives on the board and in a simulated world: what is seen is the same, event by event.

SAME_LIVES says how many. The board's steps are done again at their times, in simulated time that
charges what the board's does, so that spans between two things that the daemon does by itself are
the same, too, to a few microseconds: the kernel's trace rounds, and a reader of printed lines looks
at the clock. Where a step lies between, the board takes its time for it: a start or a signal some
ten microseconds.
"""

import json
import os
import re
import sys
from itertools import zip_longest
from pathlib import Path

import pytest

sys.path.insert(0, str(Path(__file__).parent))

from on_host import CannotRun, Host  # noqa: E402

_LIVES = int(os.environ.get("SAME_LIVES", "5"))
_FIRST = 1021
_BY_ITSELF, _BY_A_STEP = 4_000, 100_000  # nanoseconds
_NOT_TIMED = ("answered", "stderr")


def test_lives_are_the_same(tmp_path, monkeypatch):
    on_board, simulated = Host(on_board=True), Host(on_board=False)
    seen = tmp_path / "report"
    monkeypatch.setenv("LIVES_STORY", "1")
    try:
        reports = list(on_board.seeds(_FIRST, _LIVES))
    except CannotRun as reason:
        pytest.skip(str(reason))
    monkeypatch.setenv("LIVES_AS_SEEN", str(seen))
    events, apart = 0, []
    for report in reports:
        seen.write_text(json.dumps(report))
        again = simulated.file(report["seed"], str(report["begin"]))
        assert report["verdict"] == again["verdict"] == "agreed"
        board, simulation = by_kind(report), by_kind(again)
        assert board.keys() == simulation.keys()
        for kind in board:
            for one, same in zip_longest(board[kind], simulation[kind]):
                events += 1
                assert is_same(one, same), f"life {report['seed']}: {one} and {same}"
        for kind in board.keys() - {*_NOT_TIMED}:
            apart += spans_apart(report["moments"], board[kind], simulation[kind])
    by_itself = [span for span, is_step in apart if not is_step]
    by_a_step = [span for span, is_step in apart if is_step]
    print(
        f"{len(reports)} lives, {events} events, spans apart in nanoseconds: at most"
        f" {max(by_itself)} of {len(by_itself)}, {max(by_a_step)} of {len(by_a_step)} with a step"
    )
    assert max(by_itself) <= _BY_ITSELF
    assert max(by_a_step) <= _BY_A_STEP


def is_same(one, other) -> bool:
    """A millisecond may just be over on the one."""
    if one is None or other is None:
        return False
    progress = [re.fullmatch(r"MS: (\d+)", str(event[2])) for event in (one, other)]
    if all(progress):
        return abs(int(progress[0][1]) - int(progress[1][1])) <= 1
    return one[1:] == other[1:]


def by_kind(report: dict) -> dict:
    """The board sees each of them for itself."""
    kinds: dict[str, list] = {}
    for event in report["story"]:
        kind = event[1] if event[1] in ("stdout", "called", *_NOT_TIMED) else "line"
        kinds.setdefault(kind, []).append(event)
    return kinds


def spans_apart(moments: list, board: list, simulation: list) -> list[tuple[int, bool]]:
    """Of each event from the one before it; and whether a step lies between."""
    spans, last = [], (0, 0)
    for (time, *_), (other, *_) in zip(board, simulation):
        is_step = any(last[0] <= moment <= time for moment in moments)
        spans.append((abs(time - last[0] - other + last[1]), is_step))
        last = time, other
    return spans
