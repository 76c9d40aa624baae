"""Rounds of all measurements, or of those that do not depend on the machine."""

import tempfile
from pathlib import Path

from part import on_board, on_host
from programs.builds import stripped_bytes
from programs.names import BARE, DEFAULT, LOOPS, NUT, OVERDUE, SMALL
from programs.nut import Nut
from report.figures import Results

# What a start takes on the board at the very most, for it is looked for that often.
_START_SECONDS = 0.5
_SPARE_SECONDS = 300
_COUNTED_WINDOW_SECONDS = 60
# Not the one of a server that this machine may have.
_NUT_PORT = 34930


def everything(paths: dict, rounds: int, window: float, starts: int, falls: int) -> Results:
    """Idle programs are watched for `window` seconds, twice in each round."""
    start = {"paths": paths, "rounds": rounds, "starts": starts}
    idle = {"paths": paths, "rounds": rounds, "window": window}
    start_seconds = rounds * starts * 4 * _START_SECONDS + _SPARE_SECONDS
    idle_seconds = rounds * (2 * window + _SPARE_SECONDS) + _SPARE_SECONDS
    of_rounds = [
        *_status_clients(start),
        *on_host("loops.cpu", **idle),
        *on_board("start.rounds", start_seconds, **start),
        *on_board("idle.rounds", idle_seconds, **idle, programs=LOOPS),
    ]
    results = {**_collected(of_rounds), **on_host("instructions.of_a_tick", paths=paths)}
    falls = on_board("falls.delays", _SPARE_SECONDS, realtime=False, paths=paths, falls=falls)
    results["fall"] = {name: [max(delays)] for name, delays in falls.items()}
    with tempfile.TemporaryDirectory() as folder:
        results["size"] = {
            name: [stripped_bytes(paths[name], Path(folder)) / 1000] for name in (DEFAULT, SMALL)
        }
    return results


def counts(paths: dict) -> Results:
    """In simulated time, where they are exact."""
    idle = {"programs": [DEFAULT, OVERDUE, SMALL, BARE], "window": _COUNTED_WINDOW_SECONDS}
    rounds = on_board(
        "idle.rounds", _SPARE_SECONDS, realtime=False, paths=paths, rounds=1, **idle
    )
    return {**_collected(rounds), **on_host("instructions.of_a_tick", paths=paths)}


def _status_clients(start: dict) -> list[dict[str, dict[str, float]]]:
    """NUT's server runs outside: where the client's part runs it has no users to change to."""
    tools = start["paths"][NUT]
    if not tools:
        return on_host("status_client.rounds", **start, nut_client=None)
    with tempfile.TemporaryDirectory() as folder:
        with Nut(tools, Path(folder) / "nut", _NUT_PORT) as nut:
            nut.serve()
            return on_host("status_client.rounds", **start, nut_client=nut.status_client)


def _collected(rounds: list[dict[str, dict[str, float]]]) -> Results:
    results: Results = {}
    for one in rounds:
        for figure, values in one.items():
            for program, value in values.items():
                results.setdefault(figure, {}).setdefault(program, []).append(value)
    return results
