"""Which lines the program takes for its own, and what it makes of their levels."""

import os

import pytest

from rig import AS_NOBODY, NO_RESULT_FILE, SECOND

from guest.clock import sleep_until
from guest.lines import make_chip, remove_chips


def test_names_are_searched_on_every_chip(rig):
    remove_chips()
    make_chip(["unrelated", None, "BAT-SW"])
    second = make_chip([None, "BAT-T2", "BAT-T1"], {"BAT-T1": 1, "BAT-T2": 1})
    third = make_chip(["PWR-IN"])
    rig.full_server()
    assert third.line("PWR-IN").holder() == "kelvo-pwr"
    assert second.line("BAT-T2").level() == 0


def test_of_two_lines_with_one_name_the_first_is_taken(rig):
    other = make_chip(["PWR-IN", "PWR-IN"], {"PWR-IN": 1})
    rig.minimal_server()
    assert rig.board.pwr_in.holder() == "kelvo-pwr"
    assert [line.holder() for line in other.lines] == [None, None]


@pytest.mark.kernel
def test_chips_are_searched_in_the_order_of_their_names_as_text(rig):
    """gpiochip10 comes before gpiochip2."""
    make_chip(["unrelated"])
    twins = [make_chip(["TWIN"]) for _ in range(9)]
    assert (twins[0].device, twins[-1].device) == ("/dev/gpiochip2", "/dev/gpiochip10")
    rig.configure("gpio.pwr-in=TWIN")
    rig.minimal_server()
    assert [twin.line("TWIN").holder() for twin in twins] == [None] * 8 + ["kelvo-pwr"]


def test_a_line_without_a_name_is_not_found_by_the_empty_name(rig):
    make_chip([None])
    rig.configure("gpio.pwr-in=")
    daemon = rig.daemon()
    assert daemon.wait_for_exit(within=1) == 1
    assert daemon.stderr == NO_RESULT_FILE + "Failed to get line ''\n"


@pytest.mark.parametrize("name", ["pwr-in", "PWR-IN1", "PWR", "'PWR-IN'"])
def test_names_are_taken_to_the_letter(rig, name):
    rig.configure(f"gpio.pwr-in={name}")
    daemon = rig.daemon()
    assert daemon.wait_for_exit(within=1) == 1
    assert daemon.stderr == NO_RESULT_FILE + f"Failed to get line '{name}'\n"


def test_names_can_be_chosen(rig):
    chip = make_chip(["mains lost", "cell ok", "cut mains", "cell on"], {"cell ok": 1})
    rig.full_server(
        "gpio.pwr-in=mains lost",
        "gpio.at1=cell ok",
        "gpio.at2=cut mains",
        "gpio.bat-sw=cell on",
    )
    assert [line.holder() for line in chip.lines] == ["kelvo-pwr"] * 4
    assert chip.line("cell on").level() == 1


def test_without_any_chip_the_power_line_is_missing(rig):
    remove_chips()
    daemon = rig.daemon()
    assert daemon.wait_for_exit(within=1) == 1
    assert daemon.stdout == "Start\n"
    assert daemon.stderr == NO_RESULT_FILE + "Failed to get line 'PWR-IN'\n"


@pytest.mark.kernel
def test_a_search_that_fails_is_reported_in_the_library_s_words(rig):
    """With room for one file beside the lock, a second chip cannot be opened."""
    make_chip(["unrelated"])
    daemon = rig.daemon(before=("prlimit", "--nofile=5:5"))
    assert daemon.wait_for_exit(within=1) == 1
    assert daemon.stdout == "Start\n"
    assert daemon.stderr == (
        NO_RESULT_FILE + "error creating GPIO chip iterator: Too many open files\n"
    )


@pytest.mark.kernel
def test_a_chip_that_may_not_be_opened_spoils_the_search(rig):
    """Even if the line is on a chip before it."""
    rig.let_everybody_in()
    os.chmod(rig.board.chip.device, 0o666)
    with make_chip(["unrelated"]) as other:
        daemon = rig.daemon(before=AS_NOBODY)
        assert daemon.wait_for_exit(within=1) == 1
        assert daemon.stderr == NO_RESULT_FILE + (
            "error creating GPIO chip iterator: Permission denied\n"
        )
        os.chmod(other.device, 0o666)
        rig.daemon(before=AS_NOBODY).wait_for_line("Minimal server", within=1)


def test_high_means_power_missing_and_battery_sufficient(rig):
    daemon = rig.full_server("test.shut.timeout=120")
    rig.board.ac(False)
    sleep_until(daemon.started + 2 * SECOND + SECOND // 2)
    status = rig.status()
    assert (rig.board.pwr_in.level(), rig.board.at1.level()) == (1, 1)
    assert (status["missingPower"], status["batteryEmpty"]) == (1, 0)
    rig.board.battery(False)
    daemon.wait_for_line("Battery empty", within=1)
    assert rig.status()["batteryEmpty"] == 1


def test_lines_are_given_back_at_the_end(rig):
    daemon = rig.full_server()
    daemon.send(15)
    daemon.wait_for_exit(within=1)
    assert [line.holder() for line in rig.board.chip.lines] == [None] * 4


def test_a_line_that_vanishes_ends_the_daemon_by_the_unhandled_exception(rig):
    daemon = rig.full_server()
    sleep_until(daemon.started + 3 * SECOND + SECOND // 2)
    rig.board.chip.remove()
    assert daemon.wait_for_exit(within=2) == -6
    assert daemon.stdout == "Start\nFull server\n"
    assert daemon.stderr == NO_RESULT_FILE + (
        "terminate called after throwing an instance of 'std::system_error'\n"
        "  what():  error reading GPIO line values: No such device\n"
    )
    assert rig.status()["count"] == 4
    sleep_until(daemon.started + 10 * SECOND)
    assert rig.status()["count"] == 4
