"""A daemon that is killed in a battery test."""

from rig import Lived


def test_ac_power_stays_away_until_a_daemon_is_started_again(tmp_path):
    """The controller keeps the level of a line that is given back."""
    lived = Lived(tmp_path, "killed")
    assert lived.printed.splitlines() == ["killed None 1", "restarted kelvo-pwr 0"]
    (_, start), (_, on), (again, off) = lived.levels("BAT-T2")
    assert (start, on, off) == (0, 1, 0)
    (killed,) = (
        one.seconds for one in lived.said if one.text.endswith("code=killed, status=9/KILL")
    )
    # As long as the service leaves before it starts a daemon again.
    assert again - killed >= 10
    assert [level for _, level in lived.levels("BAT-SW")] == [1, 1]
