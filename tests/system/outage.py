"""Runs inside: AC power goes and the battery is empty; the way down ends this program.

File systems take five seconds to settle after all services have ended. The words choose what
else is the matter: "hanging" for a service that does not stop, "unheld" for a board on which
BAT-SW drops when nobody drives it.
"""

import subprocess
import sys
import time
from pathlib import Path

from guest.board import found

_SUPPLY = Path(__file__).parent / "supply.py"


def main() -> None:
    board = found()
    subprocess.run(["systemctl", "is-system-running", "--wait"], check=True)
    if "hanging" in sys.argv:
        start("hanging", "-pTimeoutStopSec=infinity", "sh", "-c", "trap '' TERM; sleep infinity")
    if "unheld" in sys.argv:
        board.bat_sw.pull(0)
    start(
        "settling",
        "-pDefaultDependencies=no",
        "-pConflicts=shutdown.target",
        "-pBefore=kelvo-pwr.service shutdown.target",
        "-pRemainAfterExit=yes",
        "-pExecStop=/bin/sleep 5",
        "true",
    )
    supply = ["/usr/bin/python3", "-PB", str(_SUPPLY)]
    start("supply", "-pDefaultDependencies=no", "-EPYTHONPATH=/run/board/library", *supply)
    board.battery(False)
    board.ac(False)
    time.sleep(1000)
    sys.exit("still up")


def start(name: str, *words: str) -> None:
    command = ["systemd-run", "--quiet", f"--unit={name}", f"--description={name}", *words]
    subprocess.run(command, check=True)


if __name__ == "__main__":
    main()
