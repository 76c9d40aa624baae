"""The README and the manual page have every option, with its default, as the program does."""

import re
from pathlib import Path

import pytest

from rig import PROGRAM

from guest.process import run

PROJECT = Path(__file__).parent.parent.parent
OPTION = re.compile(r"  (?:-(\w) \[ )?--([\w.-]+)(?: \])?(?: arg)?(?: \(=(.*?)\))?(?:  .*)?")


def documented_defaults(page, pattern):
    """What a page says of each setting's default, in its order."""
    return [(key, value.strip("`")) for key, value in re.findall(pattern, page, re.MULTILINE)]


@pytest.fixture
def options():
    """Short name, long name and default of every option; the last is empty for a switch."""
    found = [OPTION.fullmatch(line) for line in run([PROGRAM, "--help"]).stdout.splitlines()]
    return [match.groups(default="") for match in found if match]


@pytest.fixture
def settings(options):
    """The options that are settings, with a bool's default as a word."""
    bools = ("test.battery", "test.external-scheduling")
    return [
        (name, {"0": "false"}[default] if name in bools else default)
        for _, name, default in options
        if "." in name
    ]


def test_there_are_options(options, settings):
    assert (len(options), len(settings)) == (19, 13)


def test_the_readme_has_every_setting(settings):
    readme = (PROJECT / "README.md").read_text()
    assert documented_defaults(readme, r"^\| `--(\w+\.[\w.-]+)` \| (\S+) \|") == settings


def test_the_readme_has_every_switch(options):
    readme = (PROJECT / "README.md").read_text()
    switches = re.findall(r"^\| `-(\w)`, `--([\w-]+)(?: FILE)?` \| \|", readme, re.MULTILINE)
    expected = [(short, name) for short, name, _ in options if "." not in name]
    assert sorted(switches) == sorted(expected)


def test_the_manual_page_has_every_setting(settings):
    page = (PROJECT / "packaging" / "man" / "kelvo-pwr.8").read_text()
    found = documented_defaults(page, r"^\.It Cm (\w+\.[\w.-]+) Pq (?:Ql )?(\S+)$")
    on_command_line = [(key, default) for key, default in found if not key.startswith("sys.")]
    assert on_command_line == settings


def test_the_manual_page_has_every_switch(options):
    page = (PROJECT / "packaging" / "man" / "kelvo-pwr.8").read_text()
    switches = re.findall(r"^\.It Fl (\w) , Fl -([\w-]+)", page, re.MULTILINE)
    expected = [(short, name) for short, name, _ in options if "." not in name]
    assert sorted(switches) == sorted(expected)
