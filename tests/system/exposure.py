"""What systemd thinks of a unit's sandbox, and what docs/sandbox.md says that it does."""

import re

from pages import PROJECT

from guest.process import run

PAGE = PROJECT / "docs/sandbox.md"


def thoughts_of(unit):
    return run(["systemd-analyze", "security", "--no-pager", unit]).stdout.splitlines()


def points_of(unit):
    (overall,) = (line for line in thoughts_of(unit) if "Overall" in line)
    return re.search(r": (\d\.\d \w+)", overall)[1]


def told_points():
    """By unit, of those that have a row."""
    row = r"^\| `(\S+\.service)`.* \| (\d\.\d \w+) \|$"
    return dict(re.findall(row, PAGE.read_text(), re.MULTILINE))
