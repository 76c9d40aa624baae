"""A story as text: time, what happened, and the levels of the four lines."""

import re
from typing import Iterator

from demo.record import Event, Record
from guest.lines import LINES, MEANINGS

_PROGRESS = re.compile(r"MS: \d+")
_WHO = {
    "daemon": "daemon  ",
    "error": "daemon! ",
    "client": "client  ",
    "command": "command ",
    "system": "system  ",
}


def timeline(record: Record) -> Iterator[str]:
    yield "Seconds on the board's own clock, which skips every wait, since the daemon started;"
    last = "" if record.is_machine else " Commands to the system are stand-ins."
    yield f"the levels of the four lines; what happened.{last}"
    yield ""
    yield f"{'seconds':>9}  {'  '.join(LINES)}"
    levels = dict(record.levels)
    for event in _folded(record.events):
        if event.kind == "chapter":
            yield ""
            yield f"{'':9}  -- {event.text} --"
            continue
        if event.kind in LINES:
            meaning = MEANINGS[event.kind][int(event.text)]
            changed = levels[event.kind] != int(event.text)
            levels[event.kind] = int(event.text)
            what = f"line     {event.kind} = {event.text}: {meaning}"
            if not changed:
                what += " (as before)"
        else:
            what = f"{_WHO.get(event.kind, ''):9}{event.text}" if event.kind in _WHO else event.text
        shown = "  ".join(f"{levels[line]:^6}" for line in LINES)
        yield f"{record.seconds(event.time):9.3f}  {shown}  {what}"


def _folded(events: list[Event]) -> Iterator[Event]:
    """Of a run of progress lines only the first and the last stay."""
    run: list[Event] = []
    for event in events:
        if event.kind == "daemon" and _PROGRESS.fullmatch(event.text):
            run.append(event)
            continue
        yield from _ends(run)
        run = []
        yield event
    yield from _ends(run)


def _ends(run: list[Event]) -> Iterator[Event]:
    if len(run) > 2:
        between = f"... {len(run) - 2} more, one a second ..."
        run = [run[0], Event(run[1].time, "daemon", between), run[-1]]
    yield from run
