"""On a whole machine: memory of what watches a line, time of clients; prints both as JSON.

Time there is that of the instructions, so it does not depend on what the host has to do.
"""

import json
import os
import statistics
import subprocess
import time
from pathlib import Path
from typing import Sequence

_STARTS = 21
_SETTLED_SECONDS = 10
_BOARD = Path("/board")
# With its service's settings.
_DEFAULT = ["/usr/sbin/kelvo-pwr", "-c", "/etc/kelvo/kelvo-pwr.conf"]
_SMALL = [str(_BOARD / "small"), *_DEFAULT[1:]]
_WATCHING = {
    "default": _DEFAULT,
    "bare": [str(_BOARD / "bare_loop"), "PWR-IN"],
    "small": _SMALL,
    "bare, static": [str(_BOARD / "bare_loop_static"), "PWR-IN"],
}
_ENDING = {
    "default": [*_DEFAULT, "--status"],
    "empty": [str(_BOARD / "empty_program")],
    "small": [*_SMALL, "--status"],
    "true": ["/bin/true"],
}


def resident_kilobytes(argv: Sequence[str]) -> int:
    with subprocess.Popen(argv, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as process:
        time.sleep(_SETTLED_SECONDS)
        assert process.poll() is None, argv
        # Exact, other than what the kernel counts beside it for "status".
        lines = Path(f"/proc/{process.pid}/smaps_rollup").read_text().splitlines()
        process.terminate()
    (resident,) = (line.split()[1] for line in lines if line.startswith("Rss:"))
    return int(resident)


def life_milliseconds(argv: Sequence[str]) -> float:
    """The median of some, from the start to the end, which must be a good one."""
    quiet = [(os.POSIX_SPAWN_OPEN, number, os.devnull, os.O_RDWR, 0) for number in range(3)]
    times = []
    for _ in range(_STARTS):
        begin = time.monotonic_ns()
        process = os.posix_spawn(argv[0], argv, os.environ, file_actions=quiet)
        _, status = os.waitpid(process, 0)
        times.append((time.monotonic_ns() - begin) / 1e6)
        assert status == 0, argv
    return statistics.median(times)


def main() -> None:
    subprocess.run(["systemctl", "is-system-running", "--wait"], stdout=subprocess.DEVNULL)
    # Its status is what the clients read.
    times = {name: life_milliseconds(argv) for name, argv in _ENDING.items()}
    subprocess.run(["systemctl", "stop", "kelvo-pwr"], check=True)
    memory = {name: resident_kilobytes(argv) for name, argv in _WATCHING.items()}
    print(json.dumps({"memory": memory, "times": times}))


if __name__ == "__main__":
    main()
