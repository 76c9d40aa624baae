"""A part of the measurements in a process of its own: on the board, or on this machine's kernel.

part.py MODULE.FUNCTION ARGUMENTS: prints what the function returns for an empty folder and these
arguments, both as JSON. It may yield rounds, one after the other.
"""

import json
import os
import signal
import subprocess
import sys
import tempfile
from importlib import import_module
from inspect import isgenerator
from pathlib import Path
from typing import Any, Sequence

_ROOT = Path(__file__).resolve().parent.parent
sys.path.append(str(_ROOT / "board"))

from host.problems import Unavailable  # noqa: E402

_SKIP = 77


def on_board(part: str, longest_seconds: float, realtime: bool = True, **arguments) -> Any:
    words = ["--timeout", str(longest_seconds), *(["--realtime"] if realtime else [])]
    return _result([_ROOT / "board/board", "run", *words, "--"], f"on_board.{part}", arguments)


def on_host(part: str, **arguments) -> Any:
    """Apart from this machine's own daemon."""
    return _result([_ROOT / "tests/host/with_own_shm"], f"on_host.{part}", arguments)


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


if __name__ == "__main__":
    unwind_at_end()
    module, _, function = sys.argv[1].rpartition(".")
    # On the board other temporary folders are below /run, which a daemon may have of its own.
    with tempfile.TemporaryDirectory(dir=os.environ.get("BOARD_OUTPUT")) as folder:
        measure = getattr(import_module(module), function)
        result = measure(Path(folder), **json.loads(sys.argv[2]))
        if isgenerator(result):
            rounds, result = result, []
            for one in rounds:
                result.append(one)
                print(f"{sys.argv[1]}: {len(result)}", file=sys.stderr, flush=True)
        print(json.dumps(result))
