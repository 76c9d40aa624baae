"""What was measured, what it is held against, the arithmetic of both, and their tables."""

from statistics import median
from typing import Any, Mapping, NamedTuple, Optional, Sequence

from programs.names import BARE, DEFAULT, EMPTY, OVERDUE, SMALL, TRUE

# For each figure, for each program, the value of each round.
Results = dict[str, dict[str, list[float]]]
# The columns, and the rows below them.
Rows = list[list[Any]]
# By the names that they are kept under.
Tables = Mapping[str, Rows]

MISSED = "MISSED"

# In the order of the tables: the name, the unit, and digits behind the point.
_SHOWN = {
    "memory": ("resident memory", "kB", 0),
    "wake-ups": ("wake-ups per minute", "", 0),
    "calls": ("system calls per second", "", 1),
    "cpu": ("CPU time per minute, on the board", "ms", 1),
    "own cpu": ("CPU time per minute, on this machine", "ms", 2),
    "instructions": ("instructions per second, outside the kernel", "", 0),
    "start": ("start", "ms", 1),
    "status": ("status client", "ms", 2),
    "fall": ("AC power back after a falling battery line, worst", "ms", 1),
    "size": ("executable, stripped", "kB", 0),
}


class Figure(NamedTuple):
    key: str
    name: str
    unit: str
    digits: int  # behind the decimal point, where it is shown
    rounds: Mapping[str, Sequence[float]]  # for each program its value in each round

    @property
    def heading(self) -> str:
        return f"{self.name}, {self.unit}".rstrip(", ")

    def of(self, program: str) -> float:
        return median(self.rounds[program])

    def ratios(self, program: str, to: str) -> list[float]:
        """Of the two values of each round: what a round was disturbed by has disturbed both."""
        pairs = zip(self.rounds[program], self.rounds[to], strict=True)
        return [value / reference for value, reference in pairs]

    def text(self, value: float) -> str:
        return f"{value:,.{self.digits}f}"


class Goal(NamedTuple):
    """At most so much, or so many times the value of another program."""

    figure: str
    program: str
    most: float
    times: Optional[str] = None


# What neither the machine's speed nor other programs change.
COUNTED_GOALS = [
    Goal("wake-ups", DEFAULT, 60),
    Goal("wake-ups", SMALL, 60),
    Goal("calls", DEFAULT, 2),
    Goal("calls", SMALL, 2),
    Goal("calls", OVERDUE, 3),
    Goal("instructions", DEFAULT, 1.2, times=BARE),
    Goal("memory", SMALL, 2000),
]

GOALS = [
    *COUNTED_GOALS,
    Goal("memory", DEFAULT, 1.05, times=BARE),
    Goal("cpu", DEFAULT, 1.2, times=BARE),
    Goal("own cpu", DEFAULT, 1.2, times=BARE),
    Goal("start", DEFAULT, 2, times=EMPTY),
    Goal("status", DEFAULT, 1.5, times=EMPTY),
    Goal("status", SMALL, 1.5, times=TRUE),
    Goal("fall", DEFAULT, 100),
]


class Verdict(NamedTuple):
    goal: Goal
    figure: Figure
    value: float  # in the unit of the figure
    ratios: Sequence[float]  # of each round, where the goal is a number of times
    measure: float  # what is held against goal.most
    reached: bool


def figures_of(results: Results) -> list[Figure]:
    return [Figure(key, *shown, results[key]) for key, shown in _SHOWN.items() if key in results]


def judge(goals: Sequence[Goal], figures: Sequence[Figure]) -> list[Verdict]:
    by_key = {figure.key: figure for figure in figures}
    verdicts = []
    for goal in goals:
        figure = by_key[goal.figure]
        value = figure.of(goal.program)
        ratios = figure.ratios(goal.program, goal.times) if goal.times else []
        # By the digits that are shown: the edges of a window cut a call in or out.
        measure = median(ratios) if ratios else round(value, figure.digits)
        verdicts.append(Verdict(goal, figure, value, ratios, measure, measure <= goal.most))
    return verdicts


def judge_counts(results: Results) -> list[Verdict]:
    """With so many digits of the calls that one call more in the window shows."""
    figures = figures_of(results)
    exact = [figure._replace(digits=2) if figure.key == "calls" else figure for figure in figures]
    return judge(COUNTED_GOALS, exact)


def goal_rows(verdicts: Sequence[Verdict]) -> Rows:
    rows = [["Figure", "Of", "Measured", "Goal", "Ratio to the goal", ""]]
    for verdict in verdicts:
        goal, figure = verdict.goal, verdict.figure
        measured = f"{figure.text(verdict.value)} {figure.unit}".rstrip()
        aim = f"at most {figure.text(goal.most)} {figure.unit}".rstrip()
        if goal.times:
            lowest, highest = f"{min(verdict.ratios):.2f}", f"{max(verdict.ratios):.2f}"
            measured += f", {verdict.measure:.2f} times"
            measured += f" ({lowest} to {highest})" if lowest != highest else ""
            aim = f"at most {goal.most:g} times {goal.times}"
        share = f"{verdict.measure / goal.most:.2f}"
        outcome = "reached" if verdict.reached else MISSED
        rows.append([figure.name, goal.program, measured, aim, share, outcome])
    return rows


def program_rows(figures: Sequence[Figure]) -> Rows:
    """The median of each program; a program that has no such figure has a dash."""
    programs = dict.fromkeys(program for figure in figures for program in figure.rounds)
    rows = [["Program", *(figure.heading for figure in figures)]]
    for program in programs:
        values = (f.text(f.of(program)) if program in f.rounds else "-" for f in figures)
        rows.append([program, *values])
    return rows


def show(tables: Tables) -> None:
    # Only now, for it may just have been installed.
    from tabulate import tabulate

    how = {"tablefmt": "plain", "disable_numparse": True}
    print("\n\n".join(tabulate(rows, **how) for rows in tables.values()))
