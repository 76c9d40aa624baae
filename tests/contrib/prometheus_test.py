"""The monitor's file and what the real node exporter makes of it."""

import subprocess

import pytest

from node_exporter import PROMTOOL, NodeExporter, export_command
from rig import SECOND

from guest.clock import now, sleep_until
from guest.process import run

# Each metric as the text format has it, without its value.
METRICS = {
    name: f"# HELP {name} {text}\n# TYPE {name} {kind}\n{name}"
    for name, kind, text in (
        (
            "kelvo_pwr_up",
            "gauge",
            "1: the status could be read. A daemon that has died leaves its last status behind.",
        ),
        (
            "kelvo_pwr_waited_seconds_total",
            "counter",
            "Seconds that the daemon has waited since its start. "
            "Stands still when it is gone or hangs.",
        ),
        ("kelvo_pwr_power_missing", "gauge", "1: AC power is missing."),
        (
            "kelvo_pwr_battery_empty",
            "gauge",
            "1: the battery has read empty without AC power. Stays 1 until the daemon starts again.",
        ),
        (
            "kelvo_pwr_battery_bad",
            "gauge",
            "1: the last battery test of this daemon failed. 0: it passed, or there was none.",
        ),
        ("kelvo_pwr_testing", "gauge", "1: a battery test is running."),
        (
            "kelvo_pwr_run_test",
            "gauge",
            "1: a test if it is time for one was asked for and not taken yet.",
        ),
        ("kelvo_pwr_run_test_now", "gauge", "1: a test now was asked for and not taken yet."),
        (
            "kelvo_pwr_test_duration_seconds",
            "gauge",
            "Length of the running or the next battery test. 0: the own setting of the daemon.",
        ),
    )
}


@pytest.fixture
def file(tmp_path):
    folder = tmp_path / "textfiles"
    folder.mkdir()
    return folder / "kelvo_pwr.prom"


def export(file, *words):
    return run(export_command(file, *words))


def text(labels="", **values):
    """A whole file with these metrics, by their names without the prefix."""
    return "".join(
        f"{METRICS[f'kelvo_pwr_{name}']}{labels} {value}\n" for name, value in values.items()
    )


FULL = dict(
    up=1,
    waited_seconds_total=3,
    power_missing=0,
    battery_empty=0,
    battery_bad=0,
    testing=0,
    run_test=0,
    run_test_now=0,
    test_duration_seconds=0,
)
MINIMAL = dict(
    up=1,
    waited_seconds_total=3,
    power_missing=0,
    run_test=0,
    run_test_now=0,
    test_duration_seconds=0,
)


def test_every_field_of_a_full_server(rig, file):
    daemon = rig.full_server("test.hour=-1")
    sleep_until(daemon.started + 3 * SECOND + SECOND // 2)
    assert export(file) == ("", "", 0)
    assert file.read_text() == text(**FULL)
    rig.set_fields(
        count=7,
        missingPower=1,
        batteryEmpty=1,
        batteryBad=1,
        testing=1,
        runTest=1,
        runTestNow=1,
        duration=65535,
    )
    export(file)
    assert file.read_text() == text(
        **{name: 1 for name in FULL} | dict(waited_seconds_total=7, test_duration_seconds=65535)
    )


def test_what_a_minimal_server_has_no_value_for_is_absent(rig, file):
    daemon = rig.minimal_server()
    sleep_until(daemon.started + 3 * SECOND + SECOND // 2)
    export(file)
    assert file.read_text() == text(**MINIMAL)


def test_an_outage_shows_as_the_daemon_sees_it(rig, file):
    daemon = rig.full_server("test.hour=-1")
    shown = []
    for step in (lambda: rig.board.ac(False), lambda: rig.board.battery(False)):
        step()
        sleep_until(now() + 2 * SECOND)
        export(file)
        shown.append([line for line in file.read_text().splitlines() if line.endswith(" 1")])
    assert shown == [
        ["kelvo_pwr_up 1", "kelvo_pwr_power_missing 1"],
        ["kelvo_pwr_up 1", "kelvo_pwr_power_missing 1", "kelvo_pwr_battery_empty 1"],
    ]
    assert daemon.stdout == "Start\nFull server\nBattery empty\n"


def test_the_count_of_a_dead_daemon_stands_still(rig, file):
    daemon = rig.full_server("test.hour=-1")
    sleep_until(daemon.started + 3 * SECOND + SECOND // 2)
    daemon.kill()
    for _ in range(2):
        sleep_until(now() + 100 * SECOND)
        export(file)
        assert file.read_text() == text(**FULL)


@pytest.mark.parametrize("count", [2**31 - 1, 2**31, 2**32 - 1])
def test_a_count_that_the_status_shows_as_negative(rig, file, count):
    rig.full_server().kill()
    rig.set_fields(count=count)
    export(file)
    assert file.read_text() == text(**FULL | dict(waited_seconds_total=count))


def test_the_file_is_replaced_as_a_whole_and_readable_for_all(rig, file):
    rig.full_server("test.hour=-1").kill()
    export(file)
    with file.open() as before:
        rig.set_fields(batteryEmpty=1)
        export(file)
        assert "kelvo_pwr_battery_empty 0\n" in before.read()
    assert "kelvo_pwr_battery_empty 1\n" in file.read_text()
    assert oct(file.stat().st_mode) == oct(0o100644)
    assert list(file.parent.iterdir()) == [file]


def test_the_node_exporter_hands_on_every_metric(rig, file):
    daemon = rig.full_server("test.hour=-1")
    sleep_until(daemon.started + 3 * SECOND + SECOND // 2)
    export(file, "attic")
    with NodeExporter(file.parent) as node_exporter:
        labels = '{board="attic"}'
        assert node_exporter.scrape("kelvo_pwr") == sorted(text(labels, **FULL).splitlines())
        # It looks at each scrape.
        rig.board.ac(False)
        sleep_until(now() + 2 * SECOND)
        export(file, "attic")
        assert f"kelvo_pwr_power_missing{labels} 1" in node_exporter.scrape("kelvo_pwr")
        # When the file was written shows that the monitor runs.
        (written,) = node_exporter.scrape("node_textfile_mtime_seconds{")
        assert float(written.split()[1]) == pytest.approx(file.stat().st_mtime, abs=1)


def test_names_and_texts_are_as_prometheus_wants_them(rig, file):
    rig.full_server("test.hour=-1").kill()
    export(file)
    with file.open() as metrics:
        check = subprocess.run([PROMTOOL, "check", "metrics"], stdin=metrics, capture_output=True)
    assert (check.stdout, check.stderr, check.returncode) == (b"", b"", 0)
