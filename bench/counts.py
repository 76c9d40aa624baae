"""What does not depend on the machine: in simulated time, where counts are exact."""

from figures import Verdict, judge
from goals import CALLS, COUNTED_GOALS
from measure import Results, collected
from on_board import on_board
from on_host import on_host
from programs import BARE, DEFAULT, OVERDUE, SMALL
from report import figures_of

_WINDOW_SECONDS = 60
_LONGEST_SECONDS = 300
# Show one call more in the window.
_DIGITS_OF_CALLS = 2


def counts(paths: dict[str, str]) -> Results:
    programs = [DEFAULT, OVERDUE, SMALL, BARE]
    task = {"paths": paths, "programs": programs, "rounds": 1, "window": _WINDOW_SECONDS}
    results = collected(on_board("idle.py", task, _LONGEST_SECONDS, realtime=False))
    results.update(on_host("instructions.py", task))
    return results


def judged(results: Results) -> list[Verdict]:
    figures = {figure.name: figure for figure in figures_of(results)}
    figures[CALLS] = figures[CALLS]._replace(digits=_DIGITS_OF_CALLS)
    return judge(COUNTED_GOALS, list(figures.values()))
