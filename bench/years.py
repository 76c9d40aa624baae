"""A daemon through simulated years, with what it holds at the end of each.

years.py TASK: paths of the programs and the years, as JSON. Prints the result.
"""

import json
import sys
import tempfile
import time
from pathlib import Path

from processes import descriptors, resident_kilobytes, unwind_at_end
from programs import DEFAULT
from without_board import SEGMENT, count, daemon

_SECONDS_OF_A_YEAR = 31_557_600
# Ten o'clock on the morning after the stand-in's begin of time.
_FIRST_TEST = 1_717_495_200
_PERIOD_SECONDS = 14 * 24 * 60 * 60
_LOOK_EVERY_SECONDS = 0.2


def tests(result: Path) -> int:
    """How many have been started; the first was on the morning after the start."""
    if not result.exists():
        return 0
    last = int(result.read_text().split()[0].removeprefix("result.start="))
    return (last - _FIRST_TEST) // _PERIOD_SECONDS + 1


def main() -> None:
    unwind_at_end()
    task = json.loads(sys.argv[1])
    program = task["paths"][DEFAULT]
    found = []
    with tempfile.TemporaryDirectory() as folder:
        with daemon(program, Path(folder), simulated_time=True) as process:
            for year in range(task["years"] + 1):
                while (seconds := count(program)) < year * _SECONDS_OF_A_YEAR:
                    time.sleep(_LOOK_EVERY_SECONDS)
                found.append(
                    {
                        "year": seconds / _SECONDS_OF_A_YEAR,
                        "tests": tests(Path(folder) / "result"),
                        "kilobytes": resident_kilobytes(process),
                        "descriptors": descriptors(process),
                        "segment": SEGMENT.stat().st_size,
                    }
                )
    print(json.dumps(found))


main()
