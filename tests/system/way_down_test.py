"""AC power gone, battery empty: how the services of a booted Debian end. Runs on the host.

Each test boots a board of its own, whose journal tells what happened in which order.
SYSTEM_ROOT is the folder with its Debian, which install_package has made.
"""

import pytest

from way_down import CUT, LOSS_OF_POWER, Outage

COMMAND_UNIT = "board-command.service - The one command of this board"
SERVICE = "kelvo-pwr.service - AC power and backup battery supervision"

# What the daemon prints before the command.
EMPTY = ["Battery empty", "Not ready for shutdown after 15 seconds"]
MASKED = "ln -s /dev/null /etc/systemd/system/poweroff.target"
SYSTEMS_OWN = "rm /usr/libexec/kelvo-pwr/poweroff"


@pytest.mark.parametrize("command", ["poweroff", "reboot"])
def test_the_system_goes_down_and_the_daemon_with_it(tmp_path, command):
    outage = Outage(tmp_path, f"test.shut.cmd={command}")
    assert outage.of_the_daemon() == [
        "Cant read timestamp conf",
        "Start",
        "Full server",
        *EMPTY,
        f"Execute: {command}",
        "Interrupted with signal: 15",
    ]
    outage.assert_order(
        "Battery empty",
        f"Execute: {command}",
        # Every ordinary service first, then the daemon, then the file systems.
        f"Stopped {COMMAND_UNIT}.",
        "Stopped target basic.target - Basic System.",
        f"Stopping {SERVICE}...",
        f"Stopped {SERVICE}.",
        "Stopping settling.service - settling...",
        "Stopped target local-fs.target - Local File Systems.",
        "Shutting down.",
    )
    assert round(outage.when(f"Execute: {command}") - outage.when("Battery empty"), 2) == 120
    # Nothing has waited for the daemon.
    assert round(outage.when("Shutting down.") - outage.when(f"Stopping {SERVICE}..."), 2) == 5
    assert_cut_when_unmounted(outage)


def assert_cut_when_unmounted(outage):
    assert outage.end == LOSS_OF_POWER
    assert outage.is_root_read_only
    assert outage.after_unmounting() == [CUT]
    assert outage.levels() == {"PWR-IN": 1, "BAT-T2": 0, "BAT-SW": 0}


@pytest.mark.parametrize("polkit", ["without polkit", "with polkit"])
def test_a_lock_cannot_refuse_it(tmp_path, polkit):
    install = "apt-get install --yes --no-install-recommends polkitd"
    prepare = install if polkit == "with polkit" else "! test -e /usr/bin/pkaction"
    outage = Outage(tmp_path, "test.shut.cmd=poweroff", matters=["inhibited"], prepare=prepare)
    assert outage.of_the_daemon()[-1] == "Interrupted with signal: 15"
    assert_cut_when_unmounted(outage)


def test_services_that_systemd_kills_are_waited_for(tmp_path):
    """One that ignores SIGTERM, of the system's and of a user's, each as Debian bounds it."""
    matters = ["hanging-service", "hanging-user"]
    outage = Outage(tmp_path, "test.shut.cmd=poweroff", matters=matters)
    assert outage.of_the_daemon()[-2:] == ["Execute: poweroff", "Interrupted with signal: 15"]
    outage.assert_order(
        "Execute: poweroff",
        "hanging.service: State 'stop-sigterm' timed out. Killing.",
        "user@0.service: State 'stop-sigterm' timed out. Killing.",
        "Interrupted with signal: 15",
    )
    assert_cut_when_unmounted(outage)


def test_a_service_that_never_ends_is_left_behind(tmp_path):
    settings = "test.shut.cmd=poweroff", "test.shut.cutoff=40"
    outage = Outage(tmp_path, *settings, matters=["hanging"])
    forced = "poweroff: services do not end; going on without them"
    assert outage.of_the_daemon()[3:] == [
        *EMPTY,
        "Execute: poweroff",
        forced,
        "Interrupted with signal: 15",
    ]
    assert round(outage.when(forced) - outage.when("Execute: poweroff"), 2) == 30
    assert_cut_when_unmounted(outage)


def test_a_way_down_that_systemd_refuses_is_forced(tmp_path):
    settings = "test.shut.cmd=poweroff", "test.shut.cutoff=40"
    outage = Outage(tmp_path, *settings, prepare=MASKED)
    assert outage.of_the_daemon()[5:] == [
        "Execute: poweroff",
        "poweroff: systemd has refused; the system's own poweroff follows",
        "poweroff: failed with status 1",
        "poweroff: services do not end; going on without them",
        "Interrupted with signal: 15",
    ]
    assert outage.said("Failed to start poweroff.target: Unit poweroff.target is masked.")
    assert_cut_when_unmounted(outage)


def test_a_system_that_hangs_all_the_same_loses_its_battery(tmp_path):
    """The last resort, here with the system's own command."""
    settings = "test.shut.cmd=poweroff", "test.shut.cutoff=40"
    outage = Outage(tmp_path, *settings, matters=["hanging"], prepare=SYSTEMS_OWN)
    assert outage.end == LOSS_OF_POWER
    assert outage.of_the_daemon()[3:] == [
        *EMPTY,
        "Execute: poweroff",
        "Still alive, force shutdown",
    ]
    cut = outage.when("Still alive, force shutdown")
    # After the end of the command, which on Debian 13 takes a third of a second at times.
    assert 40 <= round(cut - outage.when("Execute: poweroff"), 2) < 41
    assert outage.said(f"Stopped {COMMAND_UNIT}.")
    assert not outage.said(f"Stopping {SERVICE}...")
    assert not outage.is_root_read_only


def test_a_battery_switch_that_drops_when_released_cuts_the_way_down_short(tmp_path):
    """What the hardware must not do."""
    outage = Outage(tmp_path, "test.shut.cmd=poweroff", matters=["unheld"])
    assert outage.end == LOSS_OF_POWER
    assert outage.of_the_daemon()[-1] == "Interrupted with signal: 15"
    assert outage.said("Stopping settling.service - settling...")
    assert not outage.said("Stopped settling.service - settling.")
