"""Every message that a user can see stands in the page that tells its cause and cure."""

import os
import re
from pathlib import Path

import pytest

from guest.board import wire
from guest.process import run

PROJECT = Path(__file__).parent.parent.parent
PAGE = (PROJECT / "docs" / "troubleshooting.md").read_text()
EXPLAINED = re.findall(r"^### (.*)$", PAGE, re.MULTILINE)
PLACEHOLDER = re.compile(r"\b(?:N|KEY|VALUE|NAME|PATH|LINE)\b")


@pytest.fixture
def program(tmp_path):
    """Runs the program with these words and a configuration of these lines."""

    def program(*words, lines=()):
        conf = tmp_path / "kelvo-pwr.conf"
        conf.write_text("\n".join([f"sys.save.path={tmp_path}/result", *lines]))
        return run([os.environ["KELVO_PWR"], "-c", conf, *words]).stderr.splitlines()

    return program


def own_messages():
    """The texts in the source that are for someone to read, in the pieces they consist of."""
    for path in (PROJECT / "src").rglob("*.cpp"):
        # The line library's own words.
        if path.parent == PROJECT / "src" / "gpio" / "v2":
            continue
        # Without the options' own texts and without comments.
        source = re.sub(r"add_options\(\).*?;|//.*?\n", "", path.read_text(), flags=re.DOTALL)
        for text in re.findall(r'"((?:[^"\\]|\\.)*)"', source):
            piece = text.removesuffix("\\n").strip()
            is_sentence = " " in text or text.endswith("\\n")
            if is_sentence and "%" not in text and re.search("[A-Za-z]", piece):
                yield piece


def is_explained(message):
    parts = (map(re.escape, PLACEHOLDER.split(heading)) for heading in EXPLAINED)
    return any(re.fullmatch(".+".join(pieces), message) for pieces in parts)


def test_there_are_messages():
    assert len(set(own_messages())) == 30


@pytest.mark.parametrize("piece", sorted(set(own_messages())))
def test_the_program_s_own(piece):
    assert any(piece in heading for heading in EXPLAINED)


@pytest.mark.parametrize(
    "words",
    [
        ["--nope"],
        ["-x"],
        ["--sys.save.path=x"],
        ["--run"],
        ["--test.battery"],
        ["-c"],
        ["--test.hour="],
        ["--status=1"],
        ["-v", "-v"],
        ["--test.duration=65536"],
        ["--test.battery=maybe"],
        ["--status"],
        ["--run-test-now"],
    ],
)
def test_the_libraries_on_the_command_line(program, words):
    *_, last = program(*words)
    assert is_explained(last), last


@pytest.mark.parametrize(
    "lines",
    [
        ["test.duration=65536"],
        ["test.duration="],
        ["test.battery=maybe"],
        ["test.duration"],
        ["[test"],
        ["test.hour=1", "test.hour=2"],
    ],
)
def test_the_libraries_in_files(program, lines):
    (printed,) = program("--status", lines=lines)
    assert is_explained(printed), printed


def test_the_line_library(program):
    wire()
    _, printed = program(lines=["test.battery=true", "gpio.at2=BAT-SW"])
    assert is_explained(printed), printed


def test_an_unknown_text_is_not_explained():
    assert not is_explained("Failed to get lines")
