"""The four lines of the machine, wired to AC power and a battery outside."""

from typing import NamedTuple, Optional

from guest.gpio_device import line_info
from guest.names import AT1, AT2, BAT_SW, LINES, PWR_IN
from guest.outside import ask

# The only controller.
_DEVICE = "/dev/gpiochip0"
_FIRST_OFFSET = 4


class Line(NamedTuple):
    name: str
    offset: int

    def level(self) -> int:
        """As a probe on the line shows it; the machine's time stands still for it."""
        return ask(levels=True)["levels"][self.name]

    def holder(self) -> Optional[str]:
        return line_info(_DEVICE, self.offset).holder


class Chip(NamedTuple):
    lines: list[Line]


class Board:
    def __init__(self):
        self.chip = Chip([Line(name, _FIRST_OFFSET + place) for place, name in enumerate(LINES)])
        self.pwr_in, self.at1, self.at2, self.bat_sw = self.chip.lines

    def ac(self, on: bool) -> None:
        """Plugs the AC supply in or out: PWR-IN reads 0 with AC power, 1 without."""
        ask(change={"ac": on})

    def battery(self, good: bool) -> None:
        """Charges or drains the battery: BAT-T1 reads 1 while it is good, 0 when low."""
        ask(change={"good": good})

    def plan(self, seconds: float, **change: bool) -> None:
        """Lets it happen so long from now: ac, good, exhausted. The machine may be off then."""
        ask(plan=round(seconds * 1e9), change=change)


def found() -> Board:
    return Board()


__all__ = ["AT1", "AT2", "BAT_SW", "PWR_IN", "Board", "found"]
