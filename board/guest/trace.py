"""The kernel's own record of what programs do with GPIO lines.

Every read and write goes through a trace point of the kernel, so that nothing
a program does with a line is missed, not even a pulse that takes no time; the
program itself runs unchanged.
"""

import re
from typing import Optional

from guest.lines import chips
from guest.seen import Event, SeenLines
from guest.tracing import Recording, write

_RECORD = re.compile(
    r".*-(?P<process>\d+) +\[\d+\] \S+ +(?P<seconds>\d+)\.(?P<microseconds>\d{6}): "
    r"gpio_(?:value: (?P<number>\d+) (?P<action>get|set) (?P<level>\d+)"
    r"|direction: (?P<directed>\d+) +(?P<direction>in|out) \((?P<error>-?\d+)\))"
)


class Trace(SeenLines):
    """Records from its making until `close`; usable in a `with` statement.

    Only one can be open at a time. With `writes_only` reads are left out, for runs
    so long that a read every second would be too much to keep.
    """

    def __init__(self, writes_only: bool = False, buffer_kilobytes: int = 16384):
        self._events: list[Event] = []
        self._names: dict[int, Optional[str]] = {}
        write("events/gpio/gpio_value/filter", "get == 0" if writes_only else "0")
        self._recording = Recording("gpio", buffer_kilobytes=buffer_kilobytes)

    def events(self) -> list[Event]:
        """All events since the start or the last `clear`, oldest first.

        A chip must still be there when this is first called after an event on it:
        the name of a line is looked up then. Raises if the kernel lost events.
        """
        for chip in chips():
            self._names.update((chip.first_number + line.offset, line.name) for line in chip.lines)
        self._events.extend(map(self._parse, self._recording.lines()))
        return list(self._events)

    def taken(self) -> list[Event]:
        """Hands out each event once, so that a long trace fits into memory."""
        events = self.events()
        self._events.clear()
        return events

    def clear(self) -> None:
        """Forgets everything recorded so far."""
        self._recording.clear()
        self._events.clear()

    def close(self) -> None:
        self._recording.close()

    def _parse(self, text: str) -> Event:
        record = _RECORD.fullmatch(text)
        if record is None:
            raise RuntimeError(f"not a record of a GPIO line: {text!r}")
        time = int(record["seconds"]) * 10**9 + int(record["microseconds"]) * 1000
        process = int(record["process"])
        if record["direction"]:
            kind = "input" if record["direction"] == "in" else "output"
            return Event(time, kind, self._names.get(int(record["directed"])), None, process)
        kind = "read" if record["action"] == "get" else "write"
        name = self._names.get(int(record["number"]))
        return Event(time, kind, name, int(record["level"]), process)
