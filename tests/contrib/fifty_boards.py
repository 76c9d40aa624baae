"""A real Prometheus with what fifty boards, and some that are gone, have told for ninety days:
sparsely, and the last two days as often as it takes for a value to be the last one known.
"""

import os
import signal
import socket
import subprocess
import tempfile
import time
from contextlib import contextmanager
from pathlib import Path
from urllib.request import urlopen

CONTRIB = Path(__file__).parents[2] / "contrib"
TOOLS = Path(os.environ["CONTRIB_TOOLS"], "usr/bin")
RULES = CONTRIB / "prometheus/kelvo-pwr.rules.yml"
CONSOLES = CONTRIB / "prometheus/consoles"

MINUTE, HOUR, DAY = 60, 3600, 86400
# Tests and outages are not at its round times, as they are at none of a scrape's.
END = 1_780_002_007
BEGIN, FIRST = END - 2 * DAY, END - 90 * DAY
PERIOD, LENGTH = 14 * DAY, 600
TEST_BEGIN = BEGIN + DAY

BOARDS = range(50)
NEVER_TESTED, OVERDUE, STOPPED_MONITOR, NO_STATUS, ONCE_BAD = 1, 2, 3, 4, 12
EMPTY, OLD_OUTAGE, UNKNOWN_RESULT, TESTING, ON_THE_WAY_DOWN, HOSTILE = 6, 8, 9, 13, 33, 49
# Of these there is the past alone; the second is not even looked for any more.
GONE, REMOVED, LOST = 50, 51, 52
LAST_SEEN = {GONE: END - 10 * DAY - 30, REMOVED: END - 20 * DAY, LOST: END - 2 * HOUR}
ALL = [*BOARDS, *LAST_SEEN]

_LATE_OUTAGE = range(END - 1230, END + 1)
_EARLY_OUTAGE = range(TEST_BEGIN + 2 * HOUR + 30, TEST_BEGIN + 3 * HOUR + 30)
# Two hours and a half.
_OLD_OUTAGE = range(END - 40 * DAY + 30, END - 40 * DAY + 9030)
_LAST_OUTAGE = range(LAST_SEEN[GONE] - HOUR, LAST_SEEN[GONE] + 1)


def name(board):
    if board == HOSTILE:
        return "<script>document.title='ran'</script><img src=x onerror=\"document.title='ran'\">"
    return {GONE: "gone:9100", REMOVED: "removed:9100", LOST: "lost:9100"}.get(
        board, f"board{board:02}:9100"
    )


def is_full(board):
    return board % 7 != 0


def is_dead(board):
    return board % 11 == 0


def outages(board):
    found = {OLD_OUTAGE: [_OLD_OUTAGE], GONE: [_LAST_OUTAGE]}.get(board, [])
    if board in BOARDS and board % 4 == 0:
        found = [*found, _EARLY_OUTAGE]
    if board in BOARDS and board % 3 == 0:
        found = [*found, _LATE_OUTAGE]
    return found


def last_test(board, now):
    """When it ended; None if there was none."""
    if not is_full(board) or board == NEVER_TESTED:
        return None
    last = TEST_BEGIN + LENGTH - (PERIOD + 5 * DAY) * (board == OVERDUE)
    return last - max(0, -((now - last) // PERIOD)) * PERIOD


def is_bad(board, end):
    return board % 5 == 0 or (board == ONCE_BAD and end == TEST_BEGIN + LENGTH - 2 * PERIOD)


def values(board, now):
    """Metrics without their common beginning."""
    if now > LAST_SEEN.get(board, END):
        return {}
    found = {"up": 1}
    if end := last_test(board, now):
        found["last_test_end_timestamp_seconds"] = end
        found["last_test_length_seconds"] = LENGTH
        if board != UNKNOWN_RESULT:
            found["last_test_failed"] = int(is_bad(board, end))
    if is_full(board):
        found["test_period_seconds"] = PERIOD
    if board == NO_STATUS and now >= END - 1200:
        return found | {"up": 0}
    found["waited_seconds_total"] = min(now, END - 900 if is_dead(board) else END) - FIRST
    found["power_missing"] = int(any(now in outage for outage in outages(board)))
    if is_full(board):
        empty = board in (EMPTY, ON_THE_WAY_DOWN) and now >= END - 1000
        in_test = TEST_BEGIN <= now < TEST_BEGIN + LENGTH and board not in (NEVER_TESTED, OVERDUE)
        found["battery_empty"] = int(empty)
        found["battery_bad"] = 0
        found["testing"] = int(in_test or (board == TESTING and now >= END - 300))
    return found


def alerts():
    """The boards that have something wrong at the end."""
    now = {board: values(board, END) for board in BOARDS}
    stopped = [board for board in BOARDS if is_dead(board)]
    return {
        "PowerMissing": [board for board in BOARDS if now[board].get("power_missing")],
        "BatteryEmpty": [EMPTY, ON_THE_WAY_DOWN],
        "BatteryBad": [board for board in BOARDS if now[board].get("last_test_failed")],
        "TestOverdue": [OVERDUE],
        "NeverTested": [NEVER_TESTED],
        "OnlyWatches": [board for board in BOARDS if not is_full(board)],
        "DaemonStopped": [board for board in stopped if board != ON_THE_WAY_DOWN],
        "WayDownStands": [ON_THE_WAY_DOWN],
        "NoStatus": [NO_STATUS],
        "MonitorStopped": [STOPPED_MONITOR],
        "BoardGone": [LOST],
    }


def _times(board):
    """When it was scraped; around an outage each minute, so that its length is known."""
    past = range(FIRST // (4 * HOUR) * 4 * HOUR, BEGIN, 4 * HOUR)
    recent = range(BEGIN, END - 600, 4 * MINUTE)
    around = [range(one.start - HOUR, one.stop + HOUR, MINUTE) for one in outages(board)]
    times = {*past, *recent, *range(END - 600, END + 1, 30)}.union(*around)
    return sorted(now for now in times if now <= END)


def _history():
    """All of it as OpenMetrics, each metric by itself."""
    found = {}

    def add(metric, labels, value, now):
        found.setdefault(metric, []).append(f"{metric}{{{labels}}} {value} {now}")

    for board in ALL:
        labels = 'instance="{}"'.format(name(board).replace('"', r"\""))
        for now in _times(board):
            for key, value in values(board, now).items():
                add(f"kelvo_pwr_{key}", labels, value, now)
        if board != REMOVED:
            add("up", labels, int(board in BOARDS), END)
        if board in BOARDS:
            file = "/var/lib/prometheus/node-exporter/kelvo_pwr.prom"
            written = END - (600 if board == STOPPED_MONITOR else 5)
            add("node_textfile_mtime_seconds", f'{labels},file="{file}"', written, END)
    for metric, lines in found.items():
        if not metric.endswith("_total"):
            yield f"# TYPE {metric} gauge"
        yield from lines
    yield "# EOF\n"


@contextmanager
def prometheus(folder, *words, rules=(RULES,), consoles=CONSOLES):
    """With data, rules and consoles; its address."""
    data, history, settings = folder / "data", folder / "history", folder / "prometheus.yml"
    if not data.exists():
        history.write_text("\n".join(_history()))
        making = ["tsdb", "create-blocks-from", "openmetrics", "--quiet"]
        # In blocks of two hours, as without it, making them takes minutes.
        making.append("--max-block-duration=4320h")
        subprocess.run([TOOLS / "promtool", *making, history, data], check=True)
    settings.write_text(f"rule_files: [{', '.join(map(str, rules))}]\n")
    with socket.create_server(("127.0.0.1", 0)) as free:
        address = "{}:{}".format(*free.getsockname())
    words = [
        f"--config.file={settings}",
        f"--storage.tsdb.path={data}",
        "--storage.tsdb.retention.time=100y",
        f"--web.console.templates={consoles}",
        f"--web.listen-address={address}",
        "--log.level=error",
        *words,
    ]
    with subprocess.Popen([TOOLS / "prometheus", *words]) as process:
        try:
            while process.poll() is None:
                try:
                    urlopen(f"http://{address}/-/ready", timeout=60).close()
                    break
                except OSError:
                    time.sleep(0.2)
            yield f"http://{address}"
        finally:
            process.terminate()


if __name__ == "__main__":
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    with tempfile.TemporaryDirectory() as _folder, prometheus(Path(_folder)) as _address:
        print(f"{_address}/consoles/kelvo-pwr.html?time={END}", flush=True)
        try:
            signal.pause()
        except KeyboardInterrupt:
            pass
