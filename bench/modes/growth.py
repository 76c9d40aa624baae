"""How cost grows: with years, with chips, with clients; and whose the memory is."""

from part import on_board, on_host
from programs.names import DEFAULT
from report.tables import Rows

_LONGEST_SECONDS = 900
_CHIPS = {"chips": [1, 4, 16, 64], "starts": 20, "window": 20}


def growth(paths: dict) -> dict[str, Rows]:
    """A table of each, by the name that it is kept under."""
    program = paths[DEFAULT]
    return {
        "cost_memory": on_host("loops.mappings", paths=paths),
        "cost_years": on_host("loops.years", program=program, years=10),
        "cost_clients": on_host("loops.clients", program=program, clients=100, seconds=60),
        "cost_chips": on_board("start.with_chips", _LONGEST_SECONDS, program=program, **_CHIPS),
    }
