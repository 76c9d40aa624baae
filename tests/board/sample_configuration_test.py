"""The configuration file that is installed for users to edit."""

import re
from pathlib import Path

from program_help import file_settings, settings

SAMPLE = Path(__file__).parent.parent.parent / "packaging" / "kelvo-pwr.conf"
STATE = "/var/lib/kelvo-pwr/kelvo-pwr.dat"


def test_every_setting_stands_there_with_its_description_and_default():
    entry = re.compile(r"^# (.*)\n(?:# .*\n)*?(#?)([\w.-]+)=(.*)$", re.MULTILINE)
    expected = [
        (text, "#", name, default) if name != "sys.save.path" else (text, "", name, STATE)
        for name, default, text in settings() + file_settings()
    ]
    assert entry.findall(SAMPLE.read_text()) == expected


def test_as_installed_it_changes_no_setting(rig):
    plain = rig.client("-v", "-s")
    rig.conf.write_text(SAMPLE.read_text())
    assert rig.client("-v", "-s") == plain
    assert plain.stdout.count("\n") == 17


def test_the_defaults_in_it_are_accepted_and_change_nothing(rig):
    plain = rig.client("-v", "-s")
    rig.conf.write_text(re.sub(r"^#(?=[\w.-]+=)", "", SAMPLE.read_text(), flags=re.MULTILINE))
    assert rig.client("-v", "-s") == plain
