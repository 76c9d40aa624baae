"""Every message of what stands beside the daemon is in the page that tells its cause and cure."""

import re
from pathlib import Path

import pytest

PROJECT = Path(__file__).parents[2]
PAGE = (PROJECT / "docs/troubleshooting.md").read_text()
EXPLAINED = {
    re.sub(r"\b(?:NAME|PATH|LINE|VALUE|N)\b", "*", heading)
    for heading in re.findall(r"^### (.*)$", PAGE, re.MULTILINE)
}
# What is put together from pieces.
COMPOSED = {
    "line '*': *",
    '*: "*" has no effect; the settings are start-again and cut-battery, yes or no',
}


def messages():
    """What is said by words of the source itself, with * for what it puts in."""
    for path in (PROJECT / "service").rglob("*"):
        text = path.read_text() if path.is_file() else ""
        pattern = r'logToKernel\("([^"]*)"\)' if path.suffix == ".cpp" else r'(?:say|echo|refuse) "(?:<4>)?([^"]*)"'
        for message in re.findall(pattern, text):
            message = re.sub(r"\$\{?\w+\}?", "*", message)
            if " " in message.strip("* "):
                yield message


def test_there_are_messages():
    assert len(set(messages())) == 18


@pytest.mark.parametrize("message", sorted({*messages(), *COMPOSED}))
def test_it_is_explained(message):
    assert message in EXPLAINED
