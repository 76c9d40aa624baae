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

# The key is shown above the first group.
_LAYOUT = f"""\
set multiplot
set lmargin at screen {_LEFT / _WIDTH}
set rmargin at screen {_RIGHT / _WIDTH}
set logscale x
set xtics 0.001, 10 format "%g" textcolor rgb "{INK}" offset 0, 0.4
set grid noytics
set label 3 "Each line is ten times the one before." \\
  at screen 0, screen 1 offset character 1.5, -2.6
set key at screen 1, screen {{key}} horizontal maxrows 1 samplen 2 Left reverse width -1
"""
_GROUP = f"""\
$bars << end
{{rows}}
end
set tmargin at screen {{top}}
set bmargin at screen {{bottom}}
set label 2 {{heading}} at screen 0, screen {{top}} offset character 1.5, 0.9 font "{LARGE}"
set xrange [{{lowest}}:{{highest}}]
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
    script = _LAYOUT.format(key=1 - 24 / height)
    bottom = _TOP - _SCALE
    for figure in pictured:
        top = bottom + _SCALE + _HEADING
        bottom = top + _ROW * len(figure.rounds)
        values = {program: figure.of(program) for program in figure.rounds}
        limits = {
            goal.program: goal.most * (figure.of(goal.times) if goal.times else 1)
            for goal in goals
            if goal.figure == figure.key
        }
        rows = []
        for program, value in values.items():
            colour = OURS if program.startswith("kelvo-pwr") else OTHERS
            # One at 0 has no place.
            mark = limits.get(program, 0)
            text = quoted(figure.text(value))
            rows.append(f"{quoted(program)} {value} {mark} {text} 0x{colour[1:]}")
        script += _GROUP.format(
            rows="\n".join(rows),
            heading=quoted(figure.heading),
            count=len(values),
            # From the next power of ten, so that no bar is too short to be seen; a little less,
            # or gnuplot 6 may leave out the first on the scale.
            lowest=10 ** floor(log10(min(values.values())) - 0.1) * 0.9999,
            highest=max(*values.values(), *limits.values()),
            top=1 - top / height,
            bottom=1 - bottom / height,
        )
    return plot(_TITLE, _WIDTH, height, script)
