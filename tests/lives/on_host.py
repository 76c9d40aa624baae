"""Has lives played, in simulated worlds or on the board, and reads what comes of them."""

import json
import os
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from typing import Iterator

import life as lives

ROOT = Path(__file__).resolve().parent.parent.parent
_PLAY = ["/usr/bin/python3", "-B", str(ROOT / "tests" / "lives" / "play.py")]
# A boot costs as much as a few lives; a stuck one costs the lives that it was to play. To start a
# player of simulated worlds costs as much as three.
_LIVES_PER_BOOT, _LIVES_PER_PLAYER = 25, 100
# In real seconds, for one boot: far more than a slow machine takes.
_LONGEST = 1200
_SKIP = 77

_REPORT = "report "  # before the line of JSON


class CannotRun(Exception):
    """This host cannot play lives; it has said why."""


class Host:
    """The environment names the program, the test's tool, and the simulator.

    Raises CannotRun where one of them is missing.
    """

    def __init__(self, on_board: bool):
        self._on_board = on_board
        build = ROOT / "build" / "release"
        for name, file in (
            ("KELVO_PWR", build / "kelvo-pwr"),
            ("SEGMENT_TOOL", build / "tests" / "board" / "segment_tool"),
            ("SIMULATOR", build / "tests" / "simulator" / "libsimulator.so"),
        ):
            if not Path(os.environ.setdefault(name, str(file))).exists():
                raise CannotRun(f"{os.environ[name]} is missing; scripts/build release makes it")

    def make(self, seed: int) -> dict:
        return lives.make(seed, not self._on_board)

    def seeds(self, first: int, count: int) -> Iterator[dict]:
        """The reports of lives in their order; simulated ones on all processors."""
        size = _LIVES_PER_BOOT if self._on_board else _LIVES_PER_PLAYER
        begins = range(first, first + count, size)
        pool = ThreadPoolExecutor(1 if self._on_board else os.cpu_count())
        try:
            for reports in pool.map(
                lambda begin: self._some(begin, min(size, first + count - begin)), begins
            ):
                yield from reports
        finally:
            pool.shutdown(cancel_futures=True)

    def file(self, source, begin: str, verbose: bool = False) -> dict:
        """`source` is a seed or the path of a life; `begin` an uptime, or empty for its own."""
        kind = ["seeds", str(source), "1"] if str(source).isdigit() else ["file", str(source)]
        reports = list(self._run(*kind, *([begin] if begin else []), verbose=verbose))
        return reports[0] if reports else _lost(source)

    def play(self, life: dict, begin: str) -> dict:
        with tempfile.NamedTemporaryFile("w", suffix=".json") as file:
            json.dump(life, file)
            file.flush()
            return self.file(file.name, begin)

    def _some(self, first: int, count: int) -> list[dict]:
        reports = list(self._run("seeds", str(first), str(count)))
        return reports if len(reports) == count else [*reports, _lost(first + len(reports))]

    def _run(self, *words: str, verbose: bool = False) -> Iterator[dict]:
        environment = {**os.environ, **({"LIVES_VERBOSE": "1"} if verbose else {})}
        if self._on_board:
            argv = [str(ROOT / "board" / "board"), "run", "--timeout", str(_LONGEST), "--"]
            del environment["SIMULATOR"]
        else:
            argv = [str(ROOT / "tests" / "host" / "with_own_shm")]
            environment["PYTHONPATH"] = str(ROOT / "tests" / "simulator")
        player = subprocess.Popen(
            [*argv, *_PLAY, *words], stdout=subprocess.PIPE, text=True, env=environment
        )
        with player:
            for line in player.stdout:
                if line.startswith(_REPORT):
                    yield json.loads(line[len(_REPORT) :])
                else:
                    sys.stdout.write(line)
        if player.returncode == _SKIP:
            raise CannotRun("no life was played")


def _lost(seed) -> dict:
    return {
        "seed": seed,
        "begin": 0,
        "verdict": "failed",
        "detail": "the player ended before the life did",
        "steps": 0,
        "seconds": 0,
    }
