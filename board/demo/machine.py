"""Plays the story on a whole machine; prints its record as JSON.

The words are the package for the machine and the folder that gets its console, journal and lines.
"""

import dataclasses
import json
import re
import sys
from pathlib import Path
from typing import Iterator

from demo.chapters import SETTINGS
from demo.record import Event, Record
from guest.names import AT2, BAT_SW, LINES
from host.problems import BoardFailure
from host.supervised import supervised
from machine.files import add_own, put
from machine.life import Happening, Life
from machine.run import copy_disk, installed, journal, keep_all, product_of
from machine.supply import PULLS

_HERE = Path(__file__).parent
_STORY = [_HERE / "on_machine.py", _HERE / "chapters.py"]
_CONFIGURATION = f"{SETTINGS}sys.save.path=/var/lib/kelvo-pwr/kelvo-pwr.dat\n"
_LONGEST_SECONDS = 1800
# On the console, when all is unmounted.
_LAST = re.compile(r"\[ *([\d.]+)\] (kelvo-pwr: .*)")


def play(scratch: Path, package: Path, folder: Path) -> int:
    product, disk = product_of("arm64", "bookworm", scratch)
    copy = copy_disk(installed(product, disk, package), scratch)
    add_own(copy.image, _STORY)
    put(copy.image, {"/etc/kelvo/kelvo-pwr.conf": _CONFIGURATION})
    life = Life(product, scratch, copy, ["python3", "-PB", "/board/on_machine.py"])
    status = life.live(_LONGEST_SECONDS)
    keep_all(life, scratch, copy, folder)
    if status != 0:
        raise BoardFailure(f"the story has not been told to its end: {folder / 'console'}")
    json.dump(dataclasses.asdict(_record(life, scratch, journal(copy, scratch))), sys.stdout)
    return 0


def _record(life: Life, scratch: Path, entries: str) -> Record:
    # What is told of at the same moment comes first.
    events = [*_last_words(life, (scratch / "console").read_text(errors="replace"))]
    events += [event for one in life.happenings for event in _events(life, one)]
    boots: list[str] = []
    for entry in map(json.loads, entries.splitlines()):
        if entry["_BOOT_ID"] not in boots:
            boots.append(entry["_BOOT_ID"])
        if entry.get("SYSLOG_IDENTIFIER") == "kelvo-pwr":
            age = life.ages[len(boots) - 1]
            time = age + int(entry["__MONOTONIC_TIMESTAMP"]) * 1000
            events.append(Event(time, "daemon", entry["MESSAGE"]))
    events.sort(key=lambda event: event.time)
    begin = next(event.time for event in events if event.text == "Start")
    return Record(begin, False, dict(zip(LINES, (0, 1, 0, 1))), events, is_machine=True)


def _events(life: Life, one: Happening) -> Iterator[Event]:
    time = life.ages[one.boot - 1] + one.time
    if one.kind in (*LINES, "chapter", "client"):
        yield Event(time, one.kind, one.text)
    elif one.kind == "did":
        yield Event(time, "outside", one.text)
    elif one.kind == "end" and one.text == "power cut":
        yield Event(time, "chapter", "The machine has no power any more")
    elif one.kind == "boot" and one.boot > 1:
        yield Event(time, "chapter", "AC power is back: it boots from the same disk")
        # Nobody drives them.
        for line in (AT2, BAT_SW):
            yield Event(time, line, str(PULLS[line]))


def _last_words(life: Life, console: str) -> Iterator[Event]:
    """The console's clock is some milliseconds ahead; they are said before the last deed."""
    last_deeds = {one.boot: one.time for one in life.happenings if one.kind in LINES}
    boot = 0
    for line in console.splitlines():
        boot += line.startswith("=== boot ")
        if match := _LAST.search(line):
            time = min(round(float(match[1]) * 1e9), last_deeds[boot])
            yield Event(life.ages[boot - 1] + time, "system", match[2].rstrip())


if __name__ == "__main__":
    sys.exit(supervised(lambda scratch: play(scratch, Path(sys.argv[1]), Path(sys.argv[2]))))
