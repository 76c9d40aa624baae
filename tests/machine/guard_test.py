"""A daemon that is killed in a battery test, and a file of times that is spoilt."""

import re

import pytest

from rig import RESULT_FILE, Lived


@pytest.mark.parametrize("coupled", [False, True], ids=["separate", "coupled"])
def test_ac_power_stays_away_until_a_daemon_is_started_again(tmp_path, coupled):
    """The controller keeps the level of a line that is given back."""
    lived = Lived(tmp_path, "killed", coupled=coupled)
    killed, again, *status = lived.printed.splitlines()
    assert killed == f"killed None 1, AC power {'missing' if coupled else 'present'}"
    assert again == "started again kelvo-pwr 0, AC power present"
    assert "batteryBad               : 0" in status
    (_, start), (_, on), (restarted, off) = lived.levels("BAT-T2")
    assert (start, on, off) == (0, 1, 0)
    (died,) = (
        one.seconds for one in lived.said if one.text.endswith("code=killed, status=9/KILL")
    )
    # As long as the service leaves before it starts a daemon again.
    assert restarted - died >= 10
    assert [level for _, level in lived.levels("BAT-SW")] == [1, 1]
    # The test is not taken up again.
    assert lived.of_the_daemon(1)[-2:] == ["Start", "Full server"]
    assert re.fullmatch(r"result\.start=\d+\nresult\.end=0\n", lived.file(RESULT_FILE))


def test_a_battery_that_fails_meanwhile_resets_the_machine(tmp_path):
    """Nobody drives the relay then, and AC power is there."""
    lived = Lived(tmp_path, "killed", "and the battery fails")
    assert lived.ends() == ["power cut", "the command's end"]
    killed, again, *_ = lived.printed.splitlines()
    assert killed == "killed None 1, AC power present"
    assert again == "started again kelvo-pwr 0, AC power present"
    assert lived.of_the_daemon(2)[-2:] == ["Start", "Full server"]
    assert re.fullmatch(r"result\.start=\d+\nresult\.end=0\n", lived.file(RESULT_FILE))
    lived.assert_file_system_whole()


def test_a_spoilt_file_of_times_is_set_aside(tmp_path):
    lived = Lived(tmp_path, "spoilt")
    assert lived.state_files() == ["kelvo-pwr.dat.spoilt"]
    assert lived.of_the_daemon(1)[3:] == [
        "Interrupted with signal: 15",
        "Cant read timestamp conf",
        "Start",
        "Full server",
    ]
