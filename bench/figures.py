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


class Verdict(NamedTuple):
    goal: Goal
    figure: Figure
    value: float  # in the unit of the figure
    ratios: Sequence[float]  # of each round, where the goal is a number of times

    @property
    def measure(self) -> float:
        """What is held against goal.most."""
        return median(self.ratios) if self.ratios else self.value

    @property
    def reached(self) -> bool:
        """A number by the digits that are shown: the edges of a window cut a call in or out."""
        if self.goal.times:
            return self.measure <= self.goal.most
        return round(self.measure, self.figure.digits) <= self.goal.most


def judge(goals: Sequence[Goal], figures: Sequence[Figure]) -> list[Verdict]:
    """The verdict on each goal."""
    by_name = {figure.name: figure for figure in figures}
    verdicts = []
    for goal in goals:
        figure = by_name[goal.figure]
        value = figure.of(goal.program)
        ratios = figure.ratios(goal.program, goal.times) if goal.times else []
        verdicts.append(Verdict(goal, figure, value, ratios))
    return verdicts
