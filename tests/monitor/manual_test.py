"""The monitor's manual page and sample configuration have every option as the program has it."""

import os
import re
import subprocess
from pathlib import Path

import pytest

PROJECT = Path(__file__).parents[2]
SAMPLE = PROJECT / "contrib/monitor/monitor.conf"
OPTION = re.compile(r"(?:-(\w) \[ )?--([\w.-]+)(?: \])?(?: arg)?(?: \(=(.*?)\))?  +(.*)")


def run(*words):
    command = [os.environ["KELVO_PWR_MONITOR"], *words]
    return subprocess.run(command, capture_output=True, text=True, timeout=60)


def options(heading):
    """Short name, long name, default and description of each option below it."""
    (section,) = re.findall(rf"^{heading}:\n(.*?)(?:^\S|\Z)", run("--help").stdout, re.M | re.S)
    _, *entries = re.split(r"^  (?=-)", section, flags=re.MULTILINE)
    lines = (re.sub(r"\n\s+", "  ", entry.strip(), count=1) for entry in entries)
    return [OPTION.fullmatch(re.sub(r"\n\s+", " ", line)).groups(default="") for line in lines]


@pytest.fixture
def page():
    return (PROJECT / "packaging/man/kelvo-pwr-monitor.8").read_text()


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


def test_the_sample_is_accepted(tmp_path):
    own = SAMPLE.read_text().replace("=/run/kelvo-pwr-monitor/", f"={tmp_path}/")
    own = re.sub("^state=.*", f"state={tmp_path}/state", own, flags=re.MULTILINE)
    (tmp_path / "conf").write_text(own)
    done = run("--once", "-c", tmp_path / "conf")
    assert (done.stdout, done.returncode) == ("", 0)
    assert {path.name for path in tmp_path.iterdir()} == {"conf", "kelvo_pwr.prom", "state"}
