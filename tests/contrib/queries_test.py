"""Each query of the dashboard and of the page, asked of a real Prometheus with fifty boards.

Grafana itself is not run.
"""

import json
import re
from urllib.parse import urlencode
from urllib.request import urlopen

import pytest
from fifty_boards import (
    BOARDS,
    CONSOLES,
    CONTRIB,
    DAY,
    END,
    NEVER_TESTED,
    OVERDUE,
    alerts,
    is_full,
    name,
    outages,
    prometheus,
    values,
)

DASHBOARD = json.loads((CONTRIB / "grafana/kelvo-pwr.json").read_text())
PANELS = {panel["title"]: panel for panel in DASHBOARD["panels"]}

PAGE = (CONSOLES / "kelvo-pwr.html").read_text()
ASKED = json.loads(re.search(r'<script type="application/json".*?>(.*?)</script>', PAGE, re.S)[1])


@pytest.fixture(scope="module")
def api(tmp_path_factory):
    """A function that gets from Prometheus' API."""
    with prometheus(tmp_path_factory.mktemp("prometheus")) as address:

        def api(path, **words):
            with urlopen(f"{address}/api/v1/{path}?{urlencode(words)}", timeout=60) as answer:
                return json.load(answer)["data"]

        yield api


@pytest.fixture
def ask(api):
    """A function that asks Prometheus for a query's result at the end."""

    def ask(query):
        # As Grafana puts in what the reader has chosen: all boards, two days.
        query = query.replace("$board", ".+").replace("$__range", "2d")
        return api("query", query=query, time=END)["result"]

    return ask


def queries(panel):
    return [target["expr"] for target in panel["targets"]]


@pytest.mark.parametrize("title", PANELS)
def test_no_query_of_the_dashboard_is_empty(ask, title):
    results = [ask(query) for query in queries(PANELS[title])]
    assert [bool(result) for result in results] == [True] * len(results)


NOW = {board: values(board, END) for board in BOARDS}
WRONG = alerts()
COUNTS = {
    "Boards": len(BOARDS),
    "On battery": len(WRONG["PowerMissing"]),
    "Battery empty": len(WRONG["BatteryEmpty"]),
    "Battery bad": len(WRONG["BatteryBad"]),
    "Only watch": len(WRONG["OnlyWatches"]),
    "Not guarded": sum(len(WRONG[one]) for one in ("DaemonStopped", "WayDownStands", "NoStatus")),
}


@pytest.mark.parametrize("title", COUNTS)
def test_a_number_is_right(ask, title):
    (query,) = queries(PANELS[title])
    (one,) = ask(query)
    assert int(one["value"][1]) == COUNTS[title]


def test_the_table_is_right(ask):
    columns = []
    for query in queries(PANELS["Board by board"]):
        found = {one["metric"]["instance"]: float(one["value"][1]) for one in ask(query)}
        columns.append([found.get(name(board)) for board in BOARDS])
    names = "power_missing", "battery_empty", "last_test_failed"
    expected = [[NOW[board].get(name) for board in BOARDS] for name in names]
    ends = [NOW[board].get("last_test_end_timestamp_seconds") for board in BOARDS]
    expected.append([end and END - end for end in ends])
    expected.append([NOW[board].get("last_test_length_seconds") for board in BOARDS])
    recent = [[one for one in outages(board) if one.stop > END - 2 * DAY] for board in BOARDS]
    expected.append([len(one) for one in recent])
    tested = [is_full(board) and board != NEVER_TESTED for board in BOARDS]
    expected.append([int(board != OVERDUE) if tested[board] else None for board in BOARDS])
    assert columns == expected


def test_every_metric_is_one_of_the_monitor_s():
    source = (CONTRIB / "monitor/prometheus.cpp").read_text()
    used = set(re.findall(r"kelvo_pwr_(\w+)", json.dumps([DASHBOARD, ASKED])))
    assert {"up", "last_test_failed"} <= used
    assert [name for name in used if f'"{name}"' not in source] == []


@pytest.mark.parametrize("text", [*ASKED["now"].values(), *ASKED["tests"].values()])
def test_no_query_of_the_page_is_empty(ask, text):
    assert ask(text)


@pytest.mark.parametrize("text", ASKED["days"].values())
def test_no_history_of_the_page_is_empty(api, text):
    step = re.search(r"\[(\w+)\]", text)[1]
    assert api("query_range", query=text, start=END - 90 * DAY, end=END, step=step)["result"]


def test_the_alert_rules_that_the_page_asks_for_name_their_boards(api, ask):
    (group,) = api("rules", type="alert")["groups"]
    found = {}
    for rule in group["rules"]:
        boards = sorted(one["metric"]["instance"] for one in ask(rule["query"]))
        found[rule["name"]] = boards
    expected = {f"KelvoPwr{alert}": sorted(map(name, boards)) for alert, boards in WRONG.items()}
    assert found == expected
