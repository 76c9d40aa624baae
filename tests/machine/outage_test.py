"""Outages: one that the battery outlasts, one to the cut and the boot after it."""

import subprocess

from rig import CUT, Lived, package_of

POWEROFF = "test.shut.cmd=poweroff"


def test_an_outage_with_power_back_in_time(tmp_path):
    package = package_of("kelvo-pwr-monitor")
    subprocess.run(["dpkg-deb", "--extract", package, tmp_path / "unpacked"], check=True)
    monitor = tmp_path / "unpacked/usr/sbin/kelvo-pwr-monitor"
    lived = Lived(tmp_path, "short_outage", more=[monitor])
    assert lived.printed.splitlines() == [
        # Whether the status could be read, AC power is missing, the battery is empty.
        "before 1 0 0",
        "without 1 1 0",
        "after 1 0 0",
    ]
    assert lived.of_the_daemon(1)[-1] == "Full server"
    assert lived.ends() == ["the command's end"]
    assert [level for _, level in lived.levels("BAT-SW")] == [1]


def test_an_outage_to_the_cut_and_the_boot_after_it(tmp_path):
    lived = Lived(tmp_path, "outage", 600, settings=[POWEROFF])
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
    assert lived.life.lost == [(0, 0)]
    lived.assert_file_system_whole()

    assert lived.of_the_daemon(2)[-1] == "Full server"
    assert [level for _, level in lived.levels("BAT-SW", boot=2)] == [1]
    assert "batteryEmpty             : 0\n" in lived.printed
