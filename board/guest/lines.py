"""Simulated GPIO chips, and the four lines that the board has."""

from pathlib import Path
from typing import Mapping, NamedTuple, Optional, Sequence

from guest.gpio_device import HeldLine, LineInfo, line_info
from guest.names import AT1, AT2, BAT_SW, LINES, MEANINGS, PWR_IN

__all__ = ["AT1", "AT2", "BAT_SW", "LINES", "MEANINGS", "PWR_IN", "Chip", "Line", "chips"]
__all__ += ["make_chip", "remove_chips"]

_CONFIGURATION = Path("/sys/kernel/config/gpio-sim")
_DEVICES = Path("/sys/devices/platform")


class Line(NamedTuple):
    name: Optional[str]
    offset: int  # the place on its chip
    device: str  # such as /dev/gpiochip0
    attributes: Path  # the simulator's folder for this line

    def pull(self, level: int) -> None:
        """Sets what an input reads, and what an output returns to when nobody holds it."""
        (self.attributes / "pull").write_text("pull-up" if level else "pull-down")

    def level(self) -> int:
        """The level now. Looking does not show in a trace."""
        return int((self.attributes / "value").read_text())

    def info(self) -> LineInfo:
        return line_info(self.device, self.offset)

    def holder(self) -> Optional[str]:
        """The label under which the line is held, or None while it is free."""
        return self.info().holder

    def hold(self, consumer: str = "somebody-else", output: Optional[int] = None) -> HeldLine:
        """Requests the line, so that no other process can, until released."""
        return HeldLine(self.device, self.offset, consumer, output)


class Chip:
    """A live chip of the kernel's GPIO simulator."""

    def __init__(self, folder: Path):
        """Finds a chip that exists; `make` makes a new one."""
        bank = folder / "bank0"
        self._folder = folder
        name = (bank / "chip_name").read_text().strip()
        platform_device = _DEVICES / (folder / "dev_name").read_text().strip()
        self.device = f"/dev/{name}"
        # The number that the kernel's trace gives the chip's first line.
        self.first_number = int(next(platform_device.glob("gpio/gpiochip*/base")).read_text())
        self.lines = [
            Line(
                (bank / f"line{offset}" / "name").read_text().strip() or None,
                offset,
                self.device,
                platform_device / name / f"sim_gpio{offset}",
            )
            for offset in range(int((bank / "num_lines").read_text()))
        ]

    def line(self, name: str) -> Line:
        """The first line of this name."""
        return next(line for line in self.lines if line.name == name)

    def remove(self) -> None:
        """Takes the chip away, as if it were unplugged; its lines may be held at the time."""
        (self._folder / "live").write_text("0")
        for folder in sorted(self._folder.glob("bank0/line*")):
            folder.rmdir()
        (self._folder / "bank0").rmdir()
        self._folder.rmdir()

    def __enter__(self) -> "Chip":
        return self

    def __exit__(self, *_) -> None:
        if self._folder.exists():
            self.remove()


def make_chip(names: Sequence[Optional[str]], pulls: Mapping[str, int] = {}) -> Chip:
    """Makes a chip with lines of these names; None leaves a line without one.

    Chips take the numbers of their devices in the order in which they are made.
    `pulls` gives levels by line name; every other line is pulled to 0.
    """
    number = 0
    while (folder := _CONFIGURATION / f"chip{number}").exists():
        number += 1
    bank = folder / "bank0"
    bank.mkdir(parents=True)
    (bank / "num_lines").write_text(str(len(names)))
    for offset, name in enumerate(names):
        (bank / f"line{offset}").mkdir()
        if name is not None:
            (bank / f"line{offset}" / "name").write_text(name)
    (folder / "live").write_text("1")
    chip = Chip(folder)
    for line in chip.lines:
        if pulls.get(line.name):
            line.pull(1)
    return chip


def chips() -> list[Chip]:
    """All chips that are there, in the order of their devices' numbers."""
    found = [Chip(folder) for folder in _CONFIGURATION.iterdir()]
    return sorted(found, key=lambda chip: int(chip.device.removeprefix("/dev/gpiochip")))


def remove_chips() -> None:
    for chip in chips():
        chip.remove()
