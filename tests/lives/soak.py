"""Plays random lives of the board against a model of what is prescribed.

    scripts/soak --lives N [--seed S]          N lives from seed S on
    scripts/soak --life SEED [--begin UPTIME]  one life again, step by step

Needs a build: KELVO_PWR and SEGMENT_TOOL name the program and the test's tool, by default
those of the release preset. Ends with status 1 when a life came out otherwise than
predicted, or more than one in a hundred without a verdict; 77 when this host cannot run the board.
"""

import argparse
import json
import os
import sys
from pathlib import Path

sys.path.append(str(Path(__file__).resolve().parent.parent / "docs"))

from kept import keep  # noqa: E402
from life import make  # noqa: E402
from on_host import LIVES_PER_BOOT, CannotRun, play_file, play_seeds  # noqa: E402
from shrink import shortest  # noqa: E402

ROOT = Path(__file__).resolve().parent.parent.parent


def soak(first: int, count: int, is_kept: bool) -> int:
    totals = {"agreed": 0, "undecided": 0, "mismatch": 0, "failed": 0}
    steps = seconds = 0
    for begin in range(first, first + count, LIVES_PER_BOOT):
        # All of them first: shortening a life boots boards of its own.
        for report in list(play_seeds(begin, min(LIVES_PER_BOOT, first + count - begin))):
            totals[report["verdict"]] += 1
            steps += report["steps"]
            seconds += report["seconds"]
            if report["detail"]:
                show(report)
        print(f"{sum(totals.values())} lives of {count}", file=sys.stderr, flush=True)
    print(
        f"{sum(totals.values())} lives, {steps} steps, {seconds} simulated seconds"
        f" ({seconds / 86400:.1f} days), {totals['mismatch']} mismatches,"
        f" {totals['failed']} failures, {totals['undecided']} without a verdict to the end"
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


def show(report: dict) -> None:
    """A life that went wrong: where, and the shortest that still does."""
    steps = [*make(report["seed"])["steps"], "the status at the end"]
    print(f"life {report['seed']}: {report['verdict']}")
    print(f"  step {report['steps']}: {steps[report['steps']]}")
    print(f"  {report['detail']}")
    print(f"  again: scripts/soak --life {report['seed']} --begin {report['begin']}", flush=True)
    life, last = shortest(report)
    print(f"  shortest, {len(life['steps'])} steps: {last['detail']}")
    print(f"  {json.dumps(life)}", flush=True)


def replay(source: str, begin: int) -> int:
    report = play_file(source, begin, verbose=True)
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
    parser.add_argument("--begin", type=int, default=0, metavar="UPTIME", help="of the one life")
    words = parser.parse_args()
    build = ROOT / "build" / "release"
    os.environ.setdefault("KELVO_PWR", str(build / "kelvo-pwr"))
    os.environ.setdefault("SEGMENT_TOOL", str(build / "tests" / "board" / "segment_tool"))
    try:
        if words.life is not None:
            return replay(words.life, words.begin)
        return soak(words.seed, words.lives, words.keep)
    except CannotRun as reason:
        print(reason, file=sys.stderr)
        return 77


if __name__ == "__main__":
    sys.exit(main())
