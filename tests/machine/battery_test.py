"""One battery test from request to result, on a machine's own kernel and controller."""

import re

import pytest

from rig import RESULT_FILE, Lived

SECONDS = 20


@pytest.fixture(scope="module")
def lived(tmp_path_factory):
    return Lived(tmp_path_factory.mktemp("life"), "battery")


def test_the_service_says_what_it_says_on_the_other_board(lived):
    progress = [text for text in lived.of_the_daemon(1) if re.fullmatch(r"MS: \d+", text)]
    assert len(progress) == SECONDS
    assert lived.of_the_daemon(1) == [
        "Cant read timestamp conf",
        "Start",
        "Full server",
        "Got run test now",
        *progress,
        "Test result: Battery is good",
    ]


def test_the_outputs_are_driven_from_the_start_and_ac_power_is_away_for_the_test(lived):
    assert [level for _, level in lived.levels("BAT-SW")] == [1]
    (_, start), (began, on), (ended, off) = lived.levels("BAT-T2")
    assert (start, on, off) == (0, 1, 0)
    # The looks at the battery take some time, too.
    assert SECONDS <= ended - began < SECONDS + 1


def test_status_and_result_file_have_the_outcome(lived):
    assert "batteryBad               : 0\ntesting                  : 0\n" in lived.printed
    assert lived.status == 0
    start, end = re.fullmatch(
        r"result\.start=(\d+)\nresult\.end=(\d+)\n", lived.file(RESULT_FILE)
    ).groups()
    assert int(end) - int(start) in (SECONDS, SECONDS + 1)
