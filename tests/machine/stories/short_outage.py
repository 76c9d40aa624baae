"""AC power goes and is back while the battery still holds; what the monitor tells meanwhile."""

import subprocess
import time
from pathlib import Path

from story import await_full_server, follow

from guest.board import found

METRICS = Path("/run/metrics.prom")
NAMES = ("up", "power_missing", "battery_empty")


def tell(stage: str) -> None:
    # The daemon looks once a second.
    time.sleep(2)
    subprocess.run(["/board/kelvo-pwr-monitor", "--once", f"--prometheus={METRICS}"], check=True)
    values = dict(line.split() for line in METRICS.read_text().splitlines() if line[0] != "#")
    print(stage, *(values[f"kelvo_pwr_{name}"] for name in NAMES))


with follow() as journal:
    await_full_server(journal)
    board = found()
    tell("before")
    board.plan(60, ac=True)
    board.ac(False)
    tell("without")
    time.sleep(60)
    tell("after")
