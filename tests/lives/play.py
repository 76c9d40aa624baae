"""Runs on the board: plays lives one after the other and reports each in a line of JSON.

    play.py seeds FIRST COUNT [BEGIN]
    play.py file PATH [BEGIN]

BEGIN is the uptime in seconds at which the first life begins.
"""

import json
import os
import sys
import tempfile
import traceback
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent.parent / "board"))

import life as lives  # noqa: E402
from guest.clock import now, sleep_until  # noqa: E402
from observer import Mismatch  # noqa: E402
from player import Player  # noqa: E402
from guest.segment import Records  # noqa: E402
from world import SECOND, Undecided  # noqa: E402


def play(life: dict, folder: Path, records: Records) -> dict:
    begin = now() // SECOND
    verbose = "LIVES_VERBOSE" in os.environ
    player = Player(life, folder, records, *([print] if verbose else []))
    if verbose:
        print(json.dumps(life))
    verdict, detail = "agreed", None
    try:
        player.play()
    except Undecided:
        verdict = "undecided"
    except Mismatch as mismatch:
        verdict, detail = "mismatch", str(mismatch)
    except Exception:
        verdict, detail = "failed", traceback.format_exc()
    return {
        "seed": life["seed"],
        "begin": begin,
        "verdict": verdict,
        "detail": detail,
        "steps": player.played,
        "seconds": now() // SECOND - begin,
    }


def main(words: list[str]) -> None:
    kind, first, *rest = words
    if kind == "seeds":
        count, *rest = rest
        chosen = [lives.make(seed) for seed in range(int(first), int(first) + int(count))]
    else:
        chosen = [json.loads(Path(first).read_text())]
    records = Records()
    if rest:
        sleep_until(int(rest[0]) * SECOND)
    folder = Path(tempfile.mkdtemp()) / "life"
    for life in chosen:
        print("report " + json.dumps(play(life, folder, records)), flush=True)


main(sys.argv[1:])
