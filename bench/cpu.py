"""CPU time of an idle daemon and of a bare loop, as this machine's own kernel keeps it.

cpu.py TASK: paths of the programs, number of rounds, seconds of a window, as JSON. Prints the
result. Their lines are stand-ins: what reading one takes in a kernel is not in it.
"""

import json
import sys
import tempfile
import time
from contextlib import ExitStack
from pathlib import Path

from goals import OWN_CPU
from processes import cpu_milliseconds, unwind_at_end
from programs import BARE, DEFAULT
from without_board import daemon, running


def main() -> None:
    unwind_at_end()
    task = json.loads(sys.argv[1])
    paths, seconds = task["paths"], task["window"]
    rounds = []
    for _ in range(task["rounds"]):
        with ExitStack() as open_now:
            folder = open_now.enter_context(tempfile.TemporaryDirectory())
            processes = {
                BARE: open_now.enter_context(running([paths[BARE], "PWR-IN"])),
                DEFAULT: open_now.enter_context(daemon(paths[DEFAULT], Path(folder))),
            }
            before = {name: cpu_milliseconds(pid) for name, pid in processes.items()}
            begin = time.monotonic()
            time.sleep(seconds)
            minutes = (time.monotonic() - begin) / 60
            taken = {
                name: (cpu_milliseconds(pid) - before[name]) / minutes
                for name, pid in processes.items()
            }
            rounds.append({OWN_CPU: taken})
    print(json.dumps(rounds))


main()
