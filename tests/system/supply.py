"""Takes the power away, as the hardware does, when without AC power the battery is cut off.

Systemd leaves a process alone on the way down whose name begins with "@".
"""

import os
import subprocess
import sys
import time
from pathlib import Path

from guest.board import found
from guest.system_calls import mount, power_off

_SCRATCH = Path("/run/board/scratch")
_LOOK_EVERY_SECONDS = 0.1


def main() -> None:
    board = found()
    while board.bat_sw.level() == 1 or board.pwr_in.level() == 0:
        time.sleep(_LOOK_EVERY_SECONDS)
    # What the journal has at this moment would be lost with the power.
    scratch = Path("/run/board/scratch-on-host").read_text()
    mount("none", str(_SCRATCH), "hostfs", options=scratch)
    with (_SCRATCH / "output" / "journal.json").open("wb") as journal:
        words = ["--directory=/run/log/journal", "--output=json"]
        subprocess.run(["journalctl", *words], stdout=journal, check=True)
    (_SCRATCH / "end").write_text("a loss of power")
    power_off()


if __name__ == "__main__":
    if not sys.orig_argv[0].startswith("@"):
        os.execv("/usr/bin/python3", ["@supply", "-PB", *sys.argv])
    main()
