"""A story as a picture: the four lines over time, with what happened beside them."""

from demo.record import Record
from guest.lines import AT1, LINES, MEANINGS, PWR_IN
from host.plot import BAND, INK, LARGE, MARK, OURS, plot, quoted

_WIDTH, _HEIGHT, _LEFT = 1080, 540, 230
_MARKED = ("Start", "Test result", "Battery empty", "Execute", "Still alive", "kelvo-pwr: ")

# In units of which a line takes one and has one below it; above all lines what the daemon said,
# in two rows, and the titles of the chapters.
_LANES, _SAID, _CHAPTER = 2 * len(LINES), 1.3, 0.45
_LAYOUT = f"""\
unset key
set lmargin at screen {_LEFT / _WIDTH}
set rmargin at screen 0.98
set bmargin at screen 0.06
set tmargin at screen 0.93
set format x "%g s"
set xtics textcolor rgb "{INK}"
unset ytics
set style arrow 1 nohead dashtype (4,4) linecolor rgb "{INK}"
"""


def picture(record: Record) -> str:
    # A little more than there is, so that the last change shows.
    length = record.seconds(record.events[-1].time) * 1.02
    chapters = [(record.seconds(e.time), e.text) for e in record.events if e.kind == "chapter"]
    height = _LANES + _SAID + _CHAPTER * len(chapters)
    script = [f"set xrange [0:{length}]", f"set yrange [0:{height}]"]
    script += _chapters(chapters, length, height) + _said(record, length)
    for number, line in enumerate(LINES):
        script += _lane(record, line, _LANES - 1.4 - 2 * number, length)
    plots = (
        f'${_block(line)} with steps linewidth 2 linecolor rgb "{_look(line)[1]}"' for line in LINES
    )
    script.append(f"plot {', '.join(plots)}\n")
    return plot(_title(record), _WIDTH, _HEIGHT, _LAYOUT + "\n".join(script))


def _title(record: Record) -> str:
    if record.is_machine:
        return "A good battery test, a failed one, AC power lost, power cut, the next boot"
    coupling = " (BAT-T2 coupled to PWR-IN)" if record.coupled else ""
    return f"A good battery test, a failed one, AC power lost, the battery cut{coupling}"


def _chapters(chapters: list[tuple[float, str]], length: float, height: float) -> list[str]:
    script = []
    ends = [begin for begin, _ in chapters[1:]] + [length]
    for number, ((begin, title), end) in enumerate(zip(chapters, ends)):
        if number % 2:
            place = f"from {begin}, graph 0 to {end}, graph 1 behind"
            look = f'fillcolor rgb "{BAND}" fillstyle solid noborder'
            script.append(f"set object rectangle {place} {look}")
        y = height - _CHAPTER * (number + 0.5)
        script.append(_label(f"{number + 1}. {title}", begin, y, _side(begin, length)))
    return script


def _lane(record: Record, line: str, low: float, length: float) -> list[str]:
    """What goes with a line whose level 0 is at this height, and the line itself as data."""
    changes = record.changes(line)
    steps = [f"{seconds} {low + level}" for seconds, level in [*changes, (length, changes[-1][1])]]
    kind, colour = _look(line)
    left = "offset character -1, 0 right"
    return [
        f"set label {quoted(line)} at screen 0.01, first {low + 0.7} font {quoted(LARGE)}",
        f'set label "{kind}" at screen 0.01, first {low + 0.15} textcolor rgb "{colour}"',
        *(_label(f"{MEANINGS[line][level]} {level}", 0, low + level, left) for level in (0, 1)),
        f"${_block(line)} << end",
        *steps,
        "end",
    ]


def _said(record: Record, length: float) -> list[str]:
    sources = ("daemon", "system")
    said = [e for e in record.events if e.kind in sources and e.text.startswith(_MARKED)]
    script = []
    for number, event in enumerate(said):
        seconds = record.seconds(event.time)
        # Two rows, because neighbours may be close.
        y = _LANES + _SAID * (0.7 if number % 2 else 0.3)
        script.append(f"set arrow from {seconds}, 0 to {seconds}, {y + 0.2} arrowstyle 1")
        script.append(_label(event.text, seconds, y, _side(seconds, length)))
    return script


def _side(seconds: float, length: float) -> str:
    """Of the moment, on which there is room for a text."""
    side = "-0.5, 0 right" if seconds > length * 0.8 else "0.5, 0 left"
    return f"offset character {side}"


def _label(text: str, x: float, y: float, how: str) -> str:
    return f'set label {quoted(text)} at {x}, {y} front textcolor rgb "{INK}" {how}'


def _look(line: str) -> tuple[str, str]:
    return ("input", OURS) if line in (PWR_IN, AT1) else ("output", MARK)


def _block(line: str) -> str:
    return line.replace("-", "_")
