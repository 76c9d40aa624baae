"""Breaks src in one small place at a time and reports the breaks that no test notices.

Works in a copy of the checkout. Each break is built and put before the unit tier, a break of the
entry point before tests/host/start_up_test.py; those that survive it go before the
scenarios, simulated and then on the board, unless they are in tests/mutation/survivors.json.
Ends with status 1 when one survives that is not there.
"""

import argparse
import fnmatch
import hashlib
import sys
import tempfile
import time
from pathlib import Path

import results
from breaks import Break, breaks_of
from checkout import ROOT, compiled_files
from trial import ENTRY, Trial


def main() -> int:
    arguments = _arguments()
    breaks = [
        one
        for name in compiled_files()
        if _is_chosen(name, arguments.files) and (name != ENTRY or not arguments.unit_only)
        for one in breaks_of(ROOT, name)
    ]
    if arguments.list:
        for number, one in enumerate(breaks):
            print(f"{number} {one.file}:{one.line}\n{one.diff()}")
        return 0
    # So that a run that is ended early has tried a sample of all, and the same one when other
    # breaks have come or gone.
    breaks.sort(key=lambda one: _drawn(arguments.seed, one))
    chosen = breaks[arguments.skip :][: arguments.take]
    with tempfile.TemporaryDirectory(prefix="mutate-") as folder:
        work = (arguments.work or Path(folder)).absolute()
        tried = _judge(chosen, Trial(work, not arguments.unit_only), arguments)
    if arguments.keep:
        results.keep_counts(tried, len(breaks), arguments.seed)
        results.keep("survivors", results.table_of_survivors())
    return _report(tried)


def _drawn(seed: int, one: Break) -> bytes:
    return hashlib.sha256(f"{seed} {one.file} {one.diff()}".encode()).digest()


def _arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="mutate", description=__doc__.split("\n", 1)[0])
    parser.add_argument("files", nargs="*", help="patterns such as 'src/app/*' (default: all)")
    parser.add_argument("--list", action="store_true", help="only show the breaks")
    parser.add_argument("--unit-only", action="store_true", help="no scenarios")
    parser.add_argument("--seed", type=int, default=1, metavar="N", help="of the order")
    parser.add_argument("--work", type=Path, metavar="FOLDER", help="keep the copy and its build")
    parser.add_argument("--skip", type=int, default=0, metavar="N", help="leave out the first N")
    parser.add_argument("--take", type=int, metavar="N", help="try no more than these")
    parser.add_argument("--minutes", type=float, help="stop after these and report what was tried")
    parser.add_argument("--keep", action="store_true", help="write the results into the page")
    return parser.parse_args()


def _is_chosen(name: str, patterns: list[str]) -> bool:
    return not patterns or any(fnmatch.fnmatch(name, pattern) for pattern in patterns)


def _judge(breaks: list[Break], trial: Trial, arguments: argparse.Namespace) -> list:
    """The breaks that were tried, each with its verdict."""
    tried = []
    end = time.monotonic() + arguments.minutes * 60 if arguments.minutes else None
    for number, one in enumerate(breaks):
        if end is not None and time.monotonic() > end:
            print(f"Out of time: {len(breaks) - number} of {len(breaks)} were not tried.")
            break
        # What no test can tell from the program takes minutes of scenarios to say so again.
        is_known = results.reason(one) is not None
        verdict = trial.of(one, with_scenarios=not (arguments.unit_only or is_known))
        tried.append((one, verdict))
        print(f"{number + 1}/{len(breaks)} {one.file}:{one.line} {verdict}", flush=True)
        if verdict == "survived":
            print(one.diff(), flush=True)
    return tried


def _report(tried: list) -> int:
    counts = results.counts(verdict for _, verdict in tried)
    survivors = [one for one, verdict in tried if verdict == "survived"]
    unknown = [one for one in survivors if results.reason(one) is None]
    print(f"\n{len(tried)} breaks, of which {counts['does not compile']} do not compile:")
    print(f"{counts['unit']} noticed by the unit tier, {counts['host']} by a start on the host,")
    print(f"{counts['simulator']} simulated, {counts['board']} on the board,")
    print(f"{len(survivors)} survived; known are {len(survivors) - len(unknown)}, and not these:")
    for one in unknown:
        print(f"\n{one.file}:{one.line}\n{one.diff()}")
    return 1 if unknown else 0


if __name__ == "__main__":
    sys.exit(main())
