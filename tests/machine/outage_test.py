"""Outages: one that the battery outlasts, power back on the way down, one to the cut and beyond."""

import pytest

from rig import CUT, START_AGAIN, Lived


def test_an_outage_with_power_back_in_time(tmp_path):
    lived = Lived(tmp_path, "short_outage")
    assert lived.printed.splitlines() == [
        # Whether the status could be read, AC power is missing, the battery is empty.
        "before 1 0 0",
        "without 1 1 0",
        "after 1 0 0",
    ]
    assert lived.of_the_daemon(1)[-1] == "Full server"
    assert lived.ends() == ["the command's end"]
    assert [level for _, level in lived.levels("BAT-SW")] == [1]


# In the grace time, right before and after the command, in the midst of the way down, and when all is
# unmounted.
@pytest.mark.parametrize("moment", [10, 119.5, 120.5, 124, "late"])
def test_power_that_is_back_on_the_way_starts_the_machine_again(tmp_path, moment):
    lived = Lived(tmp_path, "outage", moment, most_boots=1)
    assert lived.after_unmounting() == [START_AGAIN]
    assert lived.ends() == ["reboot"]
    assert [level for _, level in lived.levels("BAT-SW")] == [1]
    back = lived.when_outside('{"ac": true}' if moment == "late" else '{"ac": true, "good": true}')
    if moment == "late":
        assert back > lived.said[-1].seconds
    else:
        assert moment <= back - lived.when("Battery empty") < moment + 0.5
    lived.assert_file_system_whole()


def test_an_outage_to_the_cut_and_the_boot_after_it(tmp_path):
    lived = Lived(tmp_path, "outage", 600)
    assert lived.of_the_daemon(1)[2:] == [
        "Full server",
        "Battery empty",
        "Not ready for shutdown after 15 seconds",
        "Execute: poweroff",
        "Interrupted with signal: 15",
    ]
    assert round(lived.when("Execute: poweroff") - lived.when("Battery empty")) == 120
    assert lived.after_unmounting() == [CUT]
    assert lived.ends() == ["power cut", "the command's end"]
    (_, connected), (_, cut) = lived.levels("BAT-SW")
    assert (connected, cut) == (1, 0)
    # Nothing was left to be flushed when the battery was cut.
    assert lived.life.lost == [(0, 0, 0)]
    lived.assert_file_system_whole()

    assert lived.of_the_daemon(2)[-1] == "Full server"
    assert [level for _, level in lived.levels("BAT-SW", boot=2)] == [1]
    assert "batteryEmpty             : 0\n" in lived.printed
