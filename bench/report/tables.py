"""The figures as rows of text: one table of goals, one of all programs."""

from typing import Mapping, Sequence

from report.figures import Figure, Verdict
from tabulate import tabulate

Rows = list[list[str]]


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
        outcome = "reached" if verdict.reached else "MISSED"
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


def show(tables: Mapping[str, Rows]) -> None:
    how = {"tablefmt": "plain", "disable_numparse": True}
    print("\n\n".join(tabulate(rows, **how) for rows in tables.values()))
