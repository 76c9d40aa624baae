"""Plays lives one after the other, on the board or in a simulated world, and reports each in JSON.

    play.py seeds FIRST COUNT [BEGIN]
    play.py file PATH [BEGIN]

BEGIN is the uptime in seconds at which the first life begins; without it a simulated one begins at
its own.
"""

import json
import os
import sys
import traceback
from pathlib import Path
from typing import Optional

import life as lives
from guest.board import wire
from guest.clock import now
from guest.segment import Records
from observer import Mismatch
from world import SECOND, Undecided

if "LIVES_AS_SEEN" in os.environ:
    import as_on_board as place
elif "SIMULATOR" in os.environ:
    import on_simulator as place
else:
    import on_board as place


def play(life: dict, folder: Path, records: Records, begin: Optional[int]) -> dict:
    place.begin(life, begin)
    begin = now() // SECOND
    verbose = "LIVES_VERBOSE" in os.environ
    player = place.Player(life, folder, records, place, *([print] if verbose else []))
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
    if hasattr(player, "world"):
        begin = player.world.begin - 1  # It prepares until a whole second begins.
    seen = {"story": player.story, "moments": player.moments, "charges": place.charges()}
    return {
        **(seen if "LIVES_STORY" in os.environ else {}),
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
        seeds = range(int(first), int(first) + int(count))
        chosen = [lives.make(seed, place.IS_SIMULATED) for seed in seeds]
    else:
        chosen = [json.loads(Path(first).read_text())]
    wire()
    records = Records()
    begin = int(rest[0]) if rest else None
    folder = Path("/run/life")  # In memory.
    for life in chosen:
        print("report " + json.dumps(play(life, folder, records, begin)), flush=True)
        begin = None


main(sys.argv[1:])
