"""The package of what publishes by MQTT, beside that of the daemon."""

import re

import pytest

from packages import calls, dpkg, install, installed_files, with_later_version

NAME = "kelvo-pwr-mqtt"
CONFIGURATION = "etc/kelvo/mqtt.conf"
UNITS = {f"{NAME}.service", "kelvo-pwr-button.socket"}


@pytest.fixture
def guarded(system, deb):
    """A system in which the daemon's package is installed."""
    install(system, deb)
    (system.path / "run/calls").unlink()
    return system


def test_nothing_is_enabled_or_started(guarded, mqtt_deb):
    install(guarded, mqtt_deb)
    assert calls(guarded) == []
    enabled = {path.name for path in guarded.path.glob("etc/systemd/system/*.wants/*")}
    assert not enabled & UNITS


def test_what_is_installed(guarded, mqtt_deb):
    before = installed_files(guarded)
    install(guarded, mqtt_deb)
    new = {
        path
        for path in installed_files(guarded) - before
        if not path.startswith(("usr/share/", "var/"))
    }
    units = {*UNITS, "kelvo-pwr-button@.service"}
    expected = {CONFIGURATION, f"usr/sbin/{NAME}"}
    assert new == expected | {f"usr/lib/systemd/system/{unit}" for unit in units}
    listed = guarded.run("dpkg-query", "--show", "--showformat=${Conffiles}", NAME).stdout
    assert re.findall(r"^ /(\S+)", listed, re.MULTILINE) == [CONFIGURATION]


def test_as_it_is_installed_it_wants_a_broker(guarded, mqtt_deb):
    install(guarded, mqtt_deb)
    done = guarded.run(NAME, "-c", f"/{CONFIGURATION}")
    assert (done.stderr, done.returncode) == (f"{NAME}: no broker is given\n", 2)


def words_of(lines):
    return {word for line in lines for word in line.split()}


def test_an_upgrade_restarts_what_runs(guarded, mqtt_deb, tmp_path):
    install(guarded, mqtt_deb)
    (guarded.path / "run/active").touch()
    install(guarded, with_later_version(mqtt_deb, tmp_path))
    assert words_of(calls(guarded)) == {"restart", *UNITS}


def test_removing_stops_it_and_keeps_the_state_and_purging_leaves_nothing(guarded, mqtt_deb):
    before = installed_files(guarded)
    install(guarded, mqtt_deb)
    # As systemd makes them for a user of its own.
    private = guarded.path / "var/lib/private" / NAME
    private.mkdir(parents=True)
    (private / "state").touch()
    (guarded.path / "var/lib" / NAME).symlink_to(f"private/{NAME}")
    dpkg(guarded, "--remove", NAME)
    assert words_of(calls(guarded)) == {"stop", *UNITS}
    assert (private / "state").exists()
    dpkg(guarded, "--purge", NAME)
    assert installed_files(guarded) - before == {"var/lib/private"}
