"""What clients print, and when they post."""

import pytest

from rig import NO_RESULT_FILE, SECOND

from guest.clock import now, set_wall, sleep_until

A_TIME = 1_790_000_000


@pytest.fixture
def posted(rig):
    """A stopped daemon's segment: nobody takes what is posted."""
    daemon = rig.full_server("test.hour=-1", "test.init.disable=0")
    daemon.send(15)
    daemon.wait_for_exit(within=1)
    return rig


def requests(rig):
    status = rig.status()
    return status["runTest"], status["runTestNow"], status["duration"]


def test_the_status_is_eight_lines(posted):
    posted.set_fields(
        count=12, missingPower=1, batteryEmpty=255, batteryBad=2, testing=3, runTest=4
    )
    posted.set_fields(runTestNow=255, duration=65535)
    assert posted.client("--status") == (
        "count                    : 12\n"
        "missingPower             : 1\n"
        "batteryEmpty             : 255\n"
        "batteryBad               : 2\n"
        "testing                  : 3\n"
        "runTest                  : 4\n"
        "runTestNow               : 255\n"
        "duration                 : 65535\n",
        NO_RESULT_FILE,
        0,
    )


def test_a_count_above_2147483647_prints_negative(posted):
    posted.set_fields(count=2147483648)
    assert posted.client("-s").stdout.startswith("count                    : -2147483648\n")


@pytest.mark.parametrize(
    "word, request_fields", [("--run-test", (1, 0, 77)), ("--run-test-now", (0, 1, 77))]
)
def test_a_posted_request_prints_nothing(posted, word, request_fields):
    assert posted.client(word, "--test.duration=77") == ("", NO_RESULT_FILE, 0)
    assert requests(posted) == request_fields


@pytest.mark.parametrize("word", ["-r", "-n"])
@pytest.mark.parametrize(
    "fields, answer",
    [
        ({"testing": 1, "missingPower": 1}, "Test is already running.\n"),
        (
            {"missingPower": 1, "batteryEmpty": 1},
            "We are running on batteries.\nBattery is empty\n",
        ),
        ({"missingPower": 1}, "We are running on batteries.\nBattery is good\n"),
        (
            {"missingPower": 1, "batteryEmpty": 255},
            "We are running on batteries.\nBattery is good\n",
        ),
        ({"testing": 255, "missingPower": 1}, "Testing is disabled, exiting.\n"),
    ],
)
def test_refusals(posted, word, fields, answer):
    posted.set_fields(**fields)
    assert posted.client(word) == (answer, NO_RESULT_FILE, 0)
    assert requests(posted) == (0, 0, 0)


@pytest.mark.parametrize("fields", [{"testing": 2}, {"missingPower": 2}, {"missingPower": 255}])
def test_only_1_refuses(posted, fields):
    posted.set_fields(**fields)
    assert posted.client("-n").stdout == ""
    assert posted.status()["runTestNow"] == 1


@pytest.mark.parametrize(
    "bad, result", [(0, "good"), (1, "bad"), (2, "good"), (255, "good")]
)
def test_too_early(posted, bad, result):
    set_wall(A_TIME + 0.5)
    posted.save_times(A_TIME - 100, A_TIME)
    posted.set_fields(batteryBad=bad)
    assert posted.client("-n", "--test.duration=60") == (
        "Last test was done less than 120 seconds ago\n"
        f"Last test result: Battery is {result}\n",
        "",
        0,
    )
    assert requests(posted) == (0, 0, 0)


@pytest.mark.parametrize("ago, served", [(100, False), (119, False), (120, True), (121, True)])
def test_run_test_now_needs_twice_its_length(posted, ago, served):
    set_wall(A_TIME + 0.5)
    posted.save_times(A_TIME - ago, A_TIME)
    result = posted.client("-n", "--test.duration=60")
    assert (result.stdout == "") == served
    assert requests(posted) == ((0, 1, 60) if served else (0, 0, 0))


def test_twice_the_longest_length_does_not_overflow(posted):
    set_wall(A_TIME + 0.5)
    posted.save_times(A_TIME - 131069, A_TIME)
    assert posted.client("-n", "--test.duration=65535").stdout.startswith(
        "Last test was done less than 131070 seconds ago\n"
    )


@pytest.mark.parametrize("ago, served", [(4999, False), (5000, True)])
def test_run_test_needs_its_period(posted, ago, served):
    set_wall(A_TIME + 0.5)
    posted.save_times(A_TIME - ago, A_TIME)
    result = posted.client("-r", "--test.period=5000")
    if served:
        assert result == ("", "", 0)
    else:
        assert result == (
            "Last test was done less than 5000 seconds ago\n"
            "Last test result: Battery is good\n",
            "",
            0,
        )
    assert posted.status()["runTest"] == served


def test_a_start_in_the_future_counts_as_long_ago(posted):
    set_wall(A_TIME + 0.5)
    posted.save_times(A_TIME + 1, A_TIME)
    assert posted.client("-r") == ("", "", 0)
    assert posted.client("-n") == ("", "", 0)
    assert requests(posted) == (1, 1, 600)


def test_too_soon_after_boot_is_reported_with_the_period(posted):
    uptime = now() // SECOND
    sleep_until((uptime + 1) * SECOND + SECOND // 2)
    late = ["-r", "--test.period=77", f"--test.init.disable={uptime + 2}"]
    assert posted.client(*late).stdout == (
        "Last test was done less than 77 seconds ago\nLast test result: Battery is good\n"
    )
    early = ["-r", "--test.period=77", f"--test.init.disable={uptime + 1}"]
    assert posted.client(*early).stdout == ""


def test_time_since_boot_does_not_matter_for_run_test_now(posted):
    assert posted.client("-n", "--test.init.disable=65535").stdout == ""


def test_a_client_does_not_know_the_daemon_s_settings(rig):
    """Without the daemon's configuration it looks for another result file."""
    set_wall(A_TIME + 0.5)
    rig.save_times(A_TIME, A_TIME)
    rig.full_server("test.hour=-1")
    assert rig.client("-n").stdout.startswith("Last test was done less than 1200 seconds ago\n")
    rig.result_file = rig.folder / "other.dat"
    rig.configure()
    assert rig.client("-n").stdout == ""


def test_after_the_daemon_requests_are_posted_that_nobody_serves(posted):
    posted.client("-n")
    sleep_until(now() + 10 * SECOND)
    assert posted.status()["runTestNow"] == 1
