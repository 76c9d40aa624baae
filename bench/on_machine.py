"""On a whole machine: memory of what watches a line, time of clients; prints both as JSON.

Time there is that of the instructions, so it does not depend on what the host has to do.
"""

import json
import re
import subprocess
import time
from functools import partial
from pathlib import Path
from typing import Sequence

from guest.process import Program
from starts import in_turns, life_milliseconds

_STARTS = 21
_SETTLED_SECONDS = 10
# With its service's settings.
_DEFAULT = ["/usr/sbin/kelvo-pwr", "-c", "/etc/kelvo/kelvo-pwr.conf"]
_SMALL = ["/board/small-kelvo-pwr", *_DEFAULT[1:]]
_WATCHING = {
    "default": _DEFAULT,
    "bare": ["/board/release-bare_loop", "PWR-IN"],
    "small": _SMALL,
    "bare, static": ["/board/small-bare_loop", "PWR-IN"],
}
_ENDING = {
    "default": [*_DEFAULT, "--status"],
    "empty": ["/board/release-empty_program"],
    "small": [*_SMALL, "--status"],
    "true": ["/bin/true"],
}


def resident_kilobytes(argv: Sequence[str]) -> int:
    with Program(argv) as program:
        time.sleep(_SETTLED_SECONDS)
        # Exact, other than what the kernel counts beside it for "status".
        found = Path(f"/proc/{program.pid}/smaps_rollup").read_text()
        program.end(within=10)
    return int(re.search(r"^Rss: +(\d+)", found, re.MULTILINE)[1])


subprocess.run(["systemctl", "is-system-running", "--wait"], stdout=subprocess.DEVNULL)
# Its status is what the clients read.
lives = {name: partial(life_milliseconds, argv) for name, argv in _ENDING.items()}
times = in_turns(lives, _STARTS)
subprocess.run(["systemctl", "stop", "kelvo-pwr"], check=True)
memory = {name: resident_kilobytes(argv) for name, argv in _WATCHING.items()}
print(json.dumps({"memory": memory, "times": times}))
