"""service/way-down-settings: what of /etc/kelvo/way-down.conf has an effect, and what is said."""

import os
import subprocess
from pathlib import Path

import pytest

PROGRAM = Path(__file__).parents[2] / "service/way-down-settings"
SETTINGS = "the settings are start-again and cut-battery, yes or no"
# Root may read everything by a capability, which the service does not have.
WITHOUT_CAPABILITIES = ["setpriv", "--bounding-set=-all"] if os.geteuid() == 0 else []


@pytest.fixture
def file(tmp_path):
    return tmp_path / "way-down.conf"


def settings(file):
    """What is printed, the complaints, the status."""
    words = [*WITHOUT_CAPABILITIES, PROGRAM, file]
    run = subprocess.run(words, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=60)
    return run.stdout, run.stderr, run.returncode


def test_without_a_file_nothing_is_set(file):
    assert settings(file) == ("", "", 0)


@pytest.mark.parametrize("key", ["start-again", "cut-battery"])
@pytest.mark.parametrize("value", ["yes", "no"])
@pytest.mark.parametrize("line", ["{}={}", "  {} = {}  # why", "{}={}\r", "\n# else=no\n{}={}\n\n"])
def test_a_setting_is_printed(file, key, value, line):
    file.write_bytes(line.format(key, value).encode())
    assert settings(file) == (f"{key}={value}\n", "", 0)


@pytest.mark.parametrize(
    "line",
    [
        "start-agian=no",
        "start_again=no",
        "test.battery=no",
        "cut-battery=off",
        "cut-battery=No",
        "cut-battery=nope",
        "cut-battery=",
        "cut-battery",
        "=no",
        "no",
        "a cut-battery=no",
    ],
)
def test_what_has_no_effect_is_told(file, line):
    file.write_text(f"start-again=no\n{line}  # why\ncut-battery=yes\n")
    told = f'{file}: "{line}" has no effect; {SETTINGS}\n'
    assert settings(file) == ("start-again=no\ncut-battery=yes\n", told, 1)


def test_each_line_is_told(file):
    file.write_text("one\ntwo\n")
    told = [f'{file}: "{line}" has no effect; {SETTINGS}\n' for line in ("one", "two")]
    assert settings(file) == ("", "".join(told), 1)


@pytest.mark.parametrize(
    "make",
    [
        Path.mkdir,
        os.mkfifo,
        lambda file: file.symlink_to("nowhere"),
        lambda file: file.touch(mode=0),
    ],
    ids=["folder", "pipe", "link", "forbidden"],
)
def test_what_cannot_be_read_is_told(file, make):
    make(file)
    assert settings(file) == ("", f"{file} cannot be read and has no effect\n", 1)
