"""Runs a part of the measurement on the virtual board."""

import json
import subprocess
import tempfile
from pathlib import Path
from typing import Any

from problems import CannotMeasure

_HERE = Path(__file__).parent
_BOARD = _HERE.parent / "board" / "board"
_SKIP = 77


def on_board(part: str, task: dict, longest_seconds: float, realtime: bool = True) -> Any:
    """What the part leaves as its result."""
    with tempfile.TemporaryDirectory() as folder:
        argv = [str(_BOARD), "run", "--timeout", str(longest_seconds), "--output", folder]
        argv += ["--realtime"] if realtime else []
        argv += ["--", "/usr/bin/python3", "-B", str(_HERE / part), json.dumps(task)]
        with subprocess.Popen(argv, stdin=subprocess.DEVNULL) as board:
            try:
                status = board.wait()
            finally:
                board.terminate()
        if status == _SKIP:
            raise CannotMeasure("this machine cannot run the board")
        if status != 0:
            raise RuntimeError(f"{part} ended on the board with status {status}")
        return json.loads((Path(folder) / "result.json").read_text())
