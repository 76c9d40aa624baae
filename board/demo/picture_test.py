"""The picture of a made-up story; run by pytest on the host."""

import re
import xml.etree.ElementTree as ElementTree

import pytest

from demo.picture import picture
from demo.record import Event, Record
from guest.lines import LINES, MEANINGS
from host.plot import MARK, OURS

SVG = "{http://www.w3.org/2000/svg}"
LEVELS = dict(zip(LINES, (0, 1, 0, 1)))
EVENTS = [
    (0, "chapter", "A beginning"),
    (1, "daemon", "Start"),
    (25, "PWR-IN", "1"),
    (30, "chapter", "An end: <it> is near"),
    (50, "BAT-T2", "1"),
    (60, "daemon", "MS: 1"),
    (75, "BAT-T2", "0"),
    (100, "daemon", "Still alive, force shutdown"),
]


@pytest.fixture(name="record")
def fixture_record():
    events = [Event(seconds * 10**9, kind, text) for seconds, kind, text in EVENTS]
    return Record(begin=0, coupled=False, levels=LEVELS, events=events)


def texts(svg):
    return [text.text for text in ElementTree.fromstring(svg).iter(f"{SVG}text")]


def steps(svg, colour):
    """The corners of each line of this colour: times in seconds, and levels from its lowest."""
    rgb = tuple(int(colour[place : place + 2], 16) for place in (1, 3, 5))
    found = []
    for path in ElementTree.fromstring(svg).iter(f"{SVG}path"):
        if tuple(map(int, re.findall(r"\d+", path.get("stroke") or ""))) != rgb:
            continue
        places = [float(number) for number in re.findall(r"[\d.]+", path.get("d"))]
        xs, ys = places[::2], places[1::2]
        levels = [round((max(ys) - y) / (max(ys) - min(ys) or 1)) for y in ys]
        # A little more than the whole story.
        seconds = [round((x - 230) / (0.98 * 1080 - 230) * 102, 1) for x in xs]
        found.append(list(zip(seconds, levels)))
    return found


def test_lines_step_when_their_levels_change(record):
    svg = picture(record)
    constant = [(0, 0), (102, 0)]
    changes = [(0, 0), (25, 0), (25, 1), (102, 1)]
    assert steps(svg, OURS) == [changes, constant]
    pulse = [(0, 0), (50, 0), (50, 1), (75, 1), (75, 0), (102, 0)]
    assert steps(svg, MARK) == [pulse, constant]


def test_it_tells_what_happened_and_what_levels_mean(record):
    found = texts(picture(record))
    meanings = {
        f"{meaning} {level}" for both in MEANINGS.values() for level, meaning in enumerate(both)
    }
    seconds = {f"{seconds} s" for seconds in range(0, 101, 20)}
    assert sorted(set(found) - meanings - seconds) == sorted(
        [
            "A good battery test, a failed one, AC power lost, the battery cut",
            "1. A beginning",
            "2. An end: <it> is near",
            "Start",
            "Still alive, force shutdown",
            "input",
            "output",
            *LINES,
        ]
    )
    assert meanings | seconds < set(found)


def test_a_coupled_board_is_named(record):
    record.coupled = True
    (title,) = (text for text in texts(picture(record)) if "coupled" in text)
    assert title.endswith("the battery cut (BAT-T2 coupled to PWR-IN)")


def test_a_machine_says_its_last_word_when_all_is_unmounted(record):
    record.is_machine = True
    record.events.insert(-1, Event(90 * 10**9, "system", "kelvo-pwr: the battery is cut"))
    found = texts(picture(record))
    assert "A good battery test, a failed one, AC power lost, power cut, the next boot" in found
    assert "kelvo-pwr: the battery is cut" in found
