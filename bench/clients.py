"""A daemon for a minute without and a minute with many status clients.

clients.py TASK: paths of the programs, clients a second, seconds, as JSON. Prints the result.
"""

import json
import sys
import tempfile
import time
from pathlib import Path

from processes import (
    cpu_milliseconds,
    life_milliseconds,
    resident_kilobytes,
    sleeps,
    unwind_at_end,
    wait_until,
)
from programs import DEFAULT
from without_board import count, daemon

_LONGEST_TICK_SECONDS = 10


def watched(program: str, process: int, seconds: float, clients_per_second: int) -> dict:
    """What the daemon takes meanwhile."""
    before = (count(program), sleeps(process), cpu_milliseconds(process))
    begin = time.monotonic()
    clients = 0
    while (passed := time.monotonic() - begin) < seconds:
        if clients < passed * clients_per_second:
            life_milliseconds([program, "--status"])
            clients += 1
        else:
            time.sleep(0.001)
    return {
        "clients": clients,
        "counted": count(program) - before[0],
        "sleeps": sleeps(process) - before[1],
        "cpu": cpu_milliseconds(process) - before[2],
        "kilobytes": resident_kilobytes(process),
    }


def await_middle(program: str, process: int) -> None:
    """Half a second after a tick, so that neither edge of a window is in doubt."""
    last = count(program)
    wait_until(lambda: count(program) != last, process, _LONGEST_TICK_SECONDS, look_every=0.01)
    time.sleep(0.5)


def main() -> None:
    unwind_at_end()
    task = json.loads(sys.argv[1])
    program = task["paths"][DEFAULT]
    found = []
    with tempfile.TemporaryDirectory() as folder, daemon(program, Path(folder)) as process:
        for clients_per_second in (0, task["clients"]):
            await_middle(program, process)
            found.append(watched(program, process, task["seconds"], clients_per_second))
    print(json.dumps(found))


main()
