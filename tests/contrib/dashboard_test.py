"""Each query of the dashboard, asked of a real Prometheus that has two days of fifty boards.

Grafana itself is not run.
"""

import json
import os
import re
import socket
import subprocess
import time
from pathlib import Path
from urllib.parse import urlencode
from urllib.request import urlopen

import pytest

CONTRIB = Path(__file__).parents[2] / "contrib"
TOOLS = Path(os.environ["CONTRIB_TOOLS"], "usr/bin")
DASHBOARD = json.loads((CONTRIB / "grafana/kelvo-pwr.json").read_text())
PANELS = {panel["title"]: panel for panel in DASHBOARD["panels"]}

BOARDS = range(50)
DAY, MINUTE = 86400, 60
END = 1_780_000_000
BEGIN = END - 2 * DAY
# Often enough for a value to be the last one known, and at the end as often as it is scraped.
TIMES = [*range(BEGIN, END - 600, 4 * MINUTE), *range(END - 600, END + 1, 30)]
TEST_BEGIN, TEST_LENGTH = BEGIN + DAY, 600


def is_full(board):
    return board % 7 != 0


def is_dead(board):
    return board % 11 == 0


def is_without_power(board, now):
    """For an hour on the second day, some boards; and at the end some others."""
    early = board % 4 == 0 and TEST_BEGIN + 7200 <= now < TEST_BEGIN + 10800
    return early or (board % 3 == 0 and now >= END - 1200)


def values(board, now):
    """Metrics without their common beginning."""
    tested = is_full(board) and now >= TEST_BEGIN + TEST_LENGTH
    found = {
        "up": 1,
        "waited_seconds_total": min(now, END - 900 if is_dead(board) else END) - BEGIN,
        "power_missing": int(is_without_power(board, now)),
    }
    if is_full(board):
        found |= {
            "battery_empty": int(board == 6 and now >= END - 300),
            "battery_bad": 0,
            "testing": int(TEST_BEGIN <= now < TEST_BEGIN + TEST_LENGTH),
            "last_test_end_timestamp_seconds": (TEST_BEGIN if tested else BEGIN - DAY) + TEST_LENGTH,
            "last_test_length_seconds": TEST_LENGTH,
            "last_test_failed": int(board % 5 == 0),
        }
    return found


def history():
    """All of it as OpenMetrics, each metric by itself."""
    names = values(1, END)
    yield from (f"# TYPE kelvo_pwr_{name} gauge" for name in names if not name.endswith("_total"))
    for name in names:
        for board in BOARDS:
            label = f'kelvo_pwr_{name}{{instance="board{board:02}:9100"}}'
            for now in TIMES:
                if (value := values(board, now).get(name)) is not None:
                    yield f"{label} {value} {now}"
    yield "# EOF\n"


@pytest.fixture(scope="module")
def ask(tmp_path_factory):
    """A function that asks Prometheus for a query's result at the end of the two days."""
    folder = tmp_path_factory.mktemp("prometheus")
    (folder / "history").write_text("\n".join(history()))
    (folder / "empty.yml").touch()
    making = ["tsdb", "create-blocks-from", "openmetrics", "--quiet", folder / "history"]
    subprocess.run([TOOLS / "promtool", *making, folder / "data"], check=True)
    with socket.create_server(("127.0.0.1", 0)) as free:
        address = "{}:{}".format(*free.getsockname())
    words = [
        f"--config.file={folder}/empty.yml",
        f"--storage.tsdb.path={folder}/data",
        "--storage.tsdb.retention.time=100y",
        f"--web.listen-address={address}",
        "--log.level=error",
    ]

    def ask(query):
        # As Grafana puts in what the reader has chosen: all boards, two days.
        query = query.replace("$board", ".+").replace("$__range", "2d")
        words = urlencode({"query": query, "time": END})
        with urlopen(f"http://{address}/api/v1/query?{words}", timeout=60) as answer:
            return json.load(answer)["data"]["result"]

    with subprocess.Popen([TOOLS / "prometheus", *words]) as prometheus:
        try:
            while prometheus.poll() is None:
                try:
                    assert ask("vector(1)")
                    break
                except OSError:
                    time.sleep(0.2)
            yield ask
        finally:
            prometheus.terminate()


def queries(panel):
    return [target["expr"] for target in panel["targets"]]


@pytest.mark.parametrize("title", PANELS)
def test_no_query_is_empty(ask, title):
    results = [ask(query) for query in queries(PANELS[title])]
    assert [bool(result) for result in results] == [True] * len(results)


NOW = {board: values(board, END) for board in BOARDS}
COUNTS = {
    "Boards": len(BOARDS),
    "On battery": sum(now["power_missing"] for now in NOW.values()),
    "Battery empty": 1,
    "Battery bad": sum(now.get("last_test_failed", 0) for now in NOW.values()),
    "Only watch": len([board for board in BOARDS if not is_full(board)]),
    "Not guarded": len([board for board in BOARDS if is_dead(board)]),
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
        columns.append([found.get(f"board{board:02}:9100") for board in BOARDS])
    names = "power_missing", "battery_empty", "last_test_failed"
    expected = [[NOW[board].get(name) for board in BOARDS] for name in names]
    ends = [NOW[board].get("last_test_end_timestamp_seconds") for board in BOARDS]
    expected.append([end and END - end for end in ends])
    expected.append([NOW[board].get("last_test_length_seconds") for board in BOARDS])
    expected.append([(board % 4 == 0) + (board % 3 == 0) for board in BOARDS])
    expected.append([1 if is_full(board) else None for board in BOARDS])
    assert columns == expected


def test_every_metric_is_one_of_the_monitor_s():
    source = (CONTRIB / "monitor/prometheus.cpp").read_text()
    used = set(re.findall(r"kelvo_pwr_(\w+)", json.dumps(DASHBOARD)))
    assert {"up", "last_test_failed"} <= used
    assert [name for name in used if f'"{name}"' not in source] == []
