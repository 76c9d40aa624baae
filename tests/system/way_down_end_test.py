"""What becomes of the daemon's way down when all is unmounted. Runs on the host.

Each test boots a board of its own.
"""

import pytest

from way_down import CUT, LOSS_OF_POWER, POWEROFF, REBOOT, START_AGAIN, Outage

SETTING = "test.shut.cmd=poweroff"
FOLDER = "/usr/lib/systemd/system-shutdown"
HELPER = f"{FOLDER}/kelvo-pwr-end"
# Something else that works on disks at the end, while AC power comes back.
LATE = f"""
printf '%s\\n' '#!/bin/sh' 'sleep 2' \\
  'echo pull-down | tee /sys/devices/platform/gpio-sim.*/gpiochip*/sim_gpio0/pull' >{FOLDER}/late
chmod +x {FOLDER}/late
"""

# The look at the guard would find the boot degraded.
UNSEEN = "ln -s /dev/null /etc/systemd/system/kelvo-pwr-watch.service"

CONNECTED = {"BAT-T2": 0, "BAT-SW": 1}


# In the grace time, right before and after the command, in the midst of unmounting.
@pytest.mark.parametrize("seconds", [10, 119.5, 120.5, 124])
def test_power_that_is_back_on_the_way_starts_the_board_again(tmp_path, seconds):
    outage = Outage(tmp_path, SETTING, matters=[f"back={seconds}"])
    assert outage.end == REBOOT
    assert outage.after_unmounting() == [START_AGAIN]
    assert outage.is_root_read_only
    assert outage.levels() == {"PWR-IN": 0, **CONNECTED}


def test_power_that_is_back_after_unmounting_starts_the_board_again(tmp_path):
    outage = Outage(tmp_path, SETTING, prepare=LATE)
    assert outage.end == REBOOT
    assert outage.after_unmounting() == [START_AGAIN]
    assert outage.levels() == {"PWR-IN": 0, **CONNECTED}


def test_power_that_is_back_after_the_cut_starts_the_board_again(tmp_path):
    outage = Outage(tmp_path, SETTING, matters=["back-after-cut"])
    assert outage.end == REBOOT
    assert outage.after_unmounting() == [CUT, START_AGAIN]


def test_the_battery_is_cut_by_the_line_of_the_configuration(tmp_path):
    # And of the words that the daemon was started with, whatever these are.
    verbose = "sed -i '/^ExecStart=/s/$/ -v/' /usr/lib/systemd/system/kelvo-pwr.service"
    # The line is there only some time after the boot.
    settings, prepare = (SETTING, "gpio.bat-sw=OTHER-SW"), f"{verbose} && {UNSEEN}"
    outage = Outage(tmp_path, *settings, matters=["other-switch"], prepare=prepare)
    assert outage.end == LOSS_OF_POWER
    assert outage.after_unmounting() == [CUT]


def test_a_configuration_that_is_spoilt_meanwhile_changes_nothing(tmp_path):
    outage = Outage(tmp_path, SETTING, matters=["spoilt"])
    assert outage.end == LOSS_OF_POWER
    assert outage.after_unmounting() == [CUT]


@pytest.mark.parametrize("matters", [(), ("back=124",)])
def test_without_the_helper_the_board_is_off(tmp_path, matters):
    outage = Outage(tmp_path, SETTING, matters=matters, prepare=f"rm {HELPER}")
    assert outage.end == POWEROFF
    assert outage.after_unmounting() == []
    assert outage.is_root_read_only
    assert outage.levels() == {"PWR-IN": 0 if matters else 1, **CONNECTED}


def test_a_helper_that_fails_says_why_and_the_way_down_goes_on(tmp_path):
    outage = Outage(tmp_path, SETTING, matters=["busy"])
    assert outage.end == POWEROFF
    assert outage.after_unmounting() == [CUT, "line 'BAT-SW': Device or resource busy"]
    assert outage.levels() == {"PWR-IN": 1, **CONNECTED}


@pytest.mark.parametrize(
    "line, matters", [("cut-battery=no", ()), ("start-again=no", ("back=124",))]
)
def test_one_line_turns_one_half_off(tmp_path, line, matters):
    # Beside one without effect, which is told.
    prepare = f"{UNSEEN} && printf '%s\\n' {line} {line}ne >/etc/kelvo/way-down.conf"
    outage = Outage(tmp_path, SETTING, matters=matters, prepare=prepare)
    (told,) = (text for text in outage.of_the_daemon() if "has no effect" in text)
    assert told.startswith(f'/etc/kelvo/way-down.conf: "{line}ne" has no effect; ')
    assert outage.end == POWEROFF
    assert outage.after_unmounting() == []
    assert outage.levels()["BAT-SW"] == 1


def test_a_person_s_own_power_off_is_left_alone(tmp_path):
    """Even where an earlier way down of the daemon's came to nothing."""
    outage = Outage(tmp_path, SETTING, matters=["person"])
    assert outage.end == POWEROFF
    assert outage.after_unmounting() == []
    assert outage.levels() == {"PWR-IN": 0, **CONNECTED}
