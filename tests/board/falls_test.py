"""AC power is back soon after the battery has fallen low, whenever in the second it does."""

from falls_of_battery import delays

from rig import MILLISECOND

FALLS = 1000
# The program looks every 50 milliseconds, and ends the test within the same time.
LONGEST = 100 * MILLISECOND


def test_ac_power_is_back_soon_after_each_fall(rig):
    found = delays(rig, FALLS)
    assert len(found) == FALLS
    assert 0 < min(found) <= max(found) <= LONGEST
