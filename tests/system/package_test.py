"""The package on a running system: installed, upgraded in the middle of things, purged."""

import os
import subprocess
from pathlib import Path

import pytest

from rig import (
    CONFIGURATION,
    LOCK,
    RESULT_FILE,
    SEGMENT,
    STATE,
    UNIT,
    UNITS,
    Service,
    shown,
    systemctl,
)

from guest.process import run

PLACES = "/etc", "/home", "/opt", "/root", "/run", "/srv", "/usr", "/var", "/dev/shm"
# What others keep there, systemd, dpkg and this test above all.
OF_OTHERS = {
    "/run/agetty.reload",
    "/run/board",
    "/run/credentials",
    "/run/log",
    "/run/systemd",
    "/run/udev",
    "/var/cache/ldconfig",
    "/var/lib/dpkg",
    "/var/lib/systemd/timers",
    "/var/log",
}


@pytest.fixture(scope="module")
def deb():
    (deb,) = Path(f"/host{os.environ['PACKAGE_FOLDER']}").glob("kelvo-pwr_*.deb")
    return deb


@pytest.fixture(scope="module")
def newer(deb, tmp_path_factory):
    """A function that makes the same package with a later version."""
    folder = tmp_path_factory.mktemp("unpacked")
    subprocess.run(["dpkg-deb", "-R", deb, folder], check=True)
    control = folder / "DEBIAN/control"
    original = control.read_text()

    def make(version):
        control.write_text(original.replace("\nVersion: ", f"\nVersion: {version}+"))
        package = folder.with_suffix(".deb")
        subprocess.run(["dpkg-deb", "-b", folder, package], check=True, capture_output=True)
        return package

    return make


def dpkg(*words):
    result = run(["dpkg", *map(str, words)])
    assert result.status == 0, result
    return result.stdout


def files():
    found = set()
    for place in PLACES:
        for folder, folders, names in os.walk(place):
            folders[:] = [name for name in folders if f"{folder}/{name}" not in OF_OTHERS]
            found |= {f"{folder}/{name}" for name in (*folders, *names)}
    return found - OF_OTHERS


@pytest.fixture(scope="module", autouse=True)
def before():
    """All files before the package was there."""
    assert run(["systemctl", "is-system-running", "--wait"]).stdout == "running\n"
    return files()


def pid():
    return shown(UNIT, "MainPID")


def test_it_is_installed_and_waits_for_its_settings(before, deb):
    dpkg("--install", deb)
    enabled = systemctl("is-enabled", *UNITS).stdout.split()
    assert enabled == ["enabled", "static", "disabled", "static", "enabled"]
    assert shown(UNIT, "ActiveState") == "inactive"
    assert shown("kelvo-pwr-watch.timer", "ActiveState") == "active"
    assert (LOCK.stat().st_mode & 0o777, LOCK.read_bytes()) == (0o600, b"")
    assert f"\nsys.save.path={RESULT_FILE}\n" in CONFIGURATION.read_text()
    # Without a boot in between.
    with Service() as service:
        service.start()


def test_an_upgrade_restarts_it(service, newer):
    service.start()
    before = pid()
    assert "not restarted" not in dpkg("--install", newer(2))
    service.journal.wait_for_line("Full server", within=1)
    assert pid() != before


def test_an_upgrade_does_not_start_it(service, newer):
    dpkg("--install", newer(3))
    assert shown(UNIT, "ActiveState") == "inactive"


def test_an_upgrade_leaves_a_battery_test_alone(service, newer):
    service.configure("test.duration=60")
    service.start()
    before = pid()
    service.client("--run-test-now")
    service.journal.wait_for_line("Got run test now", within=2)
    said = dpkg("--install", newer(4))
    assert "kelvo-pwr: the daemon was not restarted, for a battery test is running." in said
    service.journal.wait_for_line("Test result: Battery is good", within=61)
    assert pid() == before
    systemctl("restart", UNIT)
    service.journal.wait_for_line("Full server", within=1)
    assert pid() != before


def test_an_upgrade_leaves_the_way_down_alone(service, newer):
    service.start()
    before = pid()
    service.board.ac(False)
    service.board.battery(False)
    service.journal.wait_for_line("Battery empty", within=2)
    said = dpkg("--install", newer(5))
    assert "not restarted, for it is shutting the system down." in said
    service.journal.wait_for_line("Not ready for shutdown after 15 seconds", within=16)
    assert pid() == before


def test_an_upgrade_takes_no_full_server_down_to_a_minimal_one(service, newer):
    service.start()
    before = pid()
    service.configure()
    CONFIGURATION.write_text(CONFIGURATION.read_text().replace("battery=true", "battery=false"))
    said = dpkg("--install", newer(6))
    assert (
        "kelvo-pwr: the daemon was not restarted, for it guards the board, and with "
        "test.battery=false would only watch."
    ) in said
    assert pid() == before
    assert service.status()["testing"] == 0


def test_one_that_only_watches_after_an_upgrade_is_told(service, newer):
    service.start()
    before = pid()
    service.configure("gpio.at1=NO-SUCH-LINE", "test.batery=true")
    said = dpkg("--install", newer(7))
    assert pid() != before
    assert [line for line in said.splitlines() if line.startswith("kelvo-pwr: ")] == [
        f"kelvo-pwr: Unknown option in {CONFIGURATION}: test.batery",
        "kelvo-pwr: The daemon only watches, despite test.battery=true; "
        "journalctl --unit=kelvo-pwr tells why",
    ]


def test_a_purge_leaves_nothing(service, before):
    service.configure("test.duration=2")
    systemctl("enable", "--now", "kelvo-pwr-test.timer")
    service.start()
    service.client("--run-test-now")
    service.journal.wait_for_line("Test result: Battery is good", within=4)
    assert all(path.exists() for path in (LOCK, SEGMENT, STATE, RESULT_FILE))
    dpkg("--purge", "kelvo-pwr")
    service.journal.wait_for_line("Interrupted with signal: 15", within=1)
    assert files() - before == set()
    assert [shown(unit, "LoadState") for unit in UNITS] == ["not-found"] * 5
    assert [line.holder() for line in service.board.chip.lines] == [None] * 4
