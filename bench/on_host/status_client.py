"""A status client, from its start to its end."""

import subprocess
import time
from pathlib import Path
from statistics import median
from typing import Iterator, Optional

from processes import life_milliseconds
from programs.builds import SEGMENT_TOOL
from programs.daemon import FULL, daemon
from programs.names import DEFAULT, EMPTY, NUT, SMALL, TRUE


def rounds(
    folder: Path, paths: dict, nut_client: Optional[list[str]], rounds: int, starts: int
) -> Iterator[dict]:
    """`nut_client` is the command line of NUT's if its server runs."""
    subprocess.run([SEGMENT_TOOL, "make", "status", "request"], check=True)
    clients = {name: [paths[name]] for name in (EMPTY, TRUE)}
    for name in (DEFAULT, SMALL):
        argv = daemon(paths[name], folder, FULL, last_test=time.time())
        clients[name] = [*argv, "--status"]
    if nut_client:
        clients[NUT] = nut_client
    # Once for nothing, so that every round finds the same files in memory.
    _round(clients, 1)
    for _ in range(rounds):
        yield {"status": _round(clients, starts)}


def _round(clients: dict[str, list[str]], starts: int) -> dict[str, float]:
    """The clients take turns."""
    times = {name: [] for name in clients}
    for _ in range(starts):
        for name, argv in clients.items():
            times[name].append(life_milliseconds(argv))
    return {name: median(values) for name, values in times.items()}
