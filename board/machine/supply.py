"""What stands around a board: AC power, a battery, and what the board's outputs do to both."""

from dataclasses import dataclass, replace

from guest.names import AT1, AT2, BAT_SW, PWR_IN

# Of an output that nobody drives, as docs/shutdown.md wants it from the hardware.
PULLS = {AT2: 0, BAT_SW: 1}


@dataclass
class Supply:
    """AC power reaches the board through the relay of BAT-T2, the battery through BAT-SW."""

    coupled: bool = False  # the AC sensor sits behind the relay
    ac: bool = True
    good: bool = True  # the battery's voltage suffices
    exhausted: bool = False  # the battery gives nothing, whatever its switch says
    relay: int = PULLS[AT2]
    switch: int = PULLS[BAT_SW]

    def inputs(self) -> dict[str, int]:
        missing = not self.ac or (self.coupled and self.relay == 1)
        return {PWR_IN: int(missing), AT1: int(self.good)}

    def powers(self) -> bool:
        """Whether the board has power."""
        return self.ac and self.relay == 0 or self.switch == 1 and not self.exhausted

    def driven(self, outputs: dict[str, int]) -> None:
        """The board's outputs have these levels now."""
        self.relay, self.switch = outputs[AT2], outputs[BAT_SW]

    def board_is_off(self) -> None:
        """Nobody drives the outputs. Without AC power the battery's switch stays as it is."""
        self.relay = PULLS[AT2]
        if self.ac:
            self.switch = PULLS[BAT_SW]

    def after(self, change: dict[str, bool]) -> "Supply":
        """What it would be."""
        supply = replace(self)
        supply.change(**change)
        return supply

    def change(self, **fields: bool) -> None:
        """From outside: ac, good, exhausted."""
        for name, value in fields.items():
            if name not in ("ac", "good", "exhausted"):
                raise ValueError(f"a supply has no {name!r}")
            setattr(self, name, value)
