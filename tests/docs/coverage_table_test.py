"""The table of coverage, of a made-up summary."""

import json
import subprocess
from pathlib import Path

_SCRIPT = Path(__file__).resolve().parent / "coverage_table"


def counts(lines, branches, **more):
    names = ("line_covered", "line_total", "branch_covered", "branch_total")
    return {**dict(zip(names, (*lines, *branches))), **more}


def test_each_file_has_a_row_and_the_sums_stand_above():
    files = [
        counts((7, 7), (0, 0), filename="src/b.cpp"),
        counts((2, 3), (1, 4), filename="src/app/a.cpp"),
    ]
    summary = json.dumps(counts((9, 10), (1, 4), files=files))
    kept = json.loads(subprocess.check_output([_SCRIPT], input=summary, text=True))
    assert kept["rows"] == [["`app/a.cpp`", "2/3", "1/4"], ["`b.cpp`", "7/7", "none"]]
    text = kept["text"].format(date="DAY", src="SOURCES", **kept["values"])
    assert text == "Reached on DAY, with src at SOURCES: 9 of 10 lines, 1 of 4 branches."
