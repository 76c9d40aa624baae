"""What other machines are told, by the real driver and server, while the daemon lives its life."""

import os

import pytest

from nut import DOWN, MONITOR, NOT_CONNECTED, Nut
from rig import SECOND, SEGMENT

from guest.clock import now, sleep_until
from guest.process import Program

# The monitor looks every 5 seconds and believes its second look, the driver looks within 3;
# a driver that has ended is started again after 15.
SEEN = 8
STARTED = 15 + 2 * SEEN

NOT_KNOWN_BAD = "Battery is good, or not tested yet"


@pytest.fixture
def nut(rig):
    with Nut() as nut:
        yield nut


@pytest.fixture
def monitor(nut):
    with Program([MONITOR, "--nut", str(nut.file)]) as monitor:
        yield monitor


def variables(status, result, date=None):
    texts = {
        "device.model": "kelvo-pwr",
        "device.type": "ups",
        "ups.model": "kelvo-pwr",
        "ups.status": status,
        "ups.test.date": date,
        "ups.test.result": result,
    }
    return {name: text for name, text in texts.items() if text is not None}


def test_an_outage_to_its_end(rig, nut, monitor):
    rig.full_server("test.hour=-1")
    nut.wait_for("OL", within=STARTED)
    assert nut.variables() == variables("OL", NOT_KNOWN_BAD)
    rig.board.ac(False)
    nut.wait_for("OB", within=SEEN)
    assert nut.variables() == variables("OB", NOT_KNOWN_BAD)
    nut.assert_stays("OB", 30)
    rig.board.battery(False)
    nut.wait_for("OB LB", within=SEEN)
    # The way down is not called off, whatever the lines say.
    rig.board.ac(True)
    rig.board.battery(True)
    nut.assert_stays("OB LB", 30)


def test_power_that_returns_in_time(rig, nut, monitor):
    rig.full_server("test.hour=-1")
    nut.wait_for("OL", within=STARTED)
    rig.board.ac(False)
    nut.wait_for("OB", within=SEEN)
    rig.board.ac(True)
    nut.wait_for("OL", within=SEEN)


def test_a_battery_that_was_cut_is_not_counted_on_with_power_back(rig, nut, monitor):
    daemon = rig.full_server("test.hour=-1", "test.shut.timeout=0", "test.shut.cutoff=0")
    rig.board.ac(False)
    rig.board.battery(False)
    nut.wait_for("OB LB", within=STARTED)
    daemon.wait_for_line("Still alive, force shutdown", within=60)
    rig.board.ac(True)
    nut.wait_for("OL LB", within=60)
    rig.board.battery(True)
    nut.assert_stays("OL LB", 20)
    # The next daemon connects it again.
    daemon.end(within=1)
    rig.full_server("test.hour=-1")
    nut.wait_for("OL", within=STARTED)


@pytest.mark.parametrize("outage", [False, True])
def test_a_dead_daemon_is_seen(rig, nut, monitor, outage):
    daemon = rig.full_server("test.hour=-1")
    rig.board.ac(not outage)
    nut.wait_for("OB" if outage else "OL", within=STARTED)
    daemon.kill()
    nut.wait_for(NOT_CONNECTED, within=2 * SEEN)
    assert not nut.file.exists()
    nut.assert_stays(NOT_CONNECTED, 30)
    # The next one is believed again.
    rig.board.ac(True)
    rig.full_server("test.hour=-1")
    nut.wait_for("OL", within=STARTED)
    assert monitor.stderr.splitlines()[-3:] == [
        "The daemon lives",
        "The daemon is gone or hangs",
        "The daemon lives",
    ]


def test_a_hung_daemon_is_seen_and_one_that_wakes_up(rig, nut, monitor):
    daemon = rig.full_server("test.hour=-1")
    nut.wait_for("OL", within=STARTED)
    daemon.send(19)
    nut.wait_for(NOT_CONNECTED, within=2 * SEEN)
    daemon.send(18)
    nut.wait_for("OL", within=STARTED)


def test_what_a_dead_daemon_left_is_never_shown(rig, tmp_path):
    rig.full_server("test.hour=-1").kill()
    file = tmp_path / "status"
    with Program([MONITOR, "--nut", str(file)]):
        end = now() + 30 * SECOND
        while now() < end:
            assert not file.exists()
            sleep_until(now() + SECOND // 2)


def test_a_segment_that_is_not_whole_is_not_waited_for(rig, nut, monitor):
    daemon = rig.full_server("test.hour=-1")
    nut.wait_for("OL", within=STARTED)
    daemon.kill()
    SEGMENT.unlink()
    SEGMENT.touch()
    os.truncate(SEGMENT, 1024)
    nut.wait_for(NOT_CONNECTED, within=10 + SEEN)


def test_a_minimal_server_knows_of_no_battery(rig, nut, monitor):
    rig.board.battery(False)
    rig.minimal_server()
    nut.wait_for("OL", within=STARTED)
    assert nut.variables() == variables("OL", None)
    rig.board.ac(False)
    nut.wait_for("OB", within=SEEN)
    nut.assert_stays("OB", 20)
    assert nut.variables() == variables("OB", None)


def test_the_result_of_a_battery_test(rig, nut, monitor):
    daemon = rig.full_server("test.hour=-1", "test.duration=12")
    nut.wait_for("OL", within=STARTED)
    before = "OL"
    for good, result in ((False, "Battery is bad"), (True, NOT_KNOWN_BAD)):
        assert rig.client("--run-test-now").stdout == ""
        sleep_until(now() + SEEN * SECOND)
        assert nut.variables() == variables(before, "Test is running")
        rig.board.battery(good)
        daemon.wait_for_line(f"Test result: Battery is {'good' if good else 'bad'}", within=7)
        rig.board.battery(True)
        sleep_until(now() + SEEN * SECOND)
        before = "OL" if good else "OL RB"
        assert nut.variables() == variables(before, result)
        # Twice the duration has to pass between two tests.
        sleep_until(now() + 12 * SECOND)


def test_a_result_goes_when_it_is_no_longer_known(rig, nut, monitor):
    """The driver keeps what a file does not name."""
    first = rig.full_server("test.hour=-1")
    nut.wait_for("OL", within=STARTED)
    assert nut.variables() == variables("OL", NOT_KNOWN_BAD)
    first.end(within=1)
    rig.configure()
    rig.minimal_server()
    sleep_until(now() + STARTED * SECOND)
    assert nut.variables() == variables("OL", None)


@pytest.mark.parametrize("number", [1, 2, 15])
def test_the_monitor_takes_its_file_with_it(rig, nut, monitor, number):
    rig.full_server("test.hour=-1")
    nut.wait_for("OL", within=STARTED)
    monitor.send(number)
    assert monitor.wait_for_exit(within=6) == 0
    assert not nut.file.exists()
    nut.wait_for(NOT_CONNECTED, within=SEEN)


def test_another_machine_goes_down_when_the_battery_is_empty(rig, nut, monitor):
    daemon = rig.full_server("test.hour=-1", "test.shut.cmd=poweroff")
    nut.wait_for("OL", within=STARTED)
    other = nut.other_machine()
    sleep_until(now() + 10 * SECOND)
    rig.board.ac(False)
    sleep_until(now() + 60 * SECOND)
    assert DOWN not in other.stdout
    rig.board.battery(False)
    empty = daemon.wait_for_line("Battery empty", within=2).time
    down = other.wait_for_line(DOWN, within=60).time
    command = daemon.wait_for_line("Execute: poweroff", within=120).time
    # Long before the board itself.
    assert down - empty < 40 * SECOND < command - down


@pytest.mark.parametrize("outage", [False, True])
def test_another_machine_when_the_daemon_dies(rig, nut, monitor, outage):
    """It goes down, if it was last told of an outage."""
    daemon = rig.full_server("test.hour=-1")
    nut.wait_for("OL", within=STARTED)
    other = nut.other_machine()
    sleep_until(now() + 10 * SECOND)
    rig.board.ac(not outage)
    sleep_until(now() + 30 * SECOND)
    daemon.kill()
    nut.wait_for(NOT_CONNECTED, within=2 * SEEN)
    assert DOWN not in other.stdout
    sleep_until(now() + 45 * SECOND)
    assert (DOWN in other.stdout) == outage
