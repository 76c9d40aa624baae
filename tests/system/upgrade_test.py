"""From the package for Debian 12 to that for 13, whatever the daemon is at.

As at the end of an upgrade of the system: all else is Debian 13's, but the libraries of 12 are
still there, and so is the daemon that uses them. The upgrade of the rest is not played.
"""

import os
import re
import shutil
from pathlib import Path

import pytest

from owner import Owner
from pages import blocks
from rig import CONFIGURATION, RESULT_FILE, UNIT, Service, shown, systemctl

from guest.clock import wait_until
from guest.process import run

_, (INSTALL, *_) = blocks("installation.md", "Debian")
ARCHIVES = Path("/var/cache/apt/archives")
OLD_LIBRARIES = ("libboost-program-options1.74.0", "libgpiod2")
OLD, NEW = "1.74.0", "1.83.0"
TIMES = "result.start=1700000000\nresult.end=1700000600\n"


def package(variable):
    (deb,) = Path(f"/host{os.environ[variable]}").glob("kelvo-pwr_*.deb")
    return deb


def dpkg(*words):
    result = run(["dpkg", *map(str, words)])
    assert result.status == 0, result


@pytest.fixture(scope="module")
def upgrade(tmp_path_factory):
    """What the owner of the board does; returns what that prints."""
    folder = tmp_path_factory.mktemp("owner")
    owner = Owner(folder)
    shutil.copy(package("PACKAGE_FOLDER"), folder)
    return lambda: owner.run(INSTALL, folder).stdout


@pytest.fixture
def service():
    """A full server of the package for 12, with times of a test."""
    libraries = [deb for name in OLD_LIBRARIES for deb in ARCHIVES.glob(f"{name}_*.deb")]
    dpkg("--install", *libraries, package("PACKAGE_FOLDER_BEFORE"))
    with Service() as service:
        RESULT_FILE.write_text(TIMES)
        service.configure("test.duration=60")
        service.start()
        assert boost() == OLD
        yield service


def pid():
    return shown(UNIT, "MainPID")


def boost():
    """The version of Boost that the running daemon has."""
    maps = Path(f"/proc/{pid()}/maps").read_text()
    (version,) = set(re.findall(r"/libboost_program_options\.so\.(\S+)$", maps, re.MULTILINE))
    return version


def restart(service):
    systemctl("restart", UNIT)
    service.journal.wait_for_line("Interrupted with signal: 15", within=1)
    assert service.state() == ("active", "success")
    assert boost() == NEW


def test_a_daemon_that_only_guards_is_restarted(service, upgrade):
    before, configuration = pid(), CONFIGURATION.read_text()
    assert "not restarted" not in upgrade()
    assert pid() != before
    assert boost() == NEW
    assert service.status()["testing"] == 0
    assert (CONFIGURATION.read_text(), RESULT_FILE.read_text()) == (configuration, TIMES)
    # Nothing needs what was 12's any more.
    dpkg("--purge", *OLD_LIBRARIES)
    restart(service)


def test_one_that_was_stopped_stays_so(service, upgrade):
    systemctl("stop", UNIT)
    upgrade()
    assert service.state() == ("inactive", "success")
    service.start()
    assert boost() == NEW


def test_a_battery_test_goes_on(service, upgrade):
    before = pid()
    service.client("--run-test-now")
    service.journal.wait_for_line("Got run test now", within=2)
    said = upgrade()
    assert "kelvo-pwr: the daemon was not restarted, for a battery test is running." in said
    # By the client for 13.
    assert service.status()["testing"] == 1
    service.journal.wait_for_line("Test result: Battery is good", within=61)
    assert (pid(), boost()) == (before, OLD)
    restart(service)


def test_an_outage_goes_on(service, upgrade):
    before = pid()
    service.board.ac(False)
    wait_until(lambda: service.status()["missingPower"] == 1, within=2)
    said = upgrade()
    assert "kelvo-pwr: the daemon was not restarted, for the board runs on its battery." in said
    service.board.ac(True)
    wait_until(lambda: service.status()["missingPower"] == 0, within=2)
    assert (pid(), boost()) == (before, OLD)
    restart(service)


def test_a_way_down_goes_on(service, upgrade):
    before = pid()
    service.board.ac(False)
    service.board.battery(False)
    service.journal.wait_for_line("Battery empty", within=2)
    said = upgrade()
    assert "kelvo-pwr: the daemon was not restarted, for it is shutting the system down." in said
    service.journal.wait_for_line("Not ready for shutdown after 15 seconds", within=16)
    assert (pid(), boost()) == (before, OLD)
