"""Power cuts at random moments, each followed by a boot."""

import random
import re
from pathlib import Path
from typing import NamedTuple

from machine.disk import Lost
from rig import RESULT_FILE, Lived

# Each with the story that leads there, and the seconds between which the cut comes.
_ROADS = {
    "battery tests, one after the other": ("tests_until_cut", 0.5, 8.5),
    "the way down": ("way_down_until_cut", -0.5, 4.5),
}
_WHOLE = re.compile(r"result\.start=\d+\nresult\.end=\d+\n")


class Cut(NamedTuple):
    road: str
    moment: float  # seconds
    lost: Lost
    file: str  # of the times, when the machine had booted again
    said: list[str]  # by the daemon of that boot


def cut_at_random(seed: int, folder: Path) -> Cut:
    """Raises AssertionError where anything but the moment's own writes is lost."""
    chance = random.Random(seed)
    road, (story, first, last) = chance.choice(sorted(_ROADS.items()))
    moment = round(chance.uniform(first, last), 3)
    lived = Lived(folder, story, moment, seed=seed)
    assert (lived.ends(), lived.status) == (["power cut", "the command's end"], 0), lived.ends()
    lived.assert_file_system_whole()
    said = lived.of_the_daemon(2)
    assert said[-1] == "Full server", said
    text, files = lived.file(RESULT_FILE), lived.state_files()
    if _WHOLE.fullmatch(text):
        file = "whole"
    else:
        assert text == "", text
        file = "set aside" if "kelvo-pwr.dat.spoilt" in files else "empty" if files else "none"
    (lost,) = lived.life.lost
    return Cut(road, moment, lost, file, said)
