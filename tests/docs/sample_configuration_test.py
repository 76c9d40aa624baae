"""The configuration file that is installed for users to edit."""

import re
from pathlib import Path

import pytest

from program_help import file_settings, run, settings

SAMPLE = Path(__file__).parent.parent.parent / "packaging" / "kelvo-pwr.conf"
# What an installed service needs otherwise.
CHANGED = {"test.shut.cutoff": "300", "sys.save.path": "/var/lib/kelvo-pwr/kelvo-pwr.dat"}


@pytest.fixture
def listing(tmp_path):
    """The settings as the program lists them with a configuration of this text."""
    conf = tmp_path / "kelvo-pwr.conf"

    def listing(text):
        conf.write_text(text)
        return run("-c", conf, "-v", "-s").stdout.splitlines()

    return listing


def test_every_setting_stands_there_with_its_description_and_default():
    entry = re.compile(r"^# (.*)\n(?:# .*\n)*?(#?)([\w.-]+)=(.*)$", re.MULTILINE)
    expected = [
        (text, "" if name in CHANGED else "#", name, CHANGED.get(name, default))
        for name, default, text in settings() + file_settings()
    ]
    assert entry.findall(SAMPLE.read_text()) == expected


def test_as_installed_it_changes_the_cutoff_alone(listing):
    plain, changed = listing(""), listing(SAMPLE.read_text())
    assert set(changed) - set(plain) == {"test.shut.cutoff         : 300 seconds"}
    assert len(changed) == len(plain) == 17


def test_the_defaults_in_it_are_accepted_and_change_nothing(listing):
    defaults = re.sub(r"^#(?=[\w.-]+=)", "", SAMPLE.read_text(), flags=re.MULTILINE)
    assert listing(defaults) == listing(SAMPLE.read_text())
