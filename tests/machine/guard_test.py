"""A daemon that is killed in a battery test, and a file of times that is spoilt."""

import pytest

from rig import Lived


@pytest.mark.parametrize("coupled", [False, True], ids=["separate", "coupled"])
def test_ac_power_stays_away_until_a_daemon_is_started_again(tmp_path, coupled):
    """The controller keeps the level of a line that is given back."""
    lived = Lived(tmp_path, "killed", coupled=coupled)
    assert lived.printed.splitlines() == [
        f"killed None 1, AC power {'missing' if coupled else 'present'}",
        "restarted kelvo-pwr 0, AC power present",
    ]
    (_, start), (_, on), (again, off) = lived.levels("BAT-T2")
    assert (start, on, off) == (0, 1, 0)
    (killed,) = (
        one.seconds for one in lived.said if one.text.endswith("code=killed, status=9/KILL")
    )
    # As long as the service leaves before it starts a daemon again.
    assert again - killed >= 10
    assert [level for _, level in lived.levels("BAT-SW")] == [1, 1]
    # The test is not taken up again.
    said = lived.of_the_daemon(1)
    assert said[said.index("Full server") + 1] == "Got run test now"
    assert said[-2:] == ["Start", "Full server"]


def test_a_spoilt_file_of_times_is_set_aside(tmp_path):
    lived = Lived(tmp_path, "spoilt")
    assert lived.state_files() == ["kelvo-pwr.dat.spoilt"]
    assert lived.of_the_daemon(1)[3:] == [
        "Interrupted with signal: 15",
        "Cant read timestamp conf",
        "Start",
        "Full server",
    ]
