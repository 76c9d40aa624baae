"""A part of the measurements in a process of its own: on the board, or on this machine's kernel.

part.py MODULE.FUNCTION ARGUMENTS: prints what the function returns for an empty folder and these
arguments, both as JSON. With `rounds` among them these are the values of so many calls.
"""

import json
import os
import signal
import subprocess
import sys
import tempfile
from functools import partial
from pathlib import Path
from pkgutil import resolve_name
from typing import Any, Callable, Sequence

from places import ROOT, WITH_OWN_SHM

from host.problems import Unavailable

_SKIP = 77
# In seconds; a last resort, for what is waited for has bounds of its own.
_BOARD = [ROOT / "board/board", "run", "--timeout=86400"]


def on_board(part: str, realtime: bool = True, **arguments) -> Any:
    words = ["--realtime"] if realtime else []
    return _result([*_BOARD, *words, "--"], f"on_board.{part}", arguments)


def on_host(part: str, **arguments) -> Any:
    """Apart from this machine's own daemon."""
    return _result([WITH_OWN_SHM], f"on_host.{part}", arguments)


def unwind_at_end() -> None:
    """From now on SIGTERM ends this process as an exception does, with all that it has started."""
    signal.signal(signal.SIGTERM, lambda number, _: sys.exit(128 + number))


def _result(place: Sequence, part: str, arguments: dict) -> Any:
    argv = [*place, "/usr/bin/python3", "-B", __file__, part, json.dumps(arguments)]
    quiet = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "text": True}
    with subprocess.Popen(argv, **quiet) as process:
        try:
            output, _ = process.communicate()
        finally:
            process.terminate()
    if process.returncode == _SKIP:
        raise Unavailable(output.strip().removeprefix("SKIP: ") or "this machine has no board")
    if process.returncode != 0:
        raise RuntimeError(f"{part} ended with status {process.returncode}")
    return json.loads(output)


def _in_rounds(measure: Callable, rounds: int, arguments: dict) -> dict:
    """For each figure, for each program, the value of each round."""
    # Once for nothing, in brief, so that every round finds the same files in the kernel's memory.
    measure(**{name: 1 if name in ("starts", "window") else arguments[name] for name in arguments})
    found: dict = {}
    for number in range(rounds):
        for figure, values in measure(**arguments).items():
            for program, value in values.items():
                found.setdefault(figure, {}).setdefault(program, []).append(value)
        print(f"{sys.argv[1]}: {number + 1}", file=sys.stderr, flush=True)
    return found


if __name__ == "__main__":
    unwind_at_end()
    arguments = json.loads(sys.argv[2])
    rounds = arguments.pop("rounds", None)
    # On the board other temporary folders are below /run, which a daemon may have of its own.
    with tempfile.TemporaryDirectory(dir=os.environ.get("BOARD_OUTPUT")) as folder:
        measure = partial(resolve_name(sys.argv[1]), Path(folder))
        found = _in_rounds(measure, rounds, arguments) if rounds else measure(**arguments)
        # A table comes row by row.
        print(json.dumps(found, default=list))
