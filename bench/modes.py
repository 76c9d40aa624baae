"""The modes of bench/run: tables by the names they are kept under; whether goals are reached."""

import json
from argparse import Namespace
from contextlib import ExitStack

from part import on_board, on_host
from programs.builds import SMALL_MAP, build_otherwise, stripped_bytes
from programs.linker_map import bytes_by_part
from programs.names import BARE, DEFAULT, NUT, OVERDUE, SMALL
from programs.nut import Nut
from report.chart import chart
from report.figures import GOALS, Results, figures_of, judge, judge_counts
from report.tables import Rows, goal_rows, program_rows

Found = tuple[dict[str, Rows], bool]

# Not the one of a server that this machine may have.
_NUT_PORT = 34930


def everything(paths: dict, words: Namespace) -> Found:
    """Rounds of all measurements."""
    rounds = {"paths": paths, "rounds": words.rounds}
    starts, window = {**rounds, "starts": words.starts}, {**rounds, "window": words.window}
    with ExitStack() as open_now:
        # Outside: where the clients are measured its server has no users to change to.
        nut = open_now.enter_context(Nut(paths[NUT], _NUT_PORT)) if paths[NUT] else None
        client = nut.status_client if nut and nut.serve() else []
        results = on_host("status", nut_client=client, **starts)
    results |= on_host("cpu", **window)
    results |= on_board("start.in_comparison", **starts)
    results |= on_board("idle.all_at_once", **window)
    results |= on_host("instructions", paths=paths)
    results |= on_board("falls.delays", realtime=False, paths=paths, falls=words.falls)
    results["size"] = {name: [stripped_bytes(paths[name]) / 1000] for name in (DEFAULT, SMALL)}
    _write(results, words, "results.json")
    figures = figures_of(results)
    ((words.keep or words.output) / "cost.svg").write_text(chart(figures, GOALS))
    verdicts = judge(GOALS, figures)
    tables = {"cost_goals": goal_rows(verdicts), "cost_programs": program_rows(figures)}
    return tables, all(verdict.reached for verdict in verdicts)


def counts(paths: dict, words: Namespace) -> Found:
    """In simulated time, where they are exact."""
    idle = {"paths": paths, "programs": [DEFAULT, OVERDUE, SMALL, BARE], "window": 60, "rounds": 1}
    results = on_board("idle.all_at_once", realtime=False, **idle)
    results |= on_host("instructions", paths=paths)
    _write(results, words, "counts.json")
    verdicts = judge_counts(results)
    return {"cost_counts": goal_rows(verdicts)}, all(verdict.reached for verdict in verdicts)


def growth(paths: dict, _: Namespace) -> Found:
    program, chips = paths[DEFAULT], [1, 4, 16, 64]
    tables = {
        "cost_memory": on_host("mappings", paths=paths),
        "cost_years": on_host("years", program=program, years=10),
        "cost_clients": on_host("clients", program=program, clients=100),
        "cost_chips": on_board("start.with_chips", program=program, chips=chips, starts=20),
    }
    return tables, True


def monitoring(paths: dict, _: Namespace) -> Found:
    return {"cost_monitoring": on_host("monitoring", paths=paths, minutes=5)}, True


def trials(paths: dict, _: Namespace) -> Found:
    memory = {BARE: _memory_alone(BARE, paths), "as it is": _memory_alone(DEFAULT, paths)}
    for name, path in build_otherwise():
        memory[name] = _memory_alone(DEFAULT, {**paths, DEFAULT: path})
    of_memory = [[name, f"{kb:,}", f"{kb / memory[BARE]:.2f}"] for name, kb in memory.items()]
    size = stripped_bytes(paths[SMALL])
    parts = {**bytes_by_part(SMALL_MAP.read_text(), size), "together": size}
    of_parts = [[name, f"{part / 1000:,.0f}"] for name, part in parts.items()]
    tables = {
        "cost_trials": [["Build", "Memory, kB", f"Times that of the {BARE}"], *of_memory],
        "cost_parts": [["Part", "kB"], *of_parts],
    }
    return tables, True


def _memory_alone(program: str, paths: dict) -> int:
    idle = {"paths": paths, "programs": [program], "window": 1, "rounds": 1}
    (found,) = on_board("idle.all_at_once", realtime=False, **idle)["memory"][program]
    return found


def _write(results: Results, words: Namespace, name: str) -> None:
    (words.output / name).write_text(json.dumps(results, indent=1) + "\n")
