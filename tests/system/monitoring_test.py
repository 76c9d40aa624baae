"""docs/monitoring.md, followed on the board: the tools under systemd, each in its own service."""

import os
import re
import shutil
from pathlib import Path

import pytest

from owner import Owner
from pages import PROJECT, blocks
from rig import systemctl

from guest.clock import wait_until
from guest.process import run

PROMETHEUS, *_ = blocks("monitoring.md", "Prometheus")
NUT, *_ = blocks("monitoring.md", "Network UPS Tools")
MONITOR, *_ = blocks("monitoring.md", "The native monitor")
CONFIGURATION = "/etc/kelvo/monitor.conf"
HANDED_ON = Path("/run/kelvo-pwr-monitor")
METRICS = Path("/var/lib/prometheus/node-exporter/kelvo_pwr.prom")


@pytest.fixture
def owner(tmp_path, service):
    service.start()
    return Owner(tmp_path)


def test_prometheus(service, owner):
    *setup, scrape = PROMETHEUS
    for command in setup:
        owner.run(command, PROJECT)

    def scraped_when(sample, within):
        wait_until(lambda: METRICS.exists() and sample in METRICS.read_text(), within)
        return owner.run(scrape, PROJECT).stdout

    metrics = scraped_when("kelvo_pwr_up 1\n", within=5)
    assert "\nkelvo_pwr_power_missing 0\n" in metrics
    service.board.ac(False)
    metrics = scraped_when("kelvo_pwr_power_missing 1\n", within=17)
    assert "\nkelvo_pwr_power_missing 1\n" in metrics


def test_whoever_exchanges_the_collector_s_folder_has_root_write_nothing(owner):
    *setup, _ = PROMETHEUS
    for command in setup:
        owner.run(command, PROJECT)
    exchange = "cd /var/lib/prometheus && mv node-exporter old && ln -s /etc node-exporter"
    as_prometheus = run(["runuser", "-u", "prometheus", "--", "sh", "-c", exchange])
    assert as_prometheus.status == 0, as_prometheus
    assert systemctl("start", "kelvo-pwr-exporter").status == 0
    assert list(Path("/etc").glob("kelvo_pwr*")) == []


def test_the_native_monitor(service, owner, tmp_path):
    (deb,) = Path(f"/host{os.environ['PACKAGE_FOLDER']}").glob("kelvo-pwr-monitor_*.deb")
    shutil.copy(deb, tmp_path)
    owner.give("editor", f'test "$1" = {CONFIGURATION}')
    for command in MONITOR:
        owner.run(command, tmp_path)
    metrics = HANDED_ON / "kelvo_pwr.prom"

    def shown(file, text):
        return file.exists() and text in file.read_text()

    wait_until(lambda: shown(HANDED_ON / "ups", 'ups.status: "OL"\n'), within=20)
    assert "kelvo_pwr_power_missing 0\n" in metrics.read_text()
    service.board.ac(False)
    wait_until(lambda: shown(metrics, "kelvo_pwr_power_missing 1\n"), within=10)
    assert systemctl("stop", "kelvo-pwr-monitor").status == 0
    assert not HANDED_ON.exists()
    # What it knows outlives it, and what it has called is in the journal.
    service.board.ac(True)
    assert systemctl("start", "kelvo-pwr-monitor").status == 0

    def calls():
        journal = run(["journalctl", "--output=cat", "--unit=kelvo-pwr-monitor"]).stdout
        return re.findall(r"^(\S+), event (\d+) at", journal, re.MULTILINE)

    wait_until(lambda: len(calls()) >= 2, within=20)
    assert calls() == [("power-lost", "1"), ("power-back", "2")]


def test_network_ups_tools(service, owner):
    *setup, look = NUT
    for command in setup:
        owner.run(command, PROJECT)

    def wait_for(status, within):
        wait_until(lambda: status in run(look.split()).stdout, within, step=2)

    wait_for("ups.status: OL\n", within=60)
    said = owner.run(look, PROJECT).stdout
    assert "ups.test.result: Battery is good, or not tested yet\n" in said
    service.board.ac(False)
    wait_for("ups.status: OB\n", within=10)
    service.board.battery(False)
    wait_for("ups.status: OB LB\n", within=10)
    # As at the next boot: nothing that belongs to other machines.
    systemctl("start", "nut.target")
    assert systemctl("is-active", "nut-monitor").stdout == "inactive\n"
