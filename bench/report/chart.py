"""The figures as a picture: a group of bars for each, with the goal where there is one."""

from math import floor, log10
from typing import Sequence

from host.plot import INK, LARGE, MARK, OTHERS, OURS, plot, quoted
from report.figures import Figure, Goal

_TITLE = "What it costs, beside others"
# Not what has none but our own programs or a bare loop beside it.
_PICTURED = ("memory", "wake-ups", "calls", "cpu", "start", "status")

_WIDTH, _LEFT, _RIGHT = 720, 190, 640
_TOP, _ROW, _HEADING, _SCALE = 58, 18, 30, 34

_LAYOUT = f"""\
set multiplot
set lmargin at screen {_LEFT / _WIDTH}
set rmargin at screen {_RIGHT / _WIDTH}
set logscale x
set xtics textcolor rgb "{INK}" offset 0, 0.4
set grid noytics
set label 3 "Each line is ten times the one before." \\
  at screen 0, screen 1 offset character 1.5, -2.6
"""
# It is shown above the first group.
_KEY = "set key at screen 1, screen {} horizontal maxrows 1 samplen 2 Left reverse width -1\n"
_GROUP = f"""\
$bars << end
{{rows}}
end
set tmargin at screen {{top}}
set bmargin at screen {{bottom}}
set label 2 {{heading}} at screen 0, screen {{top}} offset character 1.5, 0.9 font "{LARGE}"
set xrange [{{lowest}}:{{highest}}]
set xtics ({{decades}})
set yrange [{{count}} - 0.5:-0.5]
plot $bars using ({{lowest}}):0:({{lowest}}):2:($0 - 0.38):($0 + 0.38):5:ytic(1) \\
  with boxxyerror linecolor rgb variable notitle, \\
  $bars using 3:($0 + 0.45):(0):(-0.9) \\
  with vectors nohead linewidth 2 linecolor rgb "{MARK}" notitle, \\
  $bars using ($3 > $2 ? $3 : $2):0:4 with labels left offset character 0.5, 0 notitle, \\
  keyentry with boxes linecolor rgb "{OURS}" title "kelvo-pwr", \\
  keyentry with boxes linecolor rgb "{OTHERS}" title "others", \\
  keyentry with points pointtype "┃" linecolor rgb "{MARK}" title "goal: at most"
unset key
unset label 1
unset label 3
"""


def chart(figures: Sequence[Figure], goals: Sequence[Goal]) -> str:
    pictured = [figure for figure in figures if figure.key in _PICTURED]
    height = _TOP + sum(_HEADING + _ROW * len(figure.rounds) + _SCALE for figure in pictured)
    script = _LAYOUT + _KEY.format(1 - 24 / height)
    bottom = _TOP - _SCALE
    for figure in pictured:
        top = bottom + _SCALE + _HEADING
        bottom = top + _ROW * len(figure.rounds)
        values = [figure.of(program) for program in figure.rounds]
        limits = [_limit(figure, program, goals) for program in figure.rounds]
        # From the next power of ten, so that no bar is too short to be seen.
        first, highest = floor(log10(min(values)) - 0.1), max(*values, *limits)
        decades = [10.0**power for power in range(first, floor(log10(highest)) + 1)]
        script += _GROUP.format(
            rows="\n".join(map(_row, figure.rounds, values, limits, map(figure.text, values))),
            heading=quoted(figure.heading),
            count=len(values),
            # A little less, or gnuplot 6 may leave out the first on the scale.
            lowest=decades[0] * 0.9999,
            highest=highest,
            decades=", ".join(f'"{decade:g}" {decade}' for decade in decades),
            top=1 - top / height,
            bottom=1 - bottom / height,
        )
    return plot(_TITLE, _WIDTH, height, script)


def _limit(figure: Figure, program: str, goals: Sequence[Goal]) -> float:
    """What the value may be at most; 0, which has no place, where there is no goal."""
    for goal in goals:
        if (goal.figure, goal.program) == (figure.key, program):
            return goal.most * (figure.of(goal.times) if goal.times else 1)
    return 0


def _row(program: str, value: float, limit: float, text: str) -> str:
    colour = OURS if program.startswith("kelvo-pwr") else OTHERS
    return f"{quoted(program)} {value} {limit} {quoted(text)} 0x{colour[1:]}"
