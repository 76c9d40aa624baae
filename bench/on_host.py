"""Runs a part of the measurement on this machine's own kernel, apart from its own daemon."""

import json
import subprocess
import sys
from pathlib import Path
from typing import Any

from problems import CannotMeasure

_HERE = Path(__file__).parent
_WITH_OWN_SHM = _HERE.parent / "tests" / "host" / "with_own_shm"
_SKIP = 77


def on_host(part: str, task: dict) -> Any:
    """What the part prints as its result."""
    argv = [str(_WITH_OWN_SHM), sys.executable, "-B", str(_HERE / part), json.dumps(task)]
    quiet = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "text": True}
    with subprocess.Popen(argv, **quiet) as process:
        try:
            output, _ = process.communicate()
        finally:
            process.terminate()
    if process.returncode == _SKIP:
        raise CannotMeasure(output.strip().removeprefix("SKIP: "))
    if process.returncode != 0:
        raise RuntimeError(f"{part} ended with status {process.returncode}")
    return json.loads(output)
