"""The program itself over a segment that is made here: its files, its calls, its end.

Runs with a /dev/shm of its own.
"""

import os
import re
import signal
import subprocess
from contextlib import contextmanager
from pathlib import Path

import pytest

from heart import LONG, SEGMENT, Heart, set_fields, wait_until

MONITOR = os.environ["KELVO_PWR_MONITOR"]
SAMPLE = Path(__file__).parents[2] / "contrib/monitor/monitor.conf"


class Home:
    def __init__(self, folder):
        self.folder = folder
        self.metrics, self.nut, self.state = (
            folder / name for name in ("kelvo_pwr.prom", "nut", "state")
        )
        self.events = folder / "events.d"
        self.events.mkdir()
        self._notes = folder / "notes"
        self.words = [
            *(f"--prometheus={self.metrics}", f"--nut={self.nut}", f"--state={self.state}"),
            *(f"--events={self.events}", "--period=2", f"--daemon.conf={folder / 'conf'}"),
        ]
        (folder / "conf").write_text(f"sys.save.path={folder / 'result'}\n")

    def executable(self, name, script):
        path = self.events / name
        path.write_text(f"#!/bin/sh\n{script}\n")
        path.chmod(0o755)

    def noting(self, name, then=":"):
        """One that notes its name and the number and name of the event, and then does this."""
        self.executable(name, f'echo {name} "$KELVO_EVENT_NUMBER" "$1" >>{self._notes}; {then}')

    def notes(self):
        return self._notes.read_text().splitlines() if self._notes.exists() else []

    @contextmanager
    def monitor(self):
        command = [MONITOR, *self.words]
        with subprocess.Popen(command, stderr=subprocess.PIPE, text=True) as monitor:
            try:
                yield monitor
            finally:
                monitor.kill()

    def end(self, monitor):
        monitor.terminate()
        assert monitor.wait(LONG) == 0

    def gate(self):
        """A script that waits for it to be opened."""
        os.mkfifo(self.folder / "gate")
        return f"read line <{self.folder / 'gate'}"

    def open_gate(self):
        (self.folder / "gate").write_text("open\n")


@pytest.fixture
def home(tmp_path):
    return Home(tmp_path)


def test_an_orderly_end_loses_and_doubles_no_call(heart, home):
    home.noting("10-a", home.gate())
    home.noting("20-b")
    set_fields("missingPower=1", "batteryEmpty=1")
    with home.monitor() as monitor:
        wait_until(lambda: home.notes() == ["10-a 1 power-lost"])
        monitor.terminate()
        # It lets what runs come to its end, and starts nothing more.
        with pytest.raises(subprocess.TimeoutExpired):
            monitor.wait(1)
        home.open_gate()
        assert monitor.wait(LONG) == 0
    assert home.notes() == ["10-a 1 power-lost"]
    home.noting("10-a")
    expected = ["10-a 1 power-lost", "20-b 1 power-lost"]
    expected += ["10-a 2 battery-empty", "20-b 2 battery-empty"]
    with home.monitor() as monitor:
        wait_until(lambda: len(home.notes()) >= len(expected))
        home.end(monitor)
    assert home.notes() == expected


def test_a_call_in_whose_middle_the_monitor_is_killed_comes_again(heart, home):
    home.noting("10-a")
    home.noting("20-b", home.gate())
    set_fields("missingPower=1")
    with home.monitor() as monitor:
        wait_until(lambda: len(home.notes()) == 2)
        monitor.kill()
        monitor.wait(LONG)
    home.open_gate()
    home.noting("20-b")
    with home.monitor() as monitor:
        wait_until(lambda: len(home.notes()) == 3)
        home.end(monitor)
    assert home.notes() == ["10-a 1 power-lost", "20-b 1 power-lost", "20-b 1 power-lost"]


def test_a_call_that_hangs_holds_up_no_look(heart, home):
    home.noting("10-a", home.gate())
    set_fields("missingPower=1")
    with home.monitor() as monitor:
        wait_until(lambda: len(home.notes()) == 1)
        set_fields("testing=1")
        wait_until(lambda: "kelvo_pwr_testing 1\n" in home.metrics.read_text())
        assert len(home.notes()) == 1
        home.open_gate()
        home.end(monitor)


@pytest.mark.parametrize("number", [signal.SIGHUP, signal.SIGINT, signal.SIGTERM])
def test_what_would_be_untrue_without_it_goes_with_it(heart, home, number):
    with home.monitor() as monitor:
        wait_until(home.nut.exists)
        monitor.send_signal(number)
        assert monitor.wait(LONG) == 0
        assert monitor.stderr.read() == "The daemon lives\n"
    assert not home.nut.exists()
    assert home.metrics.exists()


def test_a_daemon_that_stands_still_is_not_believed(home):
    with home.monitor() as monitor:
        assert monitor.stderr.readline().endswith("No such file or directory\n")
        with Heart():
            assert monitor.stderr.readline() == "The daemon lives\n"
            wait_until(home.nut.exists)
        wait_until(lambda: not home.nut.exists())
        assert monitor.stderr.readline() == "The daemon is gone or hangs\n"
        SEGMENT.unlink()
        home.end(monitor)


def test_a_full_disk_takes_away_what_would_become_untrue(heart, home):
    home.noting("10-a")
    with home.monitor() as monitor:
        wait_until(home.nut.exists)
        for file in (home.nut, home.metrics, home.state):
            Path(f"{file}.new").symlink_to("/dev/full")
        set_fields("missingPower=1")
        wait_until(lambda: not home.nut.exists())
        # Events are told all the same.
        wait_until(lambda: home.notes() == ["10-a 1 power-lost"])
        assert "kelvo_pwr_power_missing 0\n" in home.metrics.read_text()
        for file in (home.metrics, home.state):
            Path(f"{file}.new").unlink()
        wait_until(lambda: "kelvo_pwr_power_missing 1\n" in home.metrics.read_text())
        wait_until(lambda: "events=1\n" in home.state.read_text())
        home.end(monitor)
        assert f"{home.nut}.new: No space left on device\n" in monitor.stderr.read()


def test_a_spoilt_state_is_told_and_begun_anew(heart, home):
    home.state.write_text("spoilt")
    with home.monitor() as monitor:
        wait_until(lambda: "alive=1\n" in home.state.read_text())
        home.end(monitor)
        assert monitor.stderr.readline() != "The daemon lives\n"


def run_once(*words):
    done = subprocess.run([MONITOR, *words], capture_output=True, text=True, timeout=LONG)
    return done.stdout, done.stderr, done.returncode


def test_once(heart, home):
    assert run_once("--once", f"--prometheus={home.metrics}") == ("", "", 0)
    assert "kelvo_pwr_up 1\n" in home.metrics.read_text()


def test_once_without_a_segment(home):
    told = f"{SEGMENT}: No such file or directory\n"
    assert run_once("--once", f"--prometheus={home.metrics}") == ("", told, 0)
    assert home.metrics.read_text().splitlines()[2:] == ["kelvo_pwr_up 0"]


def test_the_sample_is_accepted(tmp_path):
    own = SAMPLE.read_text().replace("=/run/kelvo-pwr-monitor/", f"={tmp_path}/")
    own = re.sub("^state=.*", f"state={tmp_path}/state", own, flags=re.MULTILINE)
    (tmp_path / "conf").write_text(own)
    stdout, _, status = run_once("--once", "-c", tmp_path / "conf")
    assert (stdout, status) == ("", 0)
    assert {path.name for path in tmp_path.iterdir()} == {"conf", "kelvo_pwr.prom", "state"}


def test_the_gate(heart):
    assert run_once("--gate") == ("AC power is there\n", "", 0)
    set_fields("missingPower=1")
    assert run_once("--gate") == ("AC power is missing\n", "", 1)


def test_the_gate_beside_a_daemon_that_is_gone():
    problem = f"{SEGMENT}: No such file or directory\n"
    assert run_once("--gate") == (problem, "", 255)
    with Heart():
        pass
    assert run_once("--gate") == ("The daemon is gone or hangs\n", "", 255)
    SEGMENT.unlink()


def test_bad_words():
    told = "kelvo-pwr-monitor: the period is too short\n"
    assert run_once("--nut=file", "--period=1") == ("", told, 2)


def test_help():
    stdout, stderr, status = run_once("--help")
    assert stdout.startswith("Hands the status of kelvo-pwr on.\n\nOptions:\n")
    assert (stderr, status) == ("", 0)
