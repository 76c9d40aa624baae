"""The configuration file that is installed for users to edit."""

import re
from pathlib import Path

from program_help import file_settings, settings

SAMPLE = Path(__file__).parent.parent.parent / "packaging" / "kelvo-pwr.conf"
# What an installed service needs otherwise.
CHANGED = {"test.shut.cutoff": "300", "sys.save.path": "/var/lib/kelvo-pwr/kelvo-pwr.dat"}


def test_every_setting_stands_there_with_its_description_and_default():
    entry = re.compile(r"^# (.*)\n(?:# .*\n)*?(#?)([\w.-]+)=(.*)$", re.MULTILINE)
    expected = [
        (text, "" if name in CHANGED else "#", name, CHANGED.get(name, default))
        for name, default, text in settings() + file_settings()
    ]
    assert entry.findall(SAMPLE.read_text()) == expected


def test_as_installed_it_changes_the_cutoff_alone(rig):
    plain = rig.client("-v", "-s")
    rig.conf.write_text(SAMPLE.read_text())
    changed = rig.client("-v", "-s").stdout.splitlines()
    assert set(changed) - set(plain.stdout.splitlines()) == {"test.shut.cutoff         : 300 seconds"}
    assert len(changed) == plain.stdout.count("\n") == 17


def test_the_defaults_in_it_are_accepted_and_change_nothing(rig):
    rig.conf.write_text(SAMPLE.read_text())
    plain = rig.client("-v", "-s")
    rig.conf.write_text(re.sub(r"^#(?=[\w.-]+=)", "", SAMPLE.read_text(), flags=re.MULTILINE))
    assert rig.client("-v", "-s") == plain
