"""The site of the pages: each place to which it leads is there, and the search finds what is."""

import json
import re
import subprocess
from html.parser import HTMLParser
from pathlib import Path

import pytest

PROJECT = Path(__file__).parent.parent.parent


class Page(HTMLParser):
    def __init__(self, text):
        super().__init__()
        self.ids, self.links, self.loaded = [], [], []
        self.feed(text)

    def handle_starttag(self, tag, attributes):
        named = dict(attributes)
        self.ids += filter(None, [named.get("id")])
        if tag == "a":
            self.links.append(named["href"])
        self.loaded += filter(None, [named.get("src"), tag == "link" and named["href"]])
        self.loaded += filter(None, [named.get("action")])


@pytest.fixture(scope="module")
def site(tmp_path_factory):
    site = tmp_path_factory.mktemp("site") / "site"
    subprocess.run([PROJECT / "scripts" / "site", site], check=True)
    return site


@pytest.fixture(scope="module")
def pages(site):
    """By its place each page."""
    return {path: Page(path.read_text()) for path in sorted(site.rglob("*.html"))}


def missing(site, pages, page, links):
    """Those that lead nowhere, or out of the site."""
    found = []
    for link in links:
        path, _, anchor = link.partition("#")
        target = (page.parent / path).resolve() if path else page
        known = target in pages and anchor in pages[target].ids
        if not (target.is_file() and site in target.parents and (known or not anchor)):
            found.append(f"{page.relative_to(site)}: {link}")
    return found


def test_links_lead_somewhere(site, pages):
    for path, page in pages.items():
        inside = [link for link in page.links if not re.match("https?://", link)]
        assert missing(site, pages, path, inside) == []


def test_nothing_is_loaded_from_elsewhere(site, pages):
    for path, page in pages.items():
        assert page.loaded and missing(site, pages, path, page.loaded) == []


def test_no_name_is_given_twice_on_a_page(pages):
    for path, page in pages.items():
        assert sorted(set(page.ids)) == sorted(page.ids), path


def test_each_page_leads_to_all(site, pages):
    sources = [*PROJECT.glob("*.md"), *PROJECT.glob("docs/*.md"), *PROJECT.glob("board/*.md")]
    names = [str(path.relative_to(PROJECT)) for path in sources]
    expected = {site / name.replace("README.md", "index.md").replace(".md", ".html") for name in names}
    expected |= {site / f"man/{path.name}.html" for path in PROJECT.glob("packaging/man/*")}
    for path, page in pages.items():
        assert {(path.parent / link).resolve() for link in page.links} >= expected
    assert set(pages) == expected | {site / "search.html"}


def found(site, *words):
    """The addresses that the search gives, by the site's own script."""
    asked = f"print(JSON.stringify(find(sections, {json.dumps(words)})))"
    (site / "asked.js").write_text(asked)
    answer = subprocess.check_output(["duk", "index.js", "search.js", "asked.js"], cwd=site, text=True)
    return [section["address"] for section in json.loads(answer)]


def test_the_search_knows_every_section(site, pages):
    addresses = found(site, "")
    assert missing(site, pages, site / "index.html", addresses) == []
    headings = sum(len(re.findall("<h[123][ >]", path.read_text())) for path in pages)
    # It does not know itself.
    assert len(addresses) == headings - 1


def test_all_words_are_in_what_is_found(site):
    both = found(site, "battery", "threshold")
    assert both and set(both) == set(found(site, "battery")) & set(found(site, "threshold"))
    assert found(site, "battery", "no-such-word") == found(site) == []


def test_what_has_the_words_in_its_heading_comes_first(site):
    addresses = found(site, "small", "build")
    headed = [bool(re.search("small.*build", address)) for address in addresses]
    assert headed[0] and not headed[-1] and headed == sorted(headed, reverse=True)
