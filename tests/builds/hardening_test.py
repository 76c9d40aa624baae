"""The executables of a build are hardened; EXECUTABLES has the program and its helper."""

import os
import re
from pathlib import Path

import pytest

from hardening import EVERY_FILE, Executable

PROJECT = Path(__file__).parent.parent.parent
VERSION = re.search(
    r"project\(kelvo-pwr VERSION ([\d.]+)", (PROJECT / "CMakeLists.txt").read_text()
)[1]
PROGRAM, HELPER = os.environ["EXECUTABLES"].split(":")


@pytest.mark.parametrize(
    "file, expected",
    [(PROGRAM, EVERY_FILE | {"buffers checked"}), (HELPER, EVERY_FILE)],
)
def test_the_file_is_hardened(file, expected):
    assert Executable(file).hardening() >= expected


@pytest.mark.parametrize("file", [PROGRAM, HELPER])
def test_jumps_have_places_to_lead_to(file):
    executable = Executable(file)
    if executable.landings() is None:
        pytest.skip("this processor has no marks for them")
    assert executable.main_is_landing()


@pytest.mark.parametrize("file", [PROGRAM, HELPER])
def test_the_options_were_given_for_every_source(file):
    assert Executable(file).missing_options() == set()


@pytest.mark.parametrize("file", [PROGRAM, HELPER])
def test_the_file_tells_what_it_is(file):
    assert Executable(file).package_note() == {
        "type": "source",
        "name": "kelvo-pwr",
        "version": VERSION,
    }


@pytest.mark.parametrize("file", [PROGRAM, HELPER])
def test_the_file_does_not_tell_where_it_was_built(file):
    assert str(PROJECT).encode() not in Path(file).read_bytes()
