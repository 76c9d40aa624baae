"""The supply by itself; run by pytest on the host."""

import pytest

from machine.supply import Supply


@pytest.mark.parametrize(
    "ac, relay, switch, exhausted, powers",
    [
        (True, 0, 1, False, True),
        (True, 0, 0, False, True),
        (True, 0, 0, True, True),
        (True, 1, 1, False, True),
        (True, 1, 0, False, False),
        (True, 1, 1, True, False),
        (False, 0, 1, False, True),
        (False, 0, 0, False, False),
        (False, 0, 1, True, False),
        (False, 1, 0, False, False),
    ],
)
def test_power_comes_through_the_relay_or_the_switch(ac, relay, switch, exhausted, powers):
    supply = Supply(ac=ac, exhausted=exhausted)
    supply.driven({"BAT-T2": relay, "BAT-SW": switch})
    assert supply.powers() == powers


@pytest.mark.parametrize(
    "coupled, ac, relay, level",
    [
        (False, True, 0, 0),
        (False, True, 1, 0),
        (False, False, 0, 1),
        (True, True, 0, 0),
        (True, True, 1, 1),
        (True, False, 0, 1),
    ],
)
def test_the_ac_sensor_sees_the_relay_where_it_sits_behind_it(coupled, ac, relay, level):
    supply = Supply(coupled=coupled, ac=ac, relay=relay)
    assert supply.inputs() == {"PWR-IN": level, "BAT-T1": 1}


def test_the_battery_sensor_follows_the_voltage():
    supply = Supply()
    supply.change(good=False)
    assert supply.inputs()["BAT-T1"] == 0
    supply.change(good=True)
    assert supply.inputs()["BAT-T1"] == 1


def test_without_ac_power_a_battery_that_was_cut_stays_cut():
    supply = Supply(ac=False)
    supply.driven({"BAT-T2": 1, "BAT-SW": 0})
    supply.board_is_off()
    assert (supply.relay, supply.switch, supply.powers()) == (0, 0, False)
    supply.change(ac=True)
    supply.board_is_off()
    assert (supply.switch, supply.powers()) == (1, True)


def test_what_a_supply_does_not_have_cannot_be_changed():
    with pytest.raises(ValueError, match="a supply has no 'relay'"):
        Supply().change(relay=True)
