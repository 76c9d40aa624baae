"""docs/monitoring.md, followed on the board: the tools under systemd, each in its own service."""

import os
import re
import shutil
from pathlib import Path

import pytest

from owner import Owner
from pages import PROJECT, blocks
from rig import shown, systemctl

from guest.clock import wait_until
from guest.process import run

PAGE = "monitoring.md"
(INSTALLING,) = blocks(PAGE, "Installing it")
PROMETHEUS, *_ = blocks(PAGE, "Prometheus")
NUT, *_ = blocks(PAGE, "Network UPS Tools")
(FROM_SCRIPTS,) = blocks(PAGE, "From exporter and bridge")
UNIT = "kelvo-pwr-monitor"
CONFIGURATION = "/etc/kelvo/monitor.conf"
HANDED_ON = Path("/run/kelvo-pwr-monitor")
METRICS = Path("/var/lib/prometheus/node-exporter/kelvo_pwr.prom")
UPS_CONF = Path("/etc/nut/ups.conf")


@pytest.fixture
def owner(tmp_path, service):
    """With the monitor installed and enabled."""
    service.start()
    owner = Owner(tmp_path)
    (deb,) = Path(f"/host{os.environ['PACKAGE_FOLDER']}").glob(f"{UNIT}_*.deb")
    shutil.copy(deb, tmp_path)
    owner.give("editor", f'test "$1" = {CONFIGURATION}')
    for command in INSTALLING:
        owner.run(command, tmp_path)
    yield owner
    systemctl("disable", "--now", UNIT)
    assert not HANDED_ON.exists()


def is_in(file, text):
    return file.exists() and text in file.read_text()


def calls():
    """What 10-log has left in the journal."""
    journal = run(["journalctl", "--output=cat", f"--unit={UNIT}"]).stdout
    return re.findall(r"^(\S+), event (\d+) at", journal, re.MULTILINE)


def test_the_monitor(service, owner):
    metrics = HANDED_ON / "kelvo_pwr.prom"
    wait_until(lambda: is_in(HANDED_ON / "ups", 'ups.status: "OL"\n'), within=20)
    assert "kelvo_pwr_power_missing 0\n" in metrics.read_text()
    assert Path(f"/proc/{shown(UNIT, 'MainPID')}").stat().st_uid != 0
    service.board.ac(False)
    wait_until(lambda: is_in(metrics, "kelvo_pwr_power_missing 1\n"), within=10)
    assert systemctl("stop", UNIT).status == 0
    assert not HANDED_ON.exists()
    # What it knows outlives it.
    service.board.ac(True)
    assert systemctl("start", UNIT).status == 0
    wait_until(lambda: len(calls()) >= 2, within=20)
    assert calls() == [("power-lost", "1"), ("power-back", "2")]


def test_prometheus(service, owner):
    *setup, scrape = PROMETHEUS
    for command in setup:
        owner.run(command, PROJECT)

    def scraped_when(sample, within):
        wait_until(lambda: is_in(METRICS, sample), within)
        return owner.run(scrape, PROJECT).stdout

    metrics = scraped_when("kelvo_pwr_up 1\n", within=5)
    assert "\nkelvo_pwr_power_missing 0\n" in metrics
    service.board.ac(False)
    metrics = scraped_when("kelvo_pwr_power_missing 1\n", within=10)
    assert "\nkelvo_pwr_power_missing 1\n" in metrics


def wait_for_upsc(status, within):
    wait_until(lambda: f"ups.status: {status}\n" in run(NUT[-1].split()).stdout, within, step=2)


def test_network_ups_tools(service, owner):
    *setup, look = NUT
    for command in setup:
        owner.run(command, PROJECT)
    wait_for_upsc("OL", within=60)
    said = owner.run(look, PROJECT).stdout
    assert "ups.test.result: Battery is good, or not tested yet\n" in said
    service.board.ac(False)
    wait_for_upsc("OB", within=10)
    service.board.battery(False)
    wait_for_upsc("OB LB", within=10)
    # As at the next boot: nothing that belongs to other machines.
    systemctl("start", "nut.target")
    assert systemctl("is-active", "nut-monitor").stdout == "inactive\n"


def test_the_scripts_of_before_make_room(owner):
    """Set up as they were, with stand-ins for what they did; the tools are installed above."""
    scripts = [Path("/usr/local/sbin", name) for name in ("kelvo-pwr-exporter", "kelvo-pwr-nut")]
    units = [Path("/etc/systemd/system", f"{script.name}.service") for script in scripts]
    timer = units[0].with_suffix(".timer")
    once, always = ("true", "Type=oneshot"), ("sleep 1h", "Type=exec\nRestart=always")
    for script, unit, (command, service) in zip(scripts, units, (once, always)):
        script.write_text(f"#!/bin/sh\nexec {command}\n")
        script.chmod(0o755)
        wanted = "[Install]\nWantedBy=multi-user.target\n"
        unit.write_text(f"[Service]\n{service}\nExecStart={script}\n{wanted}")
    timer.write_text("[Timer]\nOnActiveSec=0\n[Install]\nWantedBy=timers.target\n")
    METRICS.parent.mkdir(parents=True, exist_ok=True)
    METRICS.unlink(missing_ok=True)
    METRICS.symlink_to("/run/kelvo-pwr-exporter/kelvo_pwr.prom")
    before = UPS_CONF.read_text().replace(f"{HANDED_ON}/ups", "/run/kelvo-pwr-nut/status")
    UPS_CONF.write_text(before)
    systemctl("daemon-reload")
    assert systemctl("enable", "--now", timer.name, units[1].name).status == 0
    systemctl("restart", "nut-driver-enumerator")
    for command in FROM_SCRIPTS:
        owner.run(command, PROJECT)
    assert [path for path in (*scripts, *units, timer) if path.exists()] == []
    assert [shown(path.name, "ActiveState") for path in (*units, timer)] == ["inactive"] * 3
    wait_until(lambda: is_in(METRICS, "kelvo_pwr_up 1\n"), within=10)
    wait_for_upsc("OL", within=60)
