"""Plays random lives against a model of what is to happen, simulated or on the board.

    scripts/soak --lives N [--seed S]          N lives from seed S on
    scripts/soak --life SEED [--begin UPTIME]  one life again, step by step

Needs a build: KELVO_PWR, SEGMENT_TOOL and SIMULATOR name the program, the test's tool and the
simulator, by default those of the release preset. Ends with status 1 when a life came out otherwise
than predicted, or more than one in a hundred without a verdict; 77 when this host cannot play.
"""

import argparse
import json
import sys
from pathlib import Path
from time import monotonic

sys.path.append(str(Path(__file__).resolve().parent.parent / "docs"))

from kept import keep  # noqa: E402
from on_host import CannotRun, Host  # noqa: E402
from shrink import shortest  # noqa: E402

# How often a run says how far it is.
_LIVES_PER_LINE = 1000
# Many lives go wrong for the same reason.
_MOST_SHOWN = 5


def soak(host: Host, first: int, count: int, is_kept: bool) -> int:
    totals = {"agreed": 0, "undecided": 0, "mismatch": 0, "failed": 0}
    steps = seconds = 0
    begin = monotonic()
    # All of them first: shortening a life plays others.
    wrong = []
    for number, report in enumerate(host.seeds(first, count), start=1):
        totals[report["verdict"]] += 1
        steps += report["steps"]
        seconds += report["seconds"]
        if report["detail"]:
            wrong.append(report)
        if number % _LIVES_PER_LINE == 0:
            print(f"{number} lives of {count}", file=sys.stderr, flush=True)
    minutes = (monotonic() - begin) / 60
    for report in wrong[:_MOST_SHOWN]:
        show(host, report)
    print(
        f"{sum(totals.values())} lives, {steps} steps, {seconds} simulated seconds"
        f" ({seconds / 86400:.1f} days), {totals['mismatch']} mismatches,"
        f" {totals['failed']} failures, {totals['undecided']} without a verdict to the end,"
        f" in {minutes:.1f} minutes"
    )
    if is_kept:
        counts = {"lives": count, "first": first, "last": first + count - 1, "steps": steps, **totals}
        keep("lives", {
            "text": "Reached on {date}, with src at {src}: {lives} lives (seeds {first} to"
            " {last}) with {steps} steps in {days} simulated days: {mismatch} mismatches, {failed}"
            " failures, {undecided} without a verdict to the end.",
            "values": {**counts, "days": f"{seconds / 86400:.1f}"},
        })
    too_many_undecided = 100 * totals["undecided"] > count
    return 1 if totals["mismatch"] or totals["failed"] or too_many_undecided else 0


def show(host: Host, report: dict) -> None:
    """A life that went wrong: where, and the shortest that still does."""
    steps = [*host.make(report["seed"])["steps"], "the status at the end"]
    print(f"life {report['seed']}: {report['verdict']}")
    print(f"  step {report['steps']}: {steps[report['steps']]}")
    print(f"  {report['detail']}")
    print(f"  again: scripts/soak --life {report['seed']} --begin {report['begin']}", flush=True)
    life, last = shortest(host, report)
    print(f"  shortest, {len(life['steps'])} steps: {last['detail']}")
    print(f"  {json.dumps(life)}", flush=True)


def replay(host: Host, source: str, begin: str) -> int:
    report = host.file(source, begin, verbose=True)
    print(f"{report['verdict']} after {report['steps']} steps, {report['seconds']} seconds")
    if report["detail"]:
        print(report["detail"])
    return 1 if report["verdict"] in ("mismatch", "failed") else 0


def main() -> int:
    parser = argparse.ArgumentParser(prog="soak", description=__doc__.split("\n", 1)[0])
    parser.add_argument("--lives", type=int, default=100, metavar="N")
    parser.add_argument("--seed", type=int, default=1, metavar="S", help="of the first life")
    parser.add_argument("--keep", action="store_true", help="write the totals into the page")
    parser.add_argument("--life", metavar="SEED", help="play this one, or the one in this file")
    parser.add_argument("--begin", default="", metavar="UPTIME", help="of the one life")
    parser.add_argument("--board", action="store_true", help="on the board, not simulated")
    words = parser.parse_args()
    try:
        host = Host(words.board)
        if words.life is not None:
            return replay(host, words.life, words.begin)
        return soak(host, words.seed, words.lives, words.keep)
    except CannotRun as reason:
        print(reason, file=sys.stderr)
        return 77


if __name__ == "__main__":
    sys.exit(main())
