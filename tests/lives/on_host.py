"""Boots the board for some lives and reads what comes of them."""

import json
import os
import subprocess
import sys
import tempfile
from pathlib import Path
from typing import Iterator

_ROOT = Path(__file__).resolve().parent.parent.parent
# A boot costs as much as a few lives; a stuck one costs the lives that it was to play.
LIVES_PER_BOOT = 25
# In real seconds, for one boot: far more than a slow machine takes.
_LONGEST = 1200
_SKIP = 77

_REPORT = "report "  # before the line of JSON


class CannotRun(Exception):
    """This host cannot run the board; it has said why."""


def play_seeds(first: int, count: int) -> Iterator[dict]:
    """The report of each life as it ends."""
    reports = 0
    for report in _run("seeds", str(first), str(count)):
        reports += 1
        yield report
    if reports < count:
        yield _lost(first + reports)


def play_file(source, begin: int, verbose: bool = False) -> dict:
    """`source` is a seed or the path of a life."""
    kind = ["seeds", source, "1"] if str(source).isdigit() else ["file", str(source)]
    reports = list(_run(*kind, str(begin), verbose=verbose))
    return reports[0] if reports else _lost(source)


def play_life(life: dict, begin: int) -> dict:
    with tempfile.NamedTemporaryFile("w", suffix=".json") as file:
        json.dump(life, file)
        file.flush()
        return play_file(file.name, begin)


def _lost(seed) -> dict:
    return {
        "seed": seed,
        "begin": 0,
        "verdict": "failed",
        "detail": "the board ended before the life did",
        "steps": 0,
        "seconds": 0,
    }


def _run(*words: str, verbose: bool = False) -> Iterator[dict]:
    argv = [str(_ROOT / "board" / "board"), "run", "--timeout", str(_LONGEST), "--"]
    argv += ["/usr/bin/python3", str(_ROOT / "tests" / "lives" / "play.py"), *words]
    environment = {**os.environ, **({"LIVES_VERBOSE": "1"} if verbose else {})}
    board = subprocess.Popen(argv, stdout=subprocess.PIPE, text=True, env=environment)
    with board:
        try:
            for line in board.stdout:
                if line.startswith(_REPORT):
                    yield json.loads(line[len(_REPORT) :])
                else:
                    sys.stdout.write(line)
        except GeneratorExit:  # Who asked has seen enough.
            board.terminate()
            raise
    if board.returncode == _SKIP:
        raise CannotRun("no life was played")
