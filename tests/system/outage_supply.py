"""Plays the supply during an outage, to the very end of the way down.

Takes the power away, as the hardware does, when without AC power the battery is cut off, and
tells among the kernel's messages what level each line has come to. The words are those of
outage.py. Systemd leaves a process alone on the way down whose name begins with "@".
"""

import json
import os
import subprocess
import sys
import time
from pathlib import Path

from guest.board import found
from guest.lines import AT2, BAT_SW, PWR_IN, chips
from guest.system_calls import mount, power_off

_SCRATCH = Path("/run/board/scratch")
_LOOK_EVERY_SECONDS = 0.1


def main(words: list[str]) -> None:
    board = found()
    lines = {line.name: line for chip in chips() for line in chip.lines}
    switch = lines.get("OTHER-SW", board.bat_sw)
    names = {PWR_IN: board.pwr_in, AT2: board.at2, BAT_SW: switch}
    back = [float(word.removeprefix("back=")) for word in words if word.startswith("back=")]
    started = time.monotonic()
    said, held = None, None
    while True:
        if back and time.monotonic() >= started + back[0]:
            board.ac(True)
            back = []
        levels = {name: line.level() for name, line in names.items()}
        if levels != said:
            Path("/dev/kmsg").write_text(f"supply: {json.dumps(levels)}\n")
            said = levels
        if levels[BAT_SW] == 0 and levels[PWR_IN] == 1:
            if "back-after-cut" not in words:
                break
            # What the supply has stored holds the board up until then.
            time.sleep(3)
            board.ac(True)
        if "busy" in words and held is None and switch.holder() is None:
            held = switch.hold(output=1)
        time.sleep(_LOOK_EVERY_SECONDS)
    # What the journal has at this moment would be lost with the power.
    scratch = Path("/run/board/scratch-on-host").read_text()
    mount("none", str(_SCRATCH), "hostfs", options=scratch)
    with (_SCRATCH / "output" / "journal.json").open("wb") as journal:
        options = ["--directory=/run/log/journal", "--output=json"]
        subprocess.run(["journalctl", *options], stdout=journal, check=True)
    (_SCRATCH / "output" / "mounts").write_text(Path("/proc/mounts").read_text())
    (_SCRATCH / "end").write_text("a loss of power")
    power_off()


if __name__ == "__main__":
    if not sys.orig_argv[0].startswith("@"):
        os.execv("/usr/bin/python3", ["@supply", "-PB", *sys.argv])
    main(sys.argv[1:])
