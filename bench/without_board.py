"""On this machine's own kernel: programs with stand-ins for the lines, apart from its own."""

import os
import signal
import subprocess
import time
from contextlib import contextmanager
from pathlib import Path
from typing import Iterator, Sequence

from builds import STAND_IN
from processes import end, spawn, wait_until

SEGMENT = Path("/dev/shm/kelvo-pwr-shm")
_LONGEST_START_SECONDS = 10


@contextmanager
def running(
    argv: Sequence[str], simulated_time: bool = False, output: str = os.devnull
) -> Iterator[int]:
    environment = {"LD_PRELOAD": str(STAND_IN)}
    if simulated_time:
        environment.update(TIME_IS_SIMULATED="1", TZ="UTC")
    process = spawn(argv, environment, output)
    try:
        yield process
    finally:
        end(process, signal.SIGKILL)


@contextmanager
def daemon(program: str, folder: Path, simulated_time: bool = False) -> Iterator[int]:
    """A full server that is in its loop, and whose last test was now unless time is simulated.

    What it prints is in `folder`, in the file `output`.
    """
    if not simulated_time:
        now = int(time.time())
        (folder / "result").write_text(f"result.start={now}\nresult.end={now}\n")
    conf = folder / "conf"
    conf.write_text(f"test.battery=true\nsys.save.path={folder}/result\n")
    argv = [program, "-c", str(conf)]
    with running(argv, simulated_time, str(folder / "output")) as process:
        wait_until(
            lambda: SEGMENT.exists() and count(program) > 0, process, _LONGEST_START_SECONDS
        )
        yield process


def count(program: str) -> int:
    client = subprocess.run(
        [program, "--status"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True
    )
    first = client.stdout.partition("\n")[0]
    return int(first.split(":")[1]) if client.returncode == 0 else 0
