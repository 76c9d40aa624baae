"""The package of the monitor, beside that of the daemon."""

import os
import re

import pytest

from packages import calls, dpkg, install, installed_files, with_later_version

NAME = "kelvo-pwr-monitor"
CONFIGURATION = "etc/kelvo/monitor.conf"
UNIT = f"{NAME}.service"
EXAMPLES = f"usr/share/doc/{NAME}/examples"


@pytest.fixture
def guarded(system, deb):
    """A system in which the daemon's package is installed."""
    install(system, deb)
    (system.path / "run/calls").unlink()
    return system


def test_it_goes_with_the_daemon_s_package_of_the_same_version(root, monitor_deb):
    (root.path / "package.deb").write_bytes(monitor_deb.read_bytes())
    refused = root.run("dpkg", "--install", "/package.deb")
    assert refused.returncode == 1
    version = monitor_deb.name.split("_")[1]
    assert f"{NAME} depends on kelvo-pwr (= {version})" in refused.stderr


def test_nothing_is_enabled_or_started(guarded, monitor_deb):
    install(guarded, monitor_deb)
    assert calls(guarded) == []
    assert not list(guarded.path.glob(f"etc/systemd/system/*/{UNIT}"))


def test_what_is_installed(guarded, monitor_deb):
    before = installed_files(guarded)
    install(guarded, monitor_deb)
    new = {
        path
        for path in installed_files(guarded) - before
        if not path.startswith(("usr/share/", "var/"))
    }
    assert new == {
        "etc/kelvo/events.d",
        CONFIGURATION,
        f"usr/lib/systemd/system/{UNIT}",
        f"usr/sbin/{NAME}",
    }
    listed = guarded.run("dpkg-query", "--show", "--showformat=${Conffiles}", NAME).stdout
    assert re.findall(r"^ /(\S+)", listed, re.MULTILINE) == [CONFIGURATION]


def test_it_runs_with_its_configuration(guarded, monitor_deb):
    install(guarded, monitor_deb)
    (guarded.path / "run" / NAME).mkdir()
    looked = guarded.run(NAME, "--once", "-c", f"/{CONFIGURATION}")
    # There is no daemon.
    assert looked.stderr.startswith("/dev/shm/kelvo-pwr-shm: No such file or directory\n")
    assert looked.returncode == 0
    metrics = (guarded.path / "run" / NAME / "kelvo_pwr.prom").read_text()
    assert "\nkelvo_pwr_up 0\n" in metrics


def test_samples_can_be_called(guarded, monitor_deb):
    install(guarded, monitor_deb)
    samples = list((guarded.path / EXAMPLES / "events.d").iterdir())
    assert sorted(path.name for path in samples) == ["10-log", "50-mail"]
    assert [path for path in samples if not os.access(path, os.X_OK)] == []


@pytest.mark.parametrize("active", [False, True])
def test_an_upgrade_restarts_what_runs(guarded, monitor_deb, tmp_path, active):
    install(guarded, monitor_deb)
    if active:
        (guarded.path / "run/active").touch()
    install(guarded, with_later_version(monitor_deb, tmp_path))
    assert calls(guarded) == [f"restart {UNIT}"] * active


def test_an_upgrade_keeps_the_configuration(guarded, monitor_deb, tmp_path):
    install(guarded, monitor_deb)
    (guarded.path / CONFIGURATION).write_text("nut=/run/ups\n")
    install(guarded, with_later_version(monitor_deb, tmp_path))
    assert (guarded.path / CONFIGURATION).read_text() == "nut=/run/ups\n"


def test_removing_keeps_the_state_and_purging_the_owner_s_files(guarded, monitor_deb):
    before = installed_files(guarded)
    install(guarded, monitor_deb)
    # As systemd makes them for a user of its own.
    private = guarded.path / "var/lib/private" / NAME
    private.mkdir(parents=True)
    (private / "state").touch()
    (guarded.path / "var/lib" / NAME).symlink_to(f"private/{NAME}")
    own = guarded.path / "etc/kelvo/events.d/10-own"
    own.touch()
    dpkg(guarded, "--remove", NAME)
    assert calls(guarded) == [f"stop {UNIT}"]
    assert (private / "state").exists()
    dpkg(guarded, "--purge", NAME)
    left = {"etc/kelvo/events.d", "etc/kelvo/events.d/10-own", "var/lib/private"}
    assert installed_files(guarded) - before == left
