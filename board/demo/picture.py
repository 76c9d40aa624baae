"""A story as a picture: the four lines over time, with what happened beside them."""

from html import escape

from demo.record import Record
from guest.lines import AT1, LINES, MEANINGS, PWR_IN

_LEFT, _WIDTH, _RIGHT = 220, 840, 20
_TOP, _LANE, _HEIGHT = 196, 70, 34
_INPUTS = (PWR_IN, AT1)
_HALO = 'paint-order="stroke" stroke="#ffffff" stroke-width="3"'
_MARKED = ("Start", "Test result", "Battery empty", "Execute", "Still alive")


def picture(record: Record) -> str:
    # A little more than there is, so that the last change shows.
    length = record.seconds(record.events[-1].time) * 1.02
    height = _TOP + len(LINES) * _LANE + 40

    def x(seconds: float) -> float:
        return round(_LEFT + max(0.0, seconds) / length * _WIDTH, 1)

    parts = [
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{_LEFT + _WIDTH + _RIGHT}" '
        f'height="{height}" font-family="sans-serif" font-size="13">',
        f"<title>{escape(_title(record))}</title>",
        '<rect width="100%" height="100%" fill="#ffffff"/>',
        f'<text x="{_LEFT}" y="24" font-size="16" font-weight="bold">{escape(_title(record))}</text>',
        *_chapters(record, x, length, height),
        *_axis(x, length, height),
    ]
    for number, line in enumerate(LINES):
        parts += _lane(record, line, _TOP + number * _LANE, x, length)
    parts += _marks(record, x, height)
    return "\n".join([*parts, "</svg>"]) + "\n"


def _title(record: Record) -> str:
    coupling = " (BAT-T2 coupled to PWR-IN)" if record.coupled else ""
    return f"A good battery test, a failed one, AC power lost, the battery cut{coupling}"


def _chapters(record: Record, x, length: float, height: int) -> list[str]:
    begins = [(record.seconds(e.time), e.text) for e in record.events if e.kind == "chapter"]
    ends = [begin for begin, _ in begins[1:]] + [length]
    bands = [
        f'<rect x="{x(begin)}" y="36" width="{round(x(end) - x(begin), 1)}" '
        f'height="{height - 66}" fill="#f1f5f9"/>'
        for (begin, _), end in list(zip(begins, ends))[1::2]
    ]
    titles = [
        f'<text x="{x(begin) + 4}" y="{50 + number * 14}" font-size="11" fill="#475569" '
        f'{_HALO}>{number + 1}. {escape(title)}</text>'
        for number, (begin, title) in enumerate(begins)
    ]
    return bands + titles


def _axis(x, length: float, height: int) -> list[str]:
    step = next(step for step in (10, 20, 50, 100, 200, 500, 1000) if length / step < 12)
    parts = []
    for seconds in range(0, int(length) + 1, step):
        parts.append(
            f'<line x1="{x(seconds)}" x2="{x(seconds)}" y1="{_TOP - 12}" y2="{height - 30}" '
            'stroke="#e2e8f0"/>'
        )
        parts.append(
            f'<text x="{x(seconds)}" y="{height - 12}" text-anchor="middle" '
            f'fill="#475569">{seconds} s</text>'
        )
    return parts


def _lane(record: Record, line: str, top: int, x, length: float) -> list[str]:
    changes = record.changes(line)

    def y(level: int) -> int:
        return top + (0 if level else _HEIGHT)

    path = [f"M{x(0)} {y(changes[0][1])}"]
    for seconds, level in changes[1:]:
        path.append(f"H{x(seconds)} V{y(level)}")
    path.append(f"H{x(length)}")
    low, high = MEANINGS[line]
    kind, colour = ("input", "#1b6ac9") if line in _INPUTS else ("output", "#c2410c")
    return [
        f'<text x="10" y="{top + 15}" font-weight="bold">{line}</text>',
        f'<text x="10" y="{top + 30}" font-size="11" fill="{colour}">{kind}</text>',
        f'<text x="{_LEFT - 8}" y="{top + 5}" text-anchor="end" font-size="10" '
        f'fill="#475569">{high} 1</text>',
        f'<text x="{_LEFT - 8}" y="{top + _HEIGHT + 3}" text-anchor="end" font-size="10" '
        f'fill="#475569">{low} 0</text>',
        f'<path d="{" ".join(path)}" fill="none" stroke="{colour}" stroke-width="2"/>',
    ]


def _marks(record: Record, x, height: int) -> list[str]:
    marked = [e for e in record.events if e.kind == "daemon" and e.text.startswith(_MARKED)]
    lines, labels = [], []
    for number, event in enumerate(marked):
        place = x(record.seconds(event.time))
        # Two rows, because neighbours may be close.
        y = _TOP - 50 + number % 2 * 16
        side, offset = ("end", -4) if place > _LEFT + _WIDTH * 0.8 else ("start", 4)
        lines.append(
            f'<line x1="{place}" x2="{place}" y1="{y - 10}" y2="{height - 30}" '
            'stroke="#64748b" stroke-dasharray="3 3"/>'
        )
        labels.append(
            f'<text x="{place + offset}" y="{y}" text-anchor="{side}" font-size="11" '
            f'font-family="monospace" {_HALO}>{escape(event.text)}</text>'
        )
    return lines + labels
