"""Runs inside: AC power goes and the battery is empty; the way down ends this program.

File systems take five seconds to settle after all services have ended. The words choose what
else is the matter:

    hanging         a service does not stop, however long it takes
    hanging-service a service does not stop until systemd kills it
    hanging-user    a service of a user's does not stop until systemd kills it
    inhibited       somebody holds a lock against the shutdown
    unheld          BAT-SW drops when nobody drives it
    busy            somebody takes BAT-SW when the daemon has ended
    other-switch    the battery is cut by a line called OTHER-SW
    spoilt          nobody can read the configuration any more
    back=SECONDS    AC power is back so long after the outage began
    back-after-cut  AC power is back when the battery has been cut, and the board still runs
    person          nothing of all that: a person switches the board off, with AC power there
"""

import subprocess
import sys
import time
from pathlib import Path

from guest.board import found
from guest.lines import make_chip

_SUPPLY = Path(__file__).parent / "outage_supply.py"
_IGNORES_TERM = ("sh", "-c", "trap '' TERM; while :; do sleep 1000; done")
_NOTE = Path("/run/kelvo-pwr/way-down")


def main() -> None:
    words = sys.argv[1:]
    board = found()
    subprocess.run(["systemctl", "is-system-running", "--wait"], check=True)
    if "hanging" in words:
        start("hanging", "-pTimeoutStopSec=infinity", *_IGNORES_TERM)
    if "hanging-service" in words:
        start("hanging", *_IGNORES_TERM)
    if "hanging-user" in words:
        hang_as_user()
    if "inhibited" in words:
        lock = ("systemd-inhibit", "--what=shutdown", "--mode=block", "sleep", "infinity")
        start("inhibitor", *lock)
        await_lock()
    if "unheld" in words:
        board.bat_sw.pull(0)
    if "other-switch" in words:
        make_chip(["OTHER-SW"], {"OTHER-SW": 1})
        subprocess.run(["systemctl", "restart", "kelvo-pwr"], check=True)
    if "spoilt" in words:
        Path("/etc/kelvo/kelvo-pwr.conf").write_bytes(bytes(4096))
    start(
        "settling",
        "-pDefaultDependencies=no",
        "-pConflicts=shutdown.target",
        "-pBefore=kelvo-pwr.service shutdown.target",
        "-pRemainAfterExit=yes",
        "-pExecStop=/bin/sleep 5",
        "true",
    )
    supply = ["/usr/bin/python3", "-PB", str(_SUPPLY), *words]
    start("supply", "-pDefaultDependencies=no", "-EPYTHONPATH=/run/board/library", *supply)
    if "person" in words:
        # A way down of the daemon's that came to nothing.
        _NOTE.write_text("command=poweroff\ngpio.pwr-in=PWR-IN\ngpio.bat-sw=BAT-SW\n")
        subprocess.run(["systemctl", "restart", "kelvo-pwr"], check=True)
        subprocess.run(["systemctl", "poweroff"], check=True)
    else:
        board.battery(False)
        board.ac(False)
    time.sleep(1000)
    sys.exit("still up")


def start(name: str, *words: str) -> None:
    command = ["systemd-run", "--quiet", f"--unit={name}", f"--description={name}", *words]
    subprocess.run(command, check=True)


def await_lock() -> None:
    while "block" not in subprocess.check_output(["systemd-inhibit", "--list"], text=True):
        time.sleep(1)


def hang_as_user() -> None:
    """As a program of a user's that nobody has told when to give up."""
    # This small Debian has nothing else that tells it to the user's manager.
    told = "[Service]\nEnvironment=XDG_RUNTIME_DIR=/run/user/%i\n"
    drop_ins = Path("/run/systemd/system/user@.service.d")
    drop_ins.mkdir()
    (drop_ins / "runtime-folder.conf").write_text(told)
    subprocess.run(["systemctl", "daemon-reload"], check=True)
    subprocess.run(["systemctl", "start", "user@0.service"], check=True)
    words = ["--user", "--quiet", "-pTimeoutStopSec=infinity", *_IGNORES_TERM]
    variables = {"XDG_RUNTIME_DIR": "/run/user/0", "PATH": "/usr/bin:/bin"}
    subprocess.run(["systemd-run", *words], env=variables, check=True)


if __name__ == "__main__":
    main()
