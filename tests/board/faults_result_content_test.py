"""A result file that is damaged, cut short, elsewhere or not ours to read."""

import re

import pytest

from rig import NO_RESULT_FILE

WHOLE = "result.start=1790000001\nresult.end=1790000602\n"
TIMES = re.compile(r"startTimestamp +: (\d+)\nendTimestamp +: (\d+)\n")


@pytest.fixture
def segment(rig):
    """Something for status clients to show."""
    rig.minimal_server().kill()
    return rig


def start(rig):
    """How a start ends, and the two times if it went well."""
    result = rig.client("-v", "-s")
    times = TIMES.search(result.stdout)
    return result.status, result.stderr, times and (int(times[1]), int(times[2]))


def invalid_line(line):
    return f"the options configuration file contains an invalid line '{line}'\n"


def invalid_time(value):
    return f"the argument ('{value}') for option 'result.start' is invalid\n"


def expected_of_cut(text):
    """What a start makes of the begin of a file; a number cut short is not noticed."""
    *_, last = text.split("\n")
    name, equals, value = last.partition("=")
    if last and not equals:
        return 1, invalid_line(last), None
    if equals and not value:
        return 1, f"the argument for option '{name}' is invalid\n", None
    numbers = [int(number) for number in re.findall(r"\d+", text)]
    return 0, "", tuple((numbers + [0, 0])[:2])


def test_a_file_that_was_cut_short_anywhere(segment):
    """Half of the places stop every start until the file is mended or removed."""
    stopped = 0
    for length in range(len(WHOLE) + 1):
        segment.result_file.write_text(WHOLE[:length])
        outcome = start(segment)
        assert (length, outcome) == (length, expected_of_cut(WHOLE[:length]))
        stopped += outcome[0]
    assert stopped == len("result.start=") + len("result.end=")


@pytest.mark.parametrize(
    "content, error",
    [
        (b"[result\n", invalid_line("[result")),
        (b"result.start 5\n", invalid_line("result.start 5")),
        (b"result.start:5\n", invalid_line("result.start:5")),
        (b"; times\n", invalid_line("; times")),
        (b"\xff\xfe\n", invalid_line("\\xff\\xfe")),
        # What a file system leaves after a power cut; the text ends at the first zero.
        (bytes(46), invalid_line("").removesuffix("'\n") + "\n"),
        (b"result.start=1.5\n", invalid_time("1.5")),
        (b"result.start=1e3\n", invalid_time("1e3")),
        (b"result.start=0x10\n", invalid_time("0x10")),
        (b"result.start=5 6\n", invalid_time("5 6")),
        (b"result.start=1,000\n", invalid_time("1,000")),
        (b"result.start='5'\n", invalid_time("'5'")),
        (b"result.start==5\n", invalid_time("=5")),
        (b"result.start=\xff\n", invalid_time("\\xff")),
        (b"result.start=5\0\n", invalid_time("5").partition("')")[0] + "\n"),
        (
            b"[result]\nstart=5\nstart=6\n",
            "option 'result.start' cannot be specified more than once\n",
        ),
    ],
)
def test_damage_that_stops_every_start(segment, content, error):
    segment.result_file.write_bytes(content)
    assert start(segment) == (1, error, None)
    assert segment.result_file.read_bytes() == content


@pytest.mark.parametrize(
    "content, times",
    [
        (b"result.start=5\r\nresult.end=6\r\n", (5, 6)),
        (b"result.start=007\n", (7, 0)),
        (b"result.start=+5\n", (5, 0)),
        (b"result.start=-1\n", (18446744073709551615, 0)),
        (b"#" * 100_000 + b"\nresult.end=6\n", (0, 6)),
    ],
)
def test_oddities_that_are_read(segment, content, times):
    segment.result_file.write_bytes(content)
    assert start(segment) == (0, "", times)


@pytest.mark.parametrize(
    "content, key",
    [
        ("=5\n", ""),
        ("Result.Start=5\n", "Result.Start"),
        ("\ufeffresult.start=5\n", "\ufeffresult.start"),
        ("[result]\nresult.start=5\n", "result.result.start"),
        ("[result]\n[]\nstart=5\n", ".start"),
    ],
)
def test_keys_that_are_not_ours_are_reported(segment, content, key):
    segment.result_file.write_text(content)
    result = segment.client("-v", "-s")
    assert result.stdout.startswith(f"Unknown option in {segment.result_file}: {key}\nrun-test ")
    assert start(segment) == (0, "", (0, 0))


def run_test(rig, daemon):
    rig.client("-n", "--test.duration=1")
    daemon.wait_for_line("Test result: Battery is good", within=3)
    assert daemon.stderr == NO_RESULT_FILE


def test_a_link_to_nothing_gets_its_file_by_the_first_test(rig):
    target = rig.folder / "elsewhere"
    rig.result_file.symlink_to(target)
    run_test(rig, rig.full_server("test.hour=-1"))
    assert rig.result_file.is_symlink()
    assert not target.is_symlink()
    rig.saved_times()


def test_a_link_to_itself_holds_nothing(rig):
    rig.result_file.symlink_to(rig.result_file)
    run_test(rig, rig.full_server("test.hour=-1"))
    assert rig.result_file.is_symlink()
    assert rig.client("-s").stderr == NO_RESULT_FILE


def test_a_folder_in_its_place_holds_nothing(rig):
    rig.result_file.mkdir()
    daemon = rig.full_server("test.hour=-1")
    rig.client("-n", "--test.duration=1")
    daemon.wait_for_line("Test result: Battery is good", within=3)
    assert daemon.stderr == ""
    assert list(rig.result_file.iterdir()) == []


@pytest.mark.kernel
def test_another_user_who_may_not_read_it_gets_the_status_all_the_same(segment):
    segment.save_times(5, 6)
    segment.result_file.chmod(0o600)
    result = segment.client_of_nobody("-v", "--status")
    times = TIMES.search(result.stdout)
    assert (times[1], times[2], result.stderr, result.status) == ("0", "0", NO_RESULT_FILE, 0)
