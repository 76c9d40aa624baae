"""The manual page of $PROGRAM has every option as the program has it."""

import os
import re
import subprocess
from pathlib import Path

import pytest

PROGRAM = Path(os.environ["PROGRAM"])
PAGE = Path(__file__).parents[2] / f"packaging/man/{PROGRAM.name}.8"
OPTION = re.compile(r"(?:-(\w) \[ )?--([\w.-]+)(?: \])?(?: arg)?(?: \(=(.*?)\))?  +(.*)")


def shown_help():
    return subprocess.check_output([PROGRAM, "--help"], text=True, timeout=60)


def options(heading):
    """Short name, long name, default and description of each option below it."""
    (section,) = re.findall(rf"^{heading}:\n(.*?)(?:^\S|\Z)", shown_help(), re.M | re.S)
    _, *entries = re.split(r"^  (?=-)", section, flags=re.MULTILINE)
    lines = (re.sub(r"\n\s+", "  ", entry.strip(), count=1) for entry in entries)
    return [OPTION.fullmatch(re.sub(r"\n\s+", " ", line)).groups(default="") for line in lines]


@pytest.fixture
def page():
    return PAGE.read_text()


def test_the_manual_page_has_every_setting_with_its_default_and_description(page):
    entry = re.compile(r"^\.It Cm (\S+)(?: Pq (\S+))?\n(.*?)\.$", re.MULTILINE)
    expected = [
        (name, default, re.sub(" +", " ", text))
        for _, name, default, text in options("Options that a configuration file may have, too")
    ]
    assert len(expected) >= 8
    assert entry.findall(page) == expected


def test_the_manual_page_has_every_switch(page):
    found = re.findall(r"^\.It (?:Fl (\w) , )?Fl -(\w+)", page, re.MULTILINE)
    assert sorted(found) == sorted((short, name) for short, name, _, _ in options("Options"))
