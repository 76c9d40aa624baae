"""The wall clock set a year back or forward, and zones that change, under a running daemon."""

from datetime import datetime, timezone
from pathlib import Path

import pytest

from rig import PROGRESS, SECOND

from guest.clock import now, set_wall, sleep_until, wall

HOUR = 3600
DAY = 24 * HOUR
YEAR = 365 * DAY

YEARS = pytest.mark.parametrize("step", [-YEAR, YEAR], ids=["a year back", "a year forward"])

GOOD = "Test result: Battery is good"


def utc(*when):
    """Half a second into that second."""
    return datetime(*when, tzinfo=timezone.utc).timestamp() + 0.5


def turn(step):
    """Sets the wall clock on by so many seconds."""
    set_wall(wall() + step)


def results(daemon):
    return daemon.stdout.count("Test result")


# The clock is set while the schedule is on.


@YEARS
def test_during_a_test(rig, step):
    """The test keeps its length, its two times lie a year apart, the next test is due at once."""
    set_wall(utc(2026, 3, 1, 10, 30, 0))
    daemon = rig.full_server("test.init.disable=0", "test.duration=10", env={"TZ": "UTC"})
    begun = daemon.started
    daemon.wait_for_line(PROGRESS, within=1)
    start = rig.saved_times()[0]
    sleep_until(begun + 5 * SECOND)
    turn(step)
    result = daemon.wait_for_line(GOOD, within=6)
    assert round((result.time - begun) / SECOND) == 10
    end = start + step + 10
    assert rig.saved_times() == (start, end)
    # By the clock that holds now the last start lies a year away, on either side.
    result = daemon.wait_for_line(GOOD, within=12)
    assert round((result.time - begun) / SECOND) == 10 + 1 + 10
    assert rig.saved_times() == (end + 1, end + 11)
    sleep_until(now() + 600 * SECOND)
    assert results(daemon) == 2
    assert [level for _, level in rig.trace.writes("BAT-T2")] == [0, 1, 0, 1, 0]


@YEARS
def test_between_two_tests(rig, step):
    """Due at the next second, though the period is not over by any clock that stands still."""
    set_wall(utc(2026, 3, 1, 10, 30, 0))
    daemon = rig.full_server("test.init.disable=0", "test.duration=1", env={"TZ": "UTC"})
    daemon.wait_for_line(GOOD, within=2)
    sleep_until(daemon.started + 60 * SECOND + SECOND // 2)
    assert results(daemon) == 1
    turn(step)
    turned = now()
    result = daemon.wait_for_line(GOOD, within=3)
    assert round((result.time - turned) / SECOND, 1) == 1.5
    sleep_until(now() + 600 * SECOND)
    assert results(daemon) == 2
    # By its own clock the next one waits for the period again.
    assert rig.saved_times()[0] == int(utc(2026, 3, 1, 10, 31, 1)) + step


def test_a_step_back_that_stays_behind_the_last_start_holds_the_next_test_off(rig):
    """Only a clock from before the last start counts as long ago."""
    set_wall(utc(2026, 3, 1, 10, 0, 0))
    begin = int(wall())
    rig.save_times(begin - 1000, begin)
    daemon = rig.full_server(
        "test.init.disable=0", "test.period=1010", "test.duration=1", env={"TZ": "UTC"}
    )
    sleep_until(daemon.started + 5 * SECOND + SECOND // 2)
    set_wall(begin - 990 + 0.5)  # ten seconds after the last start, at nine o'clock
    sleep_until(now() + 999 * SECOND)
    assert results(daemon) == 0
    daemon.wait_for_line(GOOD, within=3)
    assert rig.saved_times()[0] - (begin - 1000) == 1010


@pytest.mark.parametrize(
    "step",
    [-YEAR, YEAR, -101],
    ids=["a year back", "a year forward", "to a second before the last start"],
)
@pytest.mark.parametrize("word", ["--run-test", "--run-test-now"])
def test_a_client_posts_what_it_refused_before(rig, word, step):
    set_wall(utc(2026, 3, 1, 10, 30, 0))
    begin = int(wall())
    rig.save_times(begin - 100, begin)
    rig.full_server("test.hour=-1", "test.init.disable=0", "test.duration=60")
    refused = {"--run-test": 1209600, "--run-test-now": 120}[word]
    assert rig.client(word).stdout == (
        f"Last test was done less than {refused} seconds ago\n"
        "Last test result: Battery is good\n"
    )
    turn(step)
    assert rig.client(word) == ("", "", 0)
    status = rig.status()
    posted = {"--run-test": (1, 0), "--run-test-now": (0, 1)}[word]
    assert (status["runTest"], status["runTestNow"]) == posted


@pytest.mark.parametrize(
    "step, served",
    [(-YEAR, True), (YEAR, True), (-122, True), (-50, False)],
    ids=["a year back", "a year forward", "to before the last start", "to after it"],
)
@pytest.mark.parametrize("request_flag", ["runTest", "runTestNow"])
def test_the_daemon_goes_by_the_clock_when_it_takes_the_request(rig, request_flag, step, served):
    """Between the client's check and the daemon's the clock is set."""
    set_wall(utc(2026, 3, 1, 10, 30, 0))
    begin = int(wall())
    rig.save_times(begin - 120, begin)
    daemon = rig.full_server(
        "test.external-scheduling=true", "test.init.disable=0", "test.period=120"
    )
    sleep_until(daemon.started + SECOND // 2)
    word = {"runTest": "--run-test", "runTestNow": "--run-test-now"}[request_flag]
    assert rig.client(word, "--test.duration=60") == ("", "", 0)
    turn(step)
    sleep_until(daemon.started + SECOND + SECOND // 10)
    status = rig.status()
    assert (status[request_flag], status["testing"]) == (0, served)
    said = "Got run test now\n" if request_flag == "runTestNow" else ""
    assert daemon.stdout.startswith("Start\nFull server\n" + said + ("MS: " if served else ""))
    if not served:
        assert daemon.stdout == "Start\nFull server\n" + said


# The waits do not go by it.


@pytest.mark.parametrize(
    "steps",
    [{-1: -YEAR}, {-1: YEAR}, {7: -YEAR, 18: -YEAR, 30: -YEAR}, {7: YEAR, 18: YEAR, 30: YEAR}],
    ids=["before, back", "before, forward", "in each wait, back", "in each wait, forward"],
)
def test_the_way_down_takes_its_time(rig, steps):
    daemon = rig.full_server("test.hour=-1", "test.shut.timeout=0", "test.shut.cutoff=0")
    sleep_until(daemon.started + 10 * SECOND + SECOND // 2)
    turn(steps.pop(-1, 0))
    rig.board.battery(False)
    rig.board.ac(False)
    begin = daemon.wait_for_line("Battery empty", within=1.1).time
    assert round((begin - daemon.started) / SECOND) == 11
    for after, step in steps.items():
        sleep_until(begin + after * SECOND + SECOND // 2)
        turn(step)
    cut = daemon.wait_for_line("Still alive, force shutdown", within=36).time
    # The cut itself follows the line.
    sleep_until(cut + SECOND // 2)
    times = {
        line.text: round((line.time - begin) / SECOND, 3)
        for line in daemon.lines
        if begin <= line.time <= cut
    }
    assert times == {
        "Battery empty": 0,
        "Not ready for shutdown after 15 seconds": 15,
        "Execute: reboot": 20,
        "Still alive, force shutdown": 35,
    }
    assert [call.name for call in rig.commands.calls()] == ["reboot"]
    assert [level for _, level in rig.trace.writes("BAT-SW")] == [1, 0]


@YEARS
def test_count_goes_on_second_by_second(rig, step):
    daemon = rig.full_server("test.hour=-1")
    sleep_until(daemon.started + 10 * SECOND + SECOND // 2)
    turn(step)
    sleep_until(daemon.started + 20 * SECOND + SECOND // 2)
    assert rig.status()["count"] == 20


# The zone of the system, and the two nights in which the clock is changed.

ZONES = Path("/usr/share/zoneinfo")


class SystemZone:
    """A folder for the daemon's /etc, in which the zone can be replaced as on a real system."""

    def __init__(self, folder):
        self.folder = folder
        folder.mkdir()

    def replace(self, name):
        """A new link in the place of the old one, in one step."""
        new = self.folder / "new"
        new.symlink_to(ZONES / name)
        new.rename(self.folder / "localtime")

    def before(self):
        """For the command line of a daemon that is to see it."""
        script = f'mount --bind "{self.folder}" /etc && exec "$@"'
        return ("env", "--unset=TZ", "unshare", "--mount", "sh", "-c", script, "-")


@pytest.mark.parametrize(
    "zone, tests",
    [(None, 1), (":/etc/localtime", 0), ("UTC", 0)],
    ids=["of the system", "of the system, by TZ", "of its own"],
)
def test_a_system_zone_that_is_replaced(rig, zone, tests):
    """It counts from the next second on, unless TZ names a zone or a file: then never."""
    set_wall(utc(2026, 3, 1, 1, 30, 0))
    system = SystemZone(rig.folder / "etc")
    system.replace("UTC")
    before = system.before()
    if zone is not None:
        before = (*before, "env", f"TZ={zone}")
    rig.configure("test.battery=true", "test.init.disable=0", "test.duration=1")
    daemon = rig.daemon(before=before)
    daemon.wait_for_line("Full server", within=1)
    sleep_until(daemon.started + 60 * SECOND + SECOND // 2)
    assert daemon.stdout == "Start\nFull server\n"
    system.replace("Asia/Tokyo")  # where it is half past ten
    replaced = now()
    sleep_until(replaced + 60 * SECOND)
    assert results(daemon) == tests
    if tests:
        assert rig.saved_times()[0] == int(utc(2026, 3, 1, 1, 31, 1))


# In Berlin, on 29 March, the clock goes from 1:59:59 to 3:00:00, at 1:00 UTC, and on
# 25 October from 2:59:59 back to 2:00:00, also at 1:00 UTC.


def starts_in_berlin(rig, begin, hours, *settings):
    """When tests start in these hours, in UTC."""
    set_wall(begin)
    rig.trace.close()
    daemon = rig.full_server(
        "test.init.disable=0", "test.duration=1", *settings, env={"TZ": "Europe/Berlin"}
    )
    end = daemon.started + hours * HOUR * SECOND
    starts = []
    while True:
        try:
            daemon.wait_for_line(GOOD, within=(end - now()) / SECOND)
        except AssertionError:
            return starts
        start = datetime.fromtimestamp(rig.saved_times()[0], timezone.utc)
        starts.append(start.strftime("%d %H:%M:%S"))


def test_in_spring_the_hour_that_is_left_out_has_no_test(rig):
    """The next one is on the next day, at two o'clock by the clock of then."""
    begin = utc(2026, 3, 29, 0, 59, 57)
    assert starts_in_berlin(rig, begin, 24, "test.hour=2") == ["30 00:00:00"]


@pytest.mark.parametrize(
    "period, starts",
    [
        (1209600, ["25 00:00:00"]),
        (HOUR + 1, ["25 00:00:00", "25 01:00:01"]),
        (HOUR, ["25 00:00:00", "25 01:00:00"]),
        (HOUR - 1, ["25 00:00:00", "25 00:59:59", "25 01:59:58"]),
        (2 * HOUR - 1, ["25 00:00:00", "25 01:59:59"]),
        (2 * HOUR, ["25 00:00:00"]),
    ],
)
def test_in_autumn_the_hour_that_comes_twice_has_as_many_tests_as_the_period_allows(
    rig, period, starts
):
    begin = utc(2026, 10, 24, 23, 59, 57)
    settings = ("test.hour=2", f"test.period={period}")
    assert starts_in_berlin(rig, begin, 3, *settings) == starts


@pytest.mark.parametrize(
    "last, begin, hours, starts",
    [
        # 13 days and 23 hours have passed at ten, and the hour is over when 14 days have.
        ((2026, 3, 15, 9, 0, 0), (2026, 3, 29, 7, 59, 57), 25, ["30 08:00:00"]),
        # 14 days and an hour have passed at ten.
        ((2026, 10, 11, 8, 0, 0), (2026, 10, 25, 7, 59, 57), 2, ["25 09:00:00"]),
    ],
    ids=["spring: a day later", "autumn: an hour more"],
)
def test_a_period_of_whole_days_over_the_turn(rig, last, begin, hours, starts):
    last = int(utc(*last))
    rig.save_times(last, last + 600)
    assert starts_in_berlin(rig, utc(*begin), hours, "test.hour=10") == starts
