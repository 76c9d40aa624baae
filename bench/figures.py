"""What was measured, what it is held against, and the arithmetic of both."""

from statistics import median
from typing import Mapping, NamedTuple, Optional, Sequence


class Figure(NamedTuple):
    name: str
    unit: str
    digits: int  # behind the decimal point, where it is shown
    rounds: Mapping[str, Sequence[float]]  # for each program its value in each round

    def of(self, program: str) -> float:
        return median(self.rounds[program])

    def ratio(self, program: str, to: str) -> float:
        """Of the two values of each round, and the median of these: what a round was
        disturbed by has disturbed both."""
        pairs = zip(self.rounds[program], self.rounds[to], strict=True)
        return median(value / reference for value, reference in pairs)

    def text(self, value: float) -> str:
        return f"{value:,.{self.digits}f}"


class Goal(NamedTuple):
    """At most so much, or so many times the value of another program."""

    figure: str
    program: str
    most: float
    times: Optional[str] = None


class Verdict(NamedTuple):
    goal: Goal
    figure: Figure
    value: float  # in the unit of the figure
    measure: float  # what is held against goal.most

    @property
    def reached(self) -> bool:
        """By the digits that are shown: the edges of a window cut a call in or out."""
        digits = 2 if self.goal.times else self.figure.digits
        return round(self.measure, digits) <= self.goal.most


def judge(goals: Sequence[Goal], figures: Sequence[Figure]) -> list[Verdict]:
    """The verdict on each goal of which everything has been measured."""
    by_name = {figure.name: figure for figure in figures}
    verdicts = []
    for goal in goals:
        figure = by_name.get(goal.figure)
        if figure is None or not {goal.program, goal.times or goal.program} <= {*figure.rounds}:
            continue
        value = figure.of(goal.program)
        measure = figure.ratio(goal.program, goal.times) if goal.times else value
        verdicts.append(Verdict(goal, figure, value, measure))
    return verdicts
