"""Lines of its own for each program, which runs beside others."""

from guest.lines import AT1, LINES, make_chip

_OPTIONS = ("pwr-in", "at1", "at2", "bat-sw")


class OwnLines:
    """Four lines, AC power on and battery good, with names that begin with a number."""

    def __init__(self, number: int = 0):
        self.names = {line: f"{number}-{line}" for line in LINES}
        self.chip = make_chip(list(self.names.values()), {self.names[AT1]: 1})
        # For a daemon here.
        names = zip(_OPTIONS, self.names.values())
        self.settings = [f"gpio.{option}={name}" for option, name in names]
