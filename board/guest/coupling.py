"""Lets PWR-IN follow BAT-T2, as a relay in the supply would: run by `--coupled`."""

import time

from guest import board

# The simulator tells nobody of a change, so it has to be looked for.
_LOOK_EVERY_SECONDS = 0.01


def main() -> None:
    board.couple()
    wired = board.found()
    while True:
        wired.settle()
        time.sleep(_LOOK_EVERY_SECONDS)


if __name__ == "__main__":
    main()
