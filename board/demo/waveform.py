"""A story as a value change dump, which waveform viewers open."""

from demo.record import Record
from guest.lines import LINES

_IDENTIFIERS = dict(zip(LINES, "!\"#$"))


def waveform(record: Record) -> str:
    """One time unit is a microsecond; the end of the story is marked by a last time."""
    changes = [
        (round(seconds * 1e6), line, level)
        for line in LINES
        for seconds, level in record.changes(line)
    ]
    text = ["$timescale 1 us $end", "$scope module board $end"]
    text += [f"$var wire 1 {_IDENTIFIERS[line]} {line.replace('-', '_')} $end" for line in LINES]
    text += ["$upscope $end", "$enddefinitions $end"]
    present = None
    for time, line, level in sorted(changes, key=lambda change: change[0]):
        if time != present:
            text.append(f"#{time}")
            present = time
        text.append(f"{level}{_IDENTIFIERS[line]}")
    text.append(f"#{round(record.seconds(record.events[-1].time) * 1e6)}")
    return "\n".join(text) + "\n"
