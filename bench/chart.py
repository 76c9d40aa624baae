"""The figures as a picture: a group of bars for each, with the goal where there is one."""

from html import escape
from typing import Sequence

from figures import Figure, Goal

_LEFT, _BAR, _RIGHT = 190, 430, 90
_ROW, _TITLE, _GAP = 18, 26, 14
_OURS, _OTHERS = "#1b6ac9", "#94a3b8"
_GOAL = "#c2410c"


def chart(figures: Sequence[Figure], goals: Sequence[Goal], title: str) -> str:
    parts, top = [], 40
    for figure in figures:
        parts += _group(figure, [goal for goal in goals if goal.figure == figure.name], top)
        top += _TITLE + _ROW * len(figure.rounds) + _GAP
    width = _LEFT + _BAR + _RIGHT
    return "\n".join(
        [
            f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{top}" '
            'font-family="sans-serif" font-size="12">',
            f"<title>{escape(title)}</title>",
            '<rect width="100%" height="100%" fill="#ffffff"/>',
            f'<text x="10" y="22" font-size="15" font-weight="bold">{escape(title)}</text>',
            *parts,
            "</svg>\n",
        ]
    )


def _group(figure: Figure, goals: Sequence[Goal], top: int) -> list[str]:
    values = {program: figure.of(program) for program in figure.rounds}
    longest = max(values.values()) or 1
    heading = f"{figure.name}, {figure.unit}".rstrip(", ")
    parts = [f'<text x="10" y="{top + 14}" font-weight="bold">{escape(heading)}</text>']
    for number, (program, value) in enumerate(values.items()):
        y = top + _TITLE + number * _ROW
        width = round(value / longest * _BAR, 1)
        limits = _limits(goals, program, values)
        # Beyond the bar and beyond its mark.
        free = round(_LEFT + max([value, *limits]) / longest * _BAR + 6, 1)
        colour = _OURS if program.startswith("kelvo-pwr") else _OTHERS
        parts += [
            f'<text x="{_LEFT - 8}" y="{y + 11}" text-anchor="end">{escape(program)}</text>',
            f'<rect x="{_LEFT}" y="{y}" width="{width}" height="{_ROW - 4}" fill="{colour}"/>',
            f'<text x="{free}" y="{y + 11}">{figure.text(value)}</text>',
        ]
        parts += [_mark(y, limit / longest) for limit in limits]
    return parts


def _limits(goals: Sequence[Goal], program: str, values: dict[str, float]) -> list[float]:
    """What the program's bar may reach, where that is on the picture."""
    limits = [
        goal.most * (values.get(goal.times, 0) if goal.times else 1)
        for goal in goals
        if goal.program == program
    ]
    return [limit for limit in limits if 0 < limit <= max(values.values())]


def _mark(y: int, share: float) -> str:
    x = round(_LEFT + share * _BAR, 1)
    return (
        f'<line x1="{x}" x2="{x}" y1="{y - 2}" y2="{y + _ROW - 2}" stroke="{_GOAL}" '
        'stroke-width="2"/>'
    )
