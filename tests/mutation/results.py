"""What a run has found, and the survivors that are known."""

import json
import sys
from collections import Counter
from pathlib import Path
from typing import Iterable, Optional

from breaks import Break
from trial import ENTRY

sys.path.append(str(Path(__file__).resolve().parent.parent / "docs"))

from kept import keep  # noqa: E402

VERDICTS = ("does not compile", "unit", "host", "simulator", "board", "survived")
KNOWN = json.loads((Path(__file__).parent / "survivors.json").read_text())


def counts(verdicts: Iterable[str]) -> dict:
    return {**dict.fromkeys(VERDICTS, 0), **Counter(verdicts)}


def reason(one: Break) -> Optional[str]:
    """Why nothing can notice it, or nothing needs to; None for one that is not known."""
    for known in KNOWN:
        if (one.file, one.diff()) == (known["file"], "\n".join(known["diff"])):
            return known["why"]
    return None


def keep_counts(tried: list, of: int, seed: int) -> None:
    groups = {
        "the sources but `main.cpp`": lambda name: name.endswith(".cpp") and name != ENTRY,
        "`main.cpp`": lambda name: name == ENTRY,
        "the headers": lambda name: name.endswith(".h"),
    }
    rows = []
    for title, belongs in groups.items():
        found = counts(verdict for one, verdict in tried if belongs(one.file))
        total = sum(found.values())
        rows.append([title, *(str(number) for number in (total, *found.values()))])
    keep("mutation", {
        "text": "On {date}, with src at {src}: {tried} of {all} breaks, from seed {seed}.",
        "values": {"tried": len(tried), "all": of, "seed": seed},
        "columns": [
            "Breaks of", "Tried", "Do not compile", "Noticed by unit tests", "on the host",
            "simulated", "on the board", "Survived",
        ],
        "rows": rows,
    })


def table_of_survivors() -> dict:
    kinds = Counter((one["file"], one["what"], one["why"]) for one in KNOWN)
    rows = [
        [f"`{Path(file).name}`", what + (f" ({times} times)" if times > 1 else ""), why]
        for (file, what, why), times in sorted(kinds.items())
    ]
    return {"columns": ["Source", "Survivor", ""], "rows": rows}
