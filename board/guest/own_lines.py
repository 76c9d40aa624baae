"""Lines of its own for each of several daemons on one board."""

from typing import Union

from guest.lines import AT1, LINES, PWR_IN, make_chip

_OPTIONS = ("pwr-in", "at1", "at2", "bat-sw")


class OwnLines:
    """A chip of four lines, whose names begin with this word; `settings` lead a daemon to them."""

    def __init__(self, first: Union[int, str], power: bool = True, battery_good: bool = True):
        self.names = {line: f"{first}-{line}" for line in LINES}
        levels = {self.names[PWR_IN]: not power, self.names[AT1]: battery_good}
        self.chip = make_chip([*self.names.values()], levels)
        names = zip(_OPTIONS, self.names.values())
        self.settings = [f"gpio.{option}={name}" for option, name in names]
