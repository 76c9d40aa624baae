"""The chips and lines of the simulated world."""

from typing import Mapping, NamedTuple, Optional, Sequence

from guest.names import AT1, AT2, BAT_SW, LINES, MEANINGS, PWR_IN
from simulator import simulator

__all__ = ["AT1", "AT2", "BAT_SW", "LINES", "MEANINGS", "PWR_IN", "Chip", "Line", "chips"]
__all__ += ["make_chip", "name_of", "remove_chips"]

# Who holds a line that no process of the world has requested.
_ANOTHER = -1


class HeldLine:
    """A line that another process has, until released; usable in a `with` statement."""

    def __init__(self, number: int, consumer: str, output: Optional[int]):
        self._line = simulator().shared.line[number]
        assert self._line.holder == 0
        self._line.holder, self._line.consumer = _ANOTHER, consumer.encode()
        self._line.driven = -1 if output is None else output

    def release(self) -> None:
        self._line.holder, self._line.driven = 0, -1

    def __enter__(self) -> "HeldLine":
        return self

    def __exit__(self, *_) -> None:
        self.release()


class Line(NamedTuple):
    name: Optional[str]
    offset: int  # the place on its chip
    number: int  # in the world

    def pull(self, level: int) -> None:
        """Sets what an input reads, and what an output returns to when nobody holds it."""
        simulator().shared.line[self.number].pull = level

    def follow(self, other: "Line") -> None:
        """From now on level 1 of the other one makes this one 1, as a relay does."""
        simulator().shared.line[self.number].follows = other.number

    def level(self) -> int:
        """The level now. Looking does not show in a trace."""
        line = simulator().shared.line[self.number]
        if line.driven >= 0:
            return line.driven
        follows = line.follows
        if follows >= 0 and Line(None, 0, follows).level() == 1:
            return 1
        return line.pull

    def holder(self) -> Optional[str]:
        """The label under which the line is held, or None while it is free."""
        line = simulator().shared.line[self.number]
        return line.consumer.decode() if line.holder else None

    def hold(self, consumer: str = "somebody-else", output: Optional[int] = None) -> HeldLine:
        """Requests the line, so that no other process can, until released."""
        return HeldLine(self.number, consumer, output)


class Chip:
    """A chip, found by its number."""

    def __init__(self, number: int):
        self._number = number
        self.device = f"/dev/gpiochip{number}"
        shared = simulator().shared
        own = [i for i in range(shared.lines) if shared.line[i].chip == number]
        self.lines = [
            Line(shared.line[i].name.decode() or None, offset, i) for offset, i in enumerate(own)
        ]

    def line(self, name: str) -> Line:
        """The first line of this name."""
        return next(line for line in self.lines if line.name == name)

    def remove(self) -> None:
        """Takes the chip away, as if it were unplugged; its lines may be held at the time."""
        simulator().shared.is_chip_there[self._number] = 0

    def __enter__(self) -> "Chip":
        return self

    def __exit__(self, *_) -> None:
        self.remove()


def make_chip(names: Sequence[Optional[str]], pulls: Mapping[str, int] = {}) -> Chip:
    """As the board's; where all chips are gone and nobody holds a line, numbers begin anew."""
    shared = simulator().shared
    if not chips() and not any(line.holder > 0 for line in shared.line[: shared.lines]):
        shared.chips = shared.lines = 0
    for name in names:
        line = shared.line[shared.lines]
        line.name, line.chip = (name or "").encode(), shared.chips
        line.holder, line.pull, line.driven, line.follows = 0, pulls.get(name, 0), -1, -1
        shared.lines += 1
    shared.is_chip_there[shared.chips] = 1
    shared.chips += 1
    return Chip(shared.chips - 1)


def chips() -> list[Chip]:
    """All chips that are there, in the order of their devices' numbers."""
    shared = simulator().shared
    return [Chip(number) for number in range(shared.chips) if shared.is_chip_there[number]]


def remove_chips() -> None:
    for chip in chips():
        chip.remove()


def name_of(number: int) -> Optional[str]:
    """Of a line, by its number in the world."""
    return simulator().shared.line[number].name.decode() or None
