"""On the board: lines of its own for each program, and daemons beside each other."""

import time
from pathlib import Path
from typing import Sequence

from guest.lines import AT1, AT2, BAT_SW, PWR_IN, make_chip

_OPTIONS = {"pwr-in": PWR_IN, "at1": AT1, "at2": AT2, "bat-sw": BAT_SW}


class Supply:
    """Four lines, AC power on and battery good, with names that begin with a number."""

    def __init__(self, number: int):
        self._number = number
        names = [self.name(line) for line in _OPTIONS.values()]
        self.chip = make_chip(names, {self.name(AT1): 1})

    def name(self, line: str) -> str:
        return f"{self._number}-{line}"

    def daemon(self, program: str, folder: Path, *words: str, tested: bool = True) -> list[str]:
        """The command line of a daemon here, whose last test was now, or never."""
        result = folder / f"result-{self._number}"
        if tested:
            now = int(time.time())
            result.write_text(f"result.start={now}\nresult.end={now}\n")
        conf = folder / f"conf-{self._number}"
        lines = [f"gpio.{option}={self.name(line)}\n" for option, line in _OPTIONS.items()]
        conf.write_text(f"sys.save.path={result}\n{''.join(lines)}")
        return [program, "-c", str(conf), *words]


def apart(argv: Sequence[str]) -> list[str]:
    """The same with records and lock of its own; nothing of it may be below /run."""
    script = 'mount -t tmpfs tmpfs /dev/shm && mount -t tmpfs tmpfs /run && exec "$@"'
    return ["unshare", "--mount", "sh", "-c", script, "sh", *argv]
