"""The monitor beside a daemon that lives its life: what it remembers, and whom it calls."""

from contextlib import contextmanager

import pytest

from nut import MONITOR, Nut
from rig import SECOND

from guest.clock import now, sleep_until, wait_until
from guest.process import Program, run

# Two looks, 5 seconds apart, and the calls that follow.
SEEN = 12


class Home:
    """Where the monitor has its files, and what the executable that it calls has noted."""

    def __init__(self, folder, conf):
        self.metrics_file = folder / "kelvo_pwr.prom"
        self.state = folder / "state"
        self._notes = folder / "notes"
        events = folder / "events.d"
        events.mkdir()
        script = events / "note"
        script.write_text(f'#!/bin/sh\necho "$1" >>{self._notes}\n')
        script.chmod(0o755)
        self.words = [
            *("--prometheus", self.metrics_file, "--state", self.state),
            *("--events", events, "--daemon.conf", conf),
        ]

    @contextmanager
    def monitor(self):
        with Program([MONITOR, *self.words]) as monitor:
            yield monitor
            monitor.send(15)
            assert monitor.wait_for_exit(within=5) == 0

    def notes(self):
        return self._notes.read_text().split() if self._notes.exists() else []

    def wait_for_notes(self, *expected, within=SEEN):
        try:
            wait_until(lambda: len(self.notes()) >= len(expected), within, step=0.5)
        finally:
            assert self.notes() == list(expected)

    def metrics(self):
        """Those of the battery test, without their common beginning."""
        lines = self.metrics_file.read_text().splitlines()
        prefix = "kelvo_pwr_last_test_"
        return dict(line.removeprefix(prefix).split() for line in lines if line.startswith(prefix))


@pytest.fixture
def home(rig, tmp_path):
    return Home(tmp_path, rig.conf)


def run_test(rig, daemon, good):
    rig.client("--run-test-now")
    daemon.wait_for_line("Got run test now", within=2)
    rig.board.battery(good)
    daemon.wait_for_line(f"Test result: Battery is {'good' if good else 'bad'}", within=20)
    rig.board.battery(True)
    # Twice the duration has to pass between two tests.
    sleep_until(now() + 30 * SECOND)


def test_an_outage_until_the_battery_is_empty(rig, home):
    rig.full_server("test.hour=-1")
    with home.monitor():
        sleep_until(now() + SEEN * SECOND)
        rig.board.ac(False)
        home.wait_for_notes("power-lost")
        rig.board.ac(True)
        home.wait_for_notes("power-lost", "power-back")
        rig.board.ac(False)
        rig.board.battery(False)
        home.wait_for_notes("power-lost", "power-back", "power-lost", "battery-empty")


def test_a_daemon_that_goes_and_comes_back(rig, home):
    daemon = rig.full_server("test.hour=-1")
    with home.monitor():
        sleep_until(now() + SEEN * SECOND)
        daemon.kill()
        home.wait_for_notes("daemon-gone")
        rig.full_server("test.hour=-1")
        home.wait_for_notes("daemon-gone", "daemon-back")


def test_a_bad_battery_is_remembered_until_a_good_test(rig, home):
    settings = ["test.hour=-1", "test.duration=10"]
    daemon = rig.full_server(*settings)
    told = ["test-begun", "test-bad"]
    with home.monitor():
        sleep_until(now() + SEEN * SECOND)
        assert home.metrics() == {}
        run_test(rig, daemon, good=False)
        home.wait_for_notes(*told)
        start, end = rig.saved_times()
        bad = {
            "failed": "1",
            "start_timestamp_seconds": str(start),
            "end_timestamp_seconds": str(end),
            "length_seconds": str(end - start),
        }
        assert home.metrics() == bad
    # Neither the daemon's next start, which forgets, nor the monitor's makes a difference.
    daemon.end(within=1)
    daemon = rig.full_server(*settings)
    with home.monitor():
        sleep_until(now() + SEEN * SECOND)
        assert "kelvo_pwr_battery_bad 0\n" in home.metrics_file.read_text()
        assert home.metrics() == bad
        assert home.notes() == told
        run_test(rig, daemon, good=True)
        told += ["test-begun", "test-good"]
        home.wait_for_notes(*told)
        assert home.metrics()["failed"] == "0"
        assert "kelvo_pwr_test_period_seconds 1209600\n" in home.metrics_file.read_text()


def test_what_happens_while_the_monitor_is_away_is_told_once(rig, home):
    daemon = rig.full_server("test.hour=-1", "test.duration=10")
    with home.monitor():
        sleep_until(now() + SEEN * SECOND)
    run_test(rig, daemon, good=True)
    rig.board.ac(False)
    sleep_until(now() + 2 * SECOND)
    told = ["test-begun", "test-good", "power-lost"]
    for _ in range(2):
        with home.monitor():
            home.wait_for_notes(*told)
            sleep_until(now() + 3 * SEEN * SECOND)
            assert home.notes() == told


def test_an_interrupted_test_leaves_the_verdict_before(rig, home):
    settings = ["test.hour=-1", "test.duration=10"]
    daemon = rig.full_server(*settings)
    with home.monitor():
        sleep_until(now() + SEEN * SECOND)
        run_test(rig, daemon, good=False)
        home.wait_for_notes("test-begun", "test-bad")
        before = home.metrics()
        rig.client("--run-test-now")
        home.wait_for_notes("test-begun", "test-bad", "test-begun")
        daemon.end(within=1)
        rig.full_server(*settings)
        home.wait_for_notes("test-begun", "test-bad", "test-begun", "test-interrupted")
        assert home.metrics() == before


def test_network_ups_tools_show_the_last_test(rig, home):
    """With another one begun and broken off since."""
    rig.save_times(1_717_502_400, 1_717_416_600)
    home.state.write_text(
        "battery-empty=0\ntimes.start=1717502400\ntimes.end=1717416600\ntesting=0\n"
        "test.end=1717416600\ntest.good=0\nevents=0\ndone=\n"
    )
    with Nut() as nut:
        words = ["--nut", nut.file, "--daemon.conf", rig.conf, "--state", home.state]
        with Program([MONITOR, *map(str, words)]):
            rig.full_server("test.hour=-1")
            nut.wait_for("OL RB", within=40)
            shown = nut.variables()
    assert {name: text for name, text in shown.items() if name.startswith("ups.test")} == {
        "ups.test.date": "2024-06-03 12:10:00 UTC",
        "ups.test.interval": "1209600",
        "ups.test.result": "Battery is bad",
    }


def test_a_look_is_one_wake_up(rig, home):
    """In a minute, once it has begun: one look in five seconds."""
    rig.full_server("test.hour=-1")
    with home.monitor() as monitor:
        sleep_until(now() + SEEN * SECOND)
        before = switches(monitor.pid)
        sleep_until(now() + 60 * SECOND)
        assert switches(monitor.pid) - before == 12


def switches(pid):
    """How often the process has gone to sleep."""
    status = run(["cat", f"/proc/{pid}/status"]).stdout
    return int(status.split("\nvoluntary_ctxt_switches:")[1].split()[0])
