"""The role for a fleet, played on the board by the host's Ansible."""

import os
import sys
from pathlib import Path

sys.path.append(str(Path(__file__).parents[1] / "package"))

from fleet import ROLE, command, counts, inventory  # noqa: E402
from rig import shown  # noqa: E402

from guest.clock import wait_until  # noqa: E402
from guest.process import run  # noqa: E402

UNITS = "kelvo-pwr", "kelvo-pwr-monitor"
METRICS = Path("/run/kelvo-pwr-monitor/kelvo_pwr.prom")


def play(fleet):
    """How many tasks changed something, and how many failed."""
    done = run(command("/host/usr/lib/python3/dist-packages", fleet, ROLE))
    print(done.stdout, done.stderr)
    return counts(done.stdout)


def states():
    return [
        (shown(unit, "ActiveState"), shown(unit, "UnitFileState"), shown(unit, "MainPID"))
        for unit in UNITS
    ]


def test_the_second_time_nothing_changes(tmp_path):
    folder = Path(f"/host{os.environ['PACKAGE_FOLDER']}")
    packages = [file for unit in UNITS for file in folder.glob(f"{unit}_*.deb")]
    fleet = tmp_path / "fleet.yml"
    fleet.write_text(inventory(*packages))
    changed, failed = play(fleet)
    assert (changed > 0, failed) == (True, 0)
    first = states()
    assert [state[:2] for state in first] == [("active", "enabled")] * 2
    # They do their work: a full server, and what is handed on of it.
    wait_until(lambda: METRICS.exists(), within=20)
    assert "\nkelvo_pwr_battery_empty 0\n" in METRICS.read_text()
    assert play(fleet) == (0, 0)
    assert states() == first
