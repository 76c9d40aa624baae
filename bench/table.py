"""The figures as text: one table of goals, one of all programs."""

from typing import Sequence

from figures import Figure, Verdict


def goal_rows(verdicts: Sequence[Verdict]) -> list[list[str]]:
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
        rows.append([goal.figure, goal.program, measured, aim, share, outcome])
    return rows


def program_rows(figures: Sequence[Figure]) -> list[list[str]]:
    """The median of each program; a program that has no such figure has a dash."""
    programs = list(dict.fromkeys(program for figure in figures for program in figure.rounds))
    rows = [["Program", *(f"{figure.name}, {figure.unit}".rstrip(", ") for figure in figures)]]
    for program in programs:
        values = [
            figure.text(figure.of(program)) if program in figure.rounds else "-"
            for figure in figures
        ]
        rows.append([program, *values])
    return rows


def markdown(rows: Sequence[Sequence[str]]) -> str:
    header, *body = rows
    lines = [header, ["---"] * len(header), *body]
    return "".join(f"| {' | '.join(line)} |\n" for line in lines)


def plain(rows: Sequence[Sequence[str]]) -> str:
    widths = [max(map(len, column)) for column in zip(*rows)]
    return "".join(
        "  ".join(text.ljust(width) for text, width in zip(row, widths)).rstrip() + "\n"
        for row in rows
    )
