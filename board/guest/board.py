"""The four lines of the board, wired to AC power and a battery that a test plays."""

from pathlib import Path

from guest.lines import AT1, AT2, BAT_SW, PWR_IN, Chip, chips, make_chip

# Outlives the process that switched AC power; the coupling reads it too.
_AC_IS_OFF = Path("/run/board/ac-is-off")
# There while BAT-T2 has an effect on PWR-IN.
_IS_COUPLED = Path("/run/board/is-coupled")


class Board:
    """The lines by the names that the program's options have for them."""

    def __init__(self, chip: Chip):
        self.chip = chip
        self.pwr_in = chip.line(PWR_IN)
        self.at1 = chip.line(AT1)
        self.at2 = chip.line(AT2)
        self.bat_sw = chip.line(BAT_SW)

    def ac(self, on: bool) -> None:
        """Plugs the AC supply in or out: PWR-IN reads 0 with AC power, 1 without."""
        if on:
            _AC_IS_OFF.unlink(missing_ok=True)
        else:
            _AC_IS_OFF.parent.mkdir(exist_ok=True)
            _AC_IS_OFF.touch()
        self.settle()

    def battery(self, good: bool) -> None:
        """Charges or drains the battery: BAT-T1 reads 1 while it is good, 0 when low."""
        self.at1.pull(1 if good else 0)

    def settle(self) -> None:
        """Gives PWR-IN the level that follows from the supply and, if coupled, from BAT-T2."""
        disconnected = _IS_COUPLED.exists() and self.at2.level() == 1
        self.pwr_in.pull(1 if disconnected or _AC_IS_OFF.exists() else 0)


def wire(natural_pulls: bool = False) -> Board:
    """Makes the chip with the four lines: AC power on, battery good.

    The outputs are pulled to where the program does not drive them (BAT-T2 to 1,
    BAT-SW to 0), so that a line it fails to drive shows. With `natural_pulls` they
    are pulled as the hardware does: AC power and battery both connected.
    """
    _AC_IS_OFF.unlink(missing_ok=True)
    outputs = {AT2: 0, BAT_SW: 1} if natural_pulls else {AT2: 1, BAT_SW: 0}
    return Board(make_chip([PWR_IN, AT1, AT2, BAT_SW], {PWR_IN: 0, AT1: 1, **outputs}))


def found() -> Board:
    """The board that is already wired: `board/board run` does so before the command starts."""
    for chip in chips():
        if PWR_IN in (line.name for line in chip.lines):
            return Board(chip)
    raise LookupError(f"no chip has a line {PWR_IN}")


def couple() -> None:
    """From now on `Board.settle` lets BAT-T2 take AC power away."""
    _IS_COUPLED.parent.mkdir(exist_ok=True)
    _IS_COUPLED.touch()
