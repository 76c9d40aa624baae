"""All measurements, one after the other: rounds of each, with every program in every round."""

import tempfile
from pathlib import Path
from typing import NamedTuple

from builds import stripped_kilobytes
from goals import FALL, SIZE
from nut import Nut
from on_board import on_board
from on_host import on_host
from programs import DEFAULT, LOOPS, NUT, SMALL

# For each figure, for each program, the value of each round.
Results = dict[str, dict[str, list[float]]]

# What a start takes on the board at the very most, for it is looked for that often.
_START_SECONDS = 0.5
_SPARE_SECONDS = 300
# Not the one of a server that this machine may have.
_NUT_PORT = 34930


class Extent(NamedTuple):
    rounds: int
    window: float  # seconds that idle programs are watched, twice in a round
    starts: int  # of each program in each round
    falls: int


def measure(paths: dict[str, str], extent: Extent) -> Results:
    task = {"paths": paths, **extent._asdict()}
    idle_seconds = extent.rounds * (2 * extent.window + _SPARE_SECONDS) + _SPARE_SECONDS
    start_seconds = extent.rounds * extent.starts * 4 * _START_SECONDS + _SPARE_SECONDS
    rounds = [
        *status_rounds(task),
        *on_host("cpu.py", task),
        *on_board("start.py", task, start_seconds),
        *on_board("idle.py", {**task, "programs": LOOPS}, idle_seconds),
    ]
    results = collected(rounds)
    results.update(on_host("instructions.py", task))
    falls = on_board("falls.py", task, _SPARE_SECONDS, realtime=False)
    results[FALL] = {name: [max(delays)] for name, delays in falls.items()}
    with tempfile.TemporaryDirectory() as folder:
        results[SIZE] = {
            name: [stripped_kilobytes(paths[name], Path(folder))] for name in (DEFAULT, SMALL)
        }
    return results


def status_rounds(task: dict) -> list[dict[str, dict[str, float]]]:
    """NUT's server runs outside: where the client's part runs it has no users to change to."""
    tools = task["paths"][NUT]
    if not tools:
        return on_host("status_client.py", {**task, "nut_client": None})
    with tempfile.TemporaryDirectory() as folder:
        with Nut(Path(tools), Path(folder) / "nut", _NUT_PORT) as nut:
            nut.serve()
            return on_host("status_client.py", {**task, "nut_client": nut.status_client()})


def collected(rounds: list[dict[str, dict[str, float]]]) -> Results:
    results: Results = {}
    for one in rounds:
        for figure, values in one.items():
            for program, value in values.items():
                results.setdefault(figure, {}).setdefault(program, []).append(value)
    return results
