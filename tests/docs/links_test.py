"""Where one page leads to another, the page is there and has the heading."""

import re
from pathlib import Path

import pytest

PROJECT = Path(__file__).parent.parent.parent
PAGES = sorted(
    [*PROJECT.glob("*.md"), *(PROJECT / "docs").glob("*.md"), *(PROJECT / "board").glob("*.md")]
)
CODE = re.compile(r"^```.*?^```$|^ {4}(?! )[^\n]*$|`[^`\n]*`", re.MULTILINE | re.DOTALL)


def links(page):
    """The places within the project to which a page leads, each a path and a heading or ""."""
    text = CODE.sub("", page.read_text())
    targets = re.findall(r"\]\(([^)\s]+)\)", text)
    inside = [target.partition("#") for target in targets if "://" not in target]
    return {(page.parent / path if path else page, heading) for path, _, heading in inside}


def headings(page):
    """As they stand in addresses: small letters, hyphens for spaces, no other signs."""
    found = re.findall(r"^#+ (.*)$", page.read_text(), re.MULTILINE)
    return {re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-") for heading in found}


@pytest.mark.parametrize("page", PAGES, ids=lambda page: str(page.relative_to(PROJECT)))
def test_links_lead_somewhere(page):
    broken = [
        f"{target.name}#{heading}"
        for target, heading in links(page)
        if not target.exists() or (heading and heading not in headings(target))
    ]
    assert broken == []


def test_the_readme_leads_to_every_page():
    readme = PROJECT / "README.md"
    reached = {target.resolve() for target, _ in links(readme)}
    assert {page.resolve() for page in PAGES} - reached == {readme.resolve()}
