"""A daemon through simulated years, with what it holds at the end of each.

years.py TASK: paths of the programs and the years, as JSON. Prints the result.
"""

import json
import sys
import tempfile
from pathlib import Path

from processes import descriptors, resident_kilobytes, unwind_at_end, wait_until
from programs import DEFAULT
from without_board import SEGMENT, count, daemon

_SECONDS_OF_A_YEAR = 31_557_600
_LONGEST_YEAR_SECONDS = 120


def main() -> None:
    unwind_at_end()
    task = json.loads(sys.argv[1])
    program = task["paths"][DEFAULT]
    found = []
    with tempfile.TemporaryDirectory() as folder:
        with daemon(program, Path(folder), simulated_time=True) as process:
            for year in range(task["years"] + 1):
                begin = year * _SECONDS_OF_A_YEAR
                wait_until(lambda: count(program) >= begin, process, _LONGEST_YEAR_SECONDS)
                printed = (Path(folder) / "output").read_text().splitlines()
                found.append(
                    {
                        "year": count(program) / _SECONDS_OF_A_YEAR,
                        "tests": printed.count("Test result: Battery is good"),
                        "kilobytes": resident_kilobytes(process),
                        "descriptors": descriptors(process),
                        "segment": SEGMENT.stat().st_size,
                    }
                )
    print(json.dumps(found))


main()
