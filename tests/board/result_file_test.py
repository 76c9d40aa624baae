"""The times of the last test between one start and the next."""

import shutil

import pytest

from rig import NO_RESULT_FILE, PROGRAM, PROGRESS, SYSTEM_CONFIGURATION

from guest.clock import set_wall
from guest.process import run

A_TIME = 1_790_000_000


def listed_times(result):
    """The two times as -v lists them."""
    labels = ("startTimestamp           : ", "endTimestamp             : ")
    lines = result.stdout.splitlines()
    return tuple(
        next(int(line.removeprefix(label)) for line in lines if line.startswith(label))
        for label in labels
    )


def listing(rig):
    return rig.client("-v", "-s")


@pytest.fixture
def segment(rig):
    """Something for status clients to show."""
    rig.minimal_server().kill()
    return rig


def test_without_a_file_the_times_are_zero(segment):
    result = listing(segment)
    assert result.stderr == NO_RESULT_FILE
    assert listed_times(result) == (0, 0)
    assert not segment.result_file.exists()


def test_the_file_is_read_in_every_mode(segment):
    segment.save_times(5, 18446744073709551615)
    result = listing(segment)
    assert (result.stderr, result.status) == ("", 0)
    assert listed_times(result) == (5, 18446744073709551615)


def test_help_reads_it_first(rig):
    assert rig.client("--help").stderr == NO_RESULT_FILE


@pytest.mark.parametrize(
    "content, times",
    [
        ("", (0, 0)),
        ("result.start=7\n", (7, 0)),
        ("result.end=7\n", (0, 7)),
        ("result.end=8\nresult.start=7", (7, 8)),
        ("# times\n\n  result.start =  7  # seconds\nresult.end=8\n", (7, 8)),
        ("[result]\nstart=7\nend=8\n", (7, 8)),
    ],
)
def test_what_else_is_accepted(segment, content, times):
    segment.result_file.write_text(content)
    result = listing(segment)
    assert (listed_times(result), result.stderr, result.status) == (times, "", 0)


def test_unknown_keys_are_reported_and_ignored(segment):
    segment.result_file.write_text(
        "foo=1\nresult.start=7\ntest.duration=5\nresult.end=8\nsys.save.path=/x\n"
    )
    result = listing(segment)
    path = segment.result_file
    assert result.stdout.startswith(
        f"Unknown option in {path}: foo\n"
        f"Unknown option in {path}: test.duration\n"
        f"Unknown option in {path}: sys.save.path\n"
        "run-test "
    )
    assert listed_times(result) == (7, 8)
    assert "test.duration            : 600 seconds\n" in result.stdout


@pytest.mark.parametrize("words", [["-s"], ["-r"], ["-n"], ["-h"], []])
@pytest.mark.parametrize(
    "content, error",
    [
        (
            "result.start=abc\n",
            "the argument ('abc') for option 'result.start' is invalid\n",
        ),
        ("result.start=\n", "the argument for option 'result.start' is invalid\n"),
        (
            "result.end=18446744073709551616\n",
            "the argument ('18446744073709551616') for option 'result.end' is invalid\n",
        ),
        (
            "foo=1\nresult.start=1\nresult.start=2\n",
            "option 'result.start' cannot be specified more than once\n",
        ),
        ("nonsense\n", "the options configuration file contains an invalid line 'nonsense'\n"),
    ],
)
def test_a_malformed_file_stops_every_start(segment, words, content, error):
    segment.result_file.write_text(content)
    assert segment.client(*words) == ("", error, 1)


def test_a_time_in_the_configuration_wins_at_every_start(rig):
    set_wall(A_TIME + 0.5)
    rig.save_times(5, 6)
    daemon = rig.full_server("result.start=1000", "test.hour=-1")
    assert listed_times(listing(rig)) == (1000, 6)
    rig.client("-n", "--test.duration=1")
    daemon.wait_for_line("Test result: Battery is good", within=3)
    assert rig.saved_times()[0] in (A_TIME, A_TIME + 1)
    assert listed_times(listing(rig))[0] == 1000


def test_the_end_of_the_last_test_stays_while_the_next_one_runs(rig):
    set_wall(A_TIME + 0.5)
    rig.save_times(5, 6)
    daemon = rig.full_server("test.hour=-1")
    rig.client("-n", "--test.duration=2")
    daemon.wait_for_line(PROGRESS, within=1.1)
    start, end = rig.saved_times()
    assert (start in (A_TIME, A_TIME + 1), end) == (True, 6)
    daemon.wait_for_line("Test result: Battery is good", within=3)
    assert rig.saved_times()[1] - start in (2, 3)


def test_the_next_daemon_goes_on_from_the_file(rig):
    daemon = rig.full_server("test.hour=-1")
    rig.client("-n", "--test.duration=1")
    daemon.wait_for_line("Test result: Battery is good", within=3)
    times = rig.saved_times()
    daemon.kill()
    rig.full_server("test.hour=-1")
    assert listed_times(listing(rig)) == times


def test_a_longer_file_is_replaced_whole(rig):
    rig.result_file.write_text("# " + "x" * 1000 + "\nresult.start=5\n")
    daemon = rig.full_server("test.hour=-1")
    rig.client("-n", "--test.duration=1")
    daemon.wait_for_line("Test result: Battery is good", within=3)
    rig.saved_times()


def test_a_folder_that_does_not_exist_is_not_made(rig):
    rig.result_file = rig.folder / "missing" / "result.dat"
    daemon = rig.full_server("test.hour=-1")
    rig.client("-n", "--test.duration=1")
    daemon.wait_for_line("Test result: Battery is good", within=3)
    assert not rig.result_file.parent.exists()
    assert daemon.stderr == NO_RESULT_FILE
    assert rig.client("-s").stderr == NO_RESULT_FILE


def test_a_folder_in_its_place_reads_as_empty(segment):
    segment.result_file.mkdir()
    result = listing(segment)
    assert (listed_times(result), result.stderr, result.status) == ((0, 0), "", 0)


def test_the_default_path(segment):
    folder = SYSTEM_CONFIGURATION / "kelvo"
    folder.mkdir()
    try:
        (folder / "kelvo-pwr.dat").write_text("result.start=7\nresult.end=8\n")
        result = run([PROGRAM, "-v", "-s"])
        assert (listed_times(result), result.stderr, result.status) == ((7, 8), "", 0)
    finally:
        shutil.rmtree(folder)
