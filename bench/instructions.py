"""Instructions of a tick outside the kernel, which no noise changes; valgrind counts them.

instructions.py TASK: paths of the programs, as JSON. Prints the result.
"""

import json
import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path
from typing import Sequence

from builds import STAND_IN
from goals import INSTRUCTIONS
from programs import BARE, BARE_CLOCK, DEFAULT, MINIMAL

# From one to the other there are ticks only; the start is in both.
_FEW_TICKS, _MANY_TICKS = 100, 1100
# A little before the stand-in's begin of time: no test is due.
_LAST_TEST = 1_717_400_000
_COUNTED = re.compile(r"I\s+refs:\s+([\d,]+)")


def counted(argv: Sequence[str], ticks: int) -> int:
    valgrind = ["valgrind", "--tool=cachegrind", "--cache-sim=no"]
    stand_in = {
        "LD_PRELOAD": str(STAND_IN),
        "TIME_IS_SIMULATED": "1",
        "ENDS_AT_SLEEP": str(ticks),
        "TZ": "UTC",
    }
    done = subprocess.run(
        [*valgrind, "--cachegrind-out-file=/dev/null", *argv],
        env={**os.environ, **stand_in},
        stdin=subprocess.DEVNULL,
        capture_output=True,
        text=True,
        check=True,
    )
    return int(_COUNTED.search(done.stderr)[1].replace(",", ""))


def of_a_tick(argv: Sequence[str]) -> float:
    more = counted(argv, _MANY_TICKS) - counted(argv, _FEW_TICKS)
    return more / (_MANY_TICKS - _FEW_TICKS)


def main() -> None:
    paths = json.loads(sys.argv[1])["paths"]
    with tempfile.TemporaryDirectory() as folder:
        result, conf = Path(folder) / "result", Path(folder) / "conf"
        result.write_text(f"result.start={_LAST_TEST}\nresult.end={_LAST_TEST}\n")
        conf.write_text(f"sys.save.path={result}\n")
        daemon = [paths[DEFAULT], "-c", str(conf)]
        programs = {
            DEFAULT: [*daemon, "--test.battery=true"],
            MINIMAL: daemon,
            BARE: [paths[BARE], "PWR-IN"],
            BARE_CLOCK: [paths[BARE], "PWR-IN", "clock"],
        }
        found = {name: [of_a_tick(argv)] for name, argv in programs.items()}
    print(json.dumps({INSTRUCTIONS: found}))


main()
