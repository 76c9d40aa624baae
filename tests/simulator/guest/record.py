"""What happens in the simulated world, handed to those who want to see it."""

from typing import TYPE_CHECKING

from layout import KINDS
from simulator import Event, simulator

if TYPE_CHECKING:
    from guest.segment import Records

_records: list["Record"] = []
_printed: dict[int, list[Event]] = {}


class Record:
    """Collects the events of these kinds until `close`; usable in a `with` statement.

    For what the board cannot see, such as "field": each change of a field in the shared records,
    once `watch` has been told where they are.
    """

    def __init__(self, *kinds: str):
        _collect()
        self._kinds = kinds
        self._events: list[Event] = []
        _records.append(self)
        _choose()

    def events(self) -> list[Event]:
        _collect()
        return list(self._events)

    def taken(self) -> list[Event]:
        """Hands out each event once."""
        _collect()
        events, self._events = self._events, []
        return events

    def clear(self) -> None:
        _collect()
        self._events.clear()

    def close(self) -> None:
        if self in _records:
            _collect()
            _records.remove(self)
            _choose()

    def add(self, event: Event) -> None:
        if event.kind in self._kinds:
            self._events.append(event)

    @property
    def kinds(self) -> tuple[str, ...]:
        return self._kinds

    def __enter__(self) -> "Record":
        return self

    def __exit__(self, *_) -> None:
        self.close()


def watch(records: "Records") -> None:
    shared = simulator().shared
    shared.status_offset, shared.request_offset = records.status, records.request


def printed(process: int) -> list[Event]:
    """What this one has printed since last asked."""
    _collect()
    return _printed.pop(process, [])


def _collect() -> None:
    for event in simulator().taken():
        if event.kind == "printed":
            _printed.setdefault(event.process, []).append(event)
        for record in _records:
            record.add(event)


def _choose() -> None:
    """Has only what somebody wants recorded, for a long time has many events."""
    wanted = {"printed"}.union(*(record.kinds for record in _records))
    unwanted = (1 << number for number, kind in enumerate(KINDS) if kind not in wanted)
    simulator().shared.unrecorded = sum(unwanted)


_choose()
