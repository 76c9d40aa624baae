"""The page of fifty boards as a real Chromium shows it."""

import os
import re
import subprocess
from http.server import BaseHTTPRequestHandler, HTTPServer
from html.parser import HTMLParser
from threading import Thread

import pytest
from fifty_boards import (
    ALL,
    BOARDS,
    CONSOLES,
    END,
    GONE,
    HOSTILE,
    LOST,
    NEVER_TESTED,
    OLD_OUTAGE,
    ON_THE_WAY_DOWN,
    ONCE_BAD,
    OVERDUE,
    REMOVED,
    TESTING,
    UNKNOWN_RESULT,
    alerts,
    is_full,
    name,
    prometheus,
    values,
)

PAGE = "consoles/kelvo-pwr.html"
WITHOUT = "Prometheus does not answer as it should, this is not up to date: "


class Texts(HTMLParser):
    """The texts of the elements of each class and identifier, in the page's order."""

    def __init__(self, html):
        super().__init__()
        self.found, self._open = {}, []
        self.feed(html)

    def handle_starttag(self, tag, attributes):
        if tag not in ("meta", "link"):
            known = dict(attributes)
            names = [f"#{known.get('id')}", known.get("class"), tag]
            texts = [self.found.setdefault(name, []) for name in names if name]
            for each in texts:
                each.append("")
            self._open.append(texts)

    def handle_endtag(self, _):
        self._open.pop()

    def handle_data(self, data):
        for texts in self._open:
            for each in texts:
                each[-1] += data


def shown(url, folder):
    """The page's HTML when it has asked all."""
    # As root it takes --no-sandbox.
    words = ["--headless", "--no-sandbox", "--hide-scrollbars", "--virtual-time-budget=20000"]
    own = {**os.environ, "TZ": "UTC", "HOME": str(folder)}
    run = subprocess.run(
        ["chromium", *words, f"--user-data-dir={folder}/profile", "--dump-dom", url],
        env=own,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        text=True,
        timeout=240,
        check=True,
    )
    return run.stdout


@pytest.fixture(scope="module")
def folder(tmp_path_factory):
    return tmp_path_factory.mktemp("prometheus")


@pytest.fixture(scope="module")
def html(folder):
    with prometheus(folder) as address:
        yield shown(f"{address}/{PAGE}?time={END}.321", folder)


@pytest.fixture(scope="module")
def page(html):
    return Texts(html).found


@pytest.fixture(scope="module")
def boards(html):
    """What is shown of each board."""
    _, *parts = re.split(r"(?=<details )", html.partition("</main>")[0])
    found = [Texts(part).found for part in parts]
    return {one["name"][0]: one for one in found}


WRONG = alerts()
NOW = {board: values(board, END) for board in ALL}


def words_of(alert):
    return re.sub(r"(?<=.)[A-Z]", lambda letter: " " + letter[0].lower(), alert)


def test_all_boards_are_there(boards):
    assert sorted(boards) == sorted(map(name, ALL))


def test_numbers(page):
    assert page["#time"] == ["2026-05-28 21:00"]
    expected = [f"{len(BOARDS)}Boards seen"]
    expected += [f"{len(found)}{words_of(alert)}" for alert, found in WRONG.items()]
    assert page["#numbers"] == ["".join(expected)]


def expected_state(board):
    found = [words_of(alert) for alert, found in WRONG.items() if board in found]
    if board == TESTING:
        found.append("Testing")
    seen = {GONE: "Not seen, last 2026-05-18", LOST: "Not seen, last 2026-05-28"}
    seen[REMOVED] = "No longer scraped, last 2026-05-08"
    if board in seen:
        found.append(seen[board])
    return "".join(found or ["OK"])


def test_states(boards):
    found = {name: board["state"] for name, board in boards.items()}
    assert found == {name(board): [expected_state(board)] for board in ALL}


def expected_battery(board):
    if not is_full(board) or board == NEVER_TESTED:
        return "no test known"
    if board in (GONE, REMOVED):
        return {GONE: "failed 14 days ago", REMOVED: "passed 28 days ago"}[board]
    result = {0: "passed", 1: "failed", None: "result not known"}
    now = values(board, END - 86400 if board == LOST else END)
    ago = "19 days ago" if board == OVERDUE else "23 h ago"
    took = "" if board == LOST else ", took 10 min"
    return f"{result[now.get('last_test_failed')]} {ago}{took}"


def test_batteries(boards):
    found = {}
    for name_, board in boards.items():
        (battery,) = board.get("battery", []) + board.get("battery quiet", [])
        found[name_] = battery
    assert found == {name(board): expected_battery(board) for board in ALL}


def lines(boards, board):
    return boards[name(board)].get("li")


PASSED = [f"{day} 21:10 battery test ended, passed" for day in (
    "2026-05-27", "2026-05-13", "2026-04-29", "2026-04-15", "2026-04-01", "2026-03-18",
    "2026-03-04", "2026-02-18",
)]  # fmt: skip
EARLY = "between 2026-05-27 23:00 and 2026-05-28 00:15 AC power was missing for 1 h"


def test_outages_and_tests(boards):
    old = "between 2026-04-18 21:00 and 2026-04-18 23:30 AC power was missing for 2 h 30 min"
    assert lines(boards, OLD_OUTAGE) == [EARLY, *PASSED[:3], old, *PASSED[3:]]


def test_a_test_that_failed_once(boards):
    late = "between 2026-05-28 20:30 and 2026-05-28 21:00 AC power was missing for 21 min"
    tests = [*PASSED[:2], PASSED[2].replace("passed", "failed"), *PASSED[3:]]
    assert lines(boards, ONCE_BAD) == [late, EARLY, *tests]


def test_results_that_nobody_knows(boards):
    _, *tests = lines(boards, UNKNOWN_RESULT)
    assert tests == [line.replace("passed", "result not known") for line in PASSED]


def test_an_outage_at_whose_end_the_board_went_down(boards):
    last, *_ = lines(boards, GONE)
    assert last == (
        "between 2026-05-18 19:45 and 2026-05-18 21:00 AC power was missing, "
        "then the board was not seen"
    )


def test_a_board_without_any(boards):
    assert lines(boards, NEVER_TESTED) == ["no outage and no battery test known"]


def test_the_worst_come_first(boards):
    found = list(boards)
    assert found[:2] == [name(6), name(ON_THE_WAY_DOWN)]
    assert found[-1] == name(REMOVED)
    first_good = next(one for one in found if boards[one]["state"] == ["OK"])
    assert {one for one in found[: found.index(first_good)]} == {
        name(board) for board in ALL if expected_state(board) not in ("OK", "Testing")
    } - {name(REMOVED)}


def test_what_a_label_says_is_not_run(page, boards):
    assert page["title"] == ["kelvo-pwr"]
    assert name(HOSTILE) in boards
    assert "img" not in page


def test_nothing_is_told_when_all_is_answered(html):
    assert '<p id="trouble" role="alert" hidden=""></p>' in html


def test_now_when_nothing_has_been_seen_for_ninety_days(folder):
    with prometheus(folder) as address:
        found = Texts(shown(f"{address}/{PAGE}", folder)).found
    expected = ["0Boards seen", *(f"0{words_of(alert)}" for alert in WRONG)]
    assert (found["#numbers"], found["#trouble"]) == (["".join(expected)], [""])
    assert "details" not in found


def trouble(html):
    return Texts(html).found["#trouble"]


def test_a_prometheus_without_the_rules(folder):
    with prometheus(folder, rules=()) as address:
        html = shown(f"{address}/{PAGE}?time={END}", folder)
    assert trouble(html) == [
        "This Prometheus has not loaded kelvo-pwr.rules.yml: what is wrong with a board is not known"
    ]
    assert set(Texts(html).found["state"]) == {
        "not known",
        "Testing",
        "Not seen, last 2026-05-18",
        "Not seen, last 2026-05-28",
        "No longer scraped, last 2026-05-08",
    }


def test_a_query_that_is_refused(folder):
    with prometheus(folder, "--query.max-samples=9") as address:
        html = shown(f"{address}/{PAGE}?time={END}", folder)
    (found,) = trouble(html)
    reason = "query processing would load too many samples into memory in query execution"
    assert re.fullmatch(re.escape(WITHOUT) + r"\S.*: " + reason, found)


class Api(BaseHTTPRequestHandler):
    """Serves the page alone; the API breaks off, or is not there."""

    breaks_off = True

    def do_GET(self):
        if not self.path.startswith("/consoles/"):
            if not self.breaks_off:
                self.send_error(404)
            return
        self.send_response(200)
        self.send_header("Content-Type", "text/html; charset=utf-8")
        self.end_headers()
        self.wfile.write((CONSOLES / "kelvo-pwr.html").read_bytes())

    def log_message(self, *_):
        pass


@pytest.mark.parametrize(
    ("breaks_off", "reason"), [(True, "Failed to fetch"), (False, "time(): HTTP status 404")]
)
def test_a_prometheus_that_does_not_answer(folder, breaks_off, reason):
    handler = type("Handler", (Api,), {"breaks_off": breaks_off})
    with HTTPServer(("127.0.0.1", 0), handler) as server:
        Thread(target=server.serve_forever, daemon=True).start()
        html = shown("http://{}:{}/{}".format(*server.server_address, PAGE), folder)
        server.shutdown()
    assert trouble(html) == [WITHOUT + reason]
    assert "details" not in Texts(html).found


PROBE = """<iframe src="kelvo-pwr.html?time={time}" width="{width}" style="border: 0"></iframe>
<p id="found"></p>
<script>
setInterval(() => {{
  const page = document.querySelector("iframe").contentDocument;
  if (page.querySelector("#boards .seen"))
    document.getElementById("found").textContent = page.documentElement.scrollWidth;
}}, 100);
</script>
"""


@pytest.mark.parametrize("width", [390, 1280])
def test_the_page_is_as_wide_as_the_screen(folder, tmp_path, width):
    (tmp_path / "kelvo-pwr.html").write_text((CONSOLES / "kelvo-pwr.html").read_text())
    (tmp_path / "probe.html").write_text(PROBE.format(time=END, width=width))
    with prometheus(folder, consoles=tmp_path) as address:
        html = shown(f"{address}/consoles/probe.html", folder)
    assert Texts(html).found["#found"] == [str(width)]
