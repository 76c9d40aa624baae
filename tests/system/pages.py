"""The commands that the pages of docs tell their readers to type."""

import re
from pathlib import Path
from textwrap import dedent

PROJECT = Path(__file__).parent.parent.parent


def blocks(page: str, section: str) -> list[list[str]]:
    """The pieces of shell in a section of the page, each a list of commands."""
    text = (PROJECT / "docs" / page).read_text()
    (section,) = re.findall(rf"^## {section}\n(.*?)(?:^##|\Z)", text, re.MULTILINE | re.DOTALL)
    pieces = map(dedent, re.findall(r"(?:^ {4}.*\n)+", section, re.MULTILINE))
    # A line that is indented goes on with the command before it.
    return [re.split(r"\n(?! )", piece.rstrip("\n")) for piece in pieces]
