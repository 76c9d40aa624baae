"""How cost grows: with years, with chips, with clients; and whose the memory is."""

from on_board import on_board
from on_host import on_host
from programs import BARE, DEFAULT
from table import Rows

_YEARS = 10
_CHIPS = [1, 4, 16, 64]
_STARTS = 20
_WINDOW_SECONDS = 20
_CLIENTS_PER_SECOND, _CLIENT_SECONDS = 100, 60
_LONGEST_SECONDS = 900


def growth(paths: dict[str, str]) -> dict[str, Rows]:
    """A table of each, by the name that it is kept under."""
    chips = {"chips": _CHIPS, "starts": _STARTS, "window": _WINDOW_SECONDS}
    clients = {"clients": _CLIENTS_PER_SECOND, "seconds": _CLIENT_SECONDS}
    of_chips = on_board("chips.py", {"paths": paths, **chips}, _LONGEST_SECONDS)
    return {
        "cost_memory": _of_memory(on_host("memory.py", {"paths": paths})),
        "cost_years": _of_years(on_host("years.py", {"paths": paths, "years": _YEARS})),
        "cost_clients": _of_clients(on_host("clients.py", {"paths": paths, **clients})),
        "cost_chips": _of_chips(of_chips),
    }


def _of_memory(parts: dict[str, dict[str, int]]) -> Rows:
    ours, bare = parts[DEFAULT], parts[BARE]
    rows = [[name, str(ours[name]), str(bare.get(name, 0))] for name in ours]
    total = ["together", str(sum(ours.values())), str(sum(bare.values()))]
    return [["Resident memory, kB", DEFAULT, BARE], *rows, total]


def _of_years(result: dict) -> Rows:
    keys = ("tests", "kilobytes", "descriptors", "segment")
    header = ["Simulated years", "Battery tests", "Memory, kB", "Descriptors", "Segment, bytes"]
    return [
        header,
        *(
            [f"{one['year']:.2f}", *(str(one[key]) for key in keys)] for one in result
        ),
    ]


def _of_clients(found: list[dict]) -> Rows:
    header = ["Status clients in a minute", "Added to count", "Wake-ups", "CPU time, ms"]
    header.append("Memory, kB")
    return [
        header,
        *(
            [
                str(one["clients"]),
                str(one["counted"]),
                str(one["sleeps"]),
                f"{one['cpu']:.2f}",
                str(one["kilobytes"]),
            ]
            for one in found
        ),
    ]


def _of_chips(found: list[dict]) -> Rows:
    header = ["GPIO chips", "Start, ms", "Calls per second, idle", "Memory, kB"]
    return [
        header,
        *(
            [str(one["chips"]), f"{one['start']:.0f}", f"{one['calls']:.1f}", str(one["kilobytes"])]
            for one in found
        ),
    ]
