"""Which file or purpose a program's memory belongs to, in its loop.

memory.py TASK: paths of the programs, as JSON. Prints the result.
"""

import json
import re
import sys
import tempfile
from collections import Counter
from pathlib import Path

from builds import STAND_IN
from processes import unwind_at_end, wait_until
from programs import BARE, DEFAULT
from without_board import daemon, running

_LONGEST_START_SECONDS = 10
_MAPPING = re.compile(r"[0-9a-f]+-[0-9a-f]+ \S+ \S+ \S+ \d+ *(?P<name>.*)")
_RESIDENT = re.compile(r"Rss: +(?P<kilobytes>\d+) kB")


def parts(process: int, program: str) -> dict[str, int]:
    """Kilobytes by name, without the stand-in, which no program has on a board."""
    found: Counter[str] = Counter()
    name = ""
    for line in Path(f"/proc/{process}/smaps").read_text().splitlines():
        if mapping := _MAPPING.match(line):
            path = mapping["name"]
            name = "the program" if path == program else Path(path).name or "without a name"
        elif resident := _RESIDENT.match(line):
            found[name] += int(resident["kilobytes"])
    del found[STAND_IN.name]
    return {name: kilobytes for name, kilobytes in found.most_common() if kilobytes > 0}


def main() -> None:
    unwind_at_end()
    paths = json.loads(sys.argv[1])["paths"]
    result = {}
    with tempfile.TemporaryDirectory() as folder, daemon(paths[DEFAULT], Path(folder)) as process:
        result[DEFAULT] = parts(process, paths[DEFAULT])
    with running([paths[BARE], "PWR-IN"]) as process:
        wchan = Path(f"/proc/{process}/wchan")
        wait_until(lambda: "nanosleep" in wchan.read_text(), process, _LONGEST_START_SECONDS)
        result[BARE] = parts(process, paths[BARE])
    print(json.dumps(result))


main()
