"""What programs do with the lines of the simulated world."""

from guest.lines import name_of
from guest.record import Record
from guest.seen import Event, SeenLines


class Trace(SeenLines):
    """As the board's."""

    def __init__(self, writes_only: bool = False, buffer_kilobytes: int = 0):
        self._record = Record("write" if writes_only else "read", "write", "input", "output")

    def events(self) -> list[Event]:
        return self._named(self._record.events())

    def taken(self) -> list[Event]:
        """Hands out each event once."""
        return self._named(self._record.taken())

    @staticmethod
    def _named(events: list) -> list[Event]:
        return [
            Event(
                event.time,
                event.kind,
                name_of(event.subject),
                event.value if event.kind in ("read", "write") else None,
                event.process,
            )
            for event in events
        ]

    def clear(self) -> None:
        self._record.clear()

    def close(self) -> None:
        self._record.close()
