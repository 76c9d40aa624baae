"""Stands in for the commands that would end the simulated system."""

import re
from typing import Sequence

from guest.record import Record
from guest.seen import Call
from simulator import simulator

_SECOND = 10**9
_THEN = re.compile(
    r":|(?:(?:exec )?sleep (?P<seconds>[0-9.]+))?(?: >.*)?(?:; )?(?:exit (?P<status>[0-9]+))?"
)


class StandIns:
    """As the board's. `then` is ":", "sleep N", "exit N" or "sleep N; exit N"."""

    def __init__(self, names: Sequence[str] = (), then: str = ":"):
        parts = _THEN.fullmatch(then)
        shared = simulator().shared
        shared.command_lasts = round(float(parts["seconds"] or 0) * _SECOND)
        shared.command_status = int(parts["status"] or 0)
        self._record = Record("command")

    def calls(self) -> list[Call]:
        """All calls so far, oldest first."""
        return [
            Call(name, arguments, event.time, event.time + simulator().shared.wall)
            for event in self._record.events()
            for name, *arguments in [event.value.split()]
        ]

    def close(self) -> None:
        self._record.close()

    def __enter__(self) -> "StandIns":
        return self

    def __exit__(self, *_) -> None:
        self.close()
