"""AC power gone, battery empty: how a booted Debian ends. Runs on the host.

Each test boots a board of its own, whose journal tells what happened in which order.
"""

import json
import subprocess
from pathlib import Path
from typing import NamedTuple

import pytest

from pages import PROJECT

HERE = Path(__file__).parent.relative_to(PROJECT)
COMMAND_UNIT = "board-command.service - The one command of this board"
SERVICE = "kelvo-pwr.service - AC power and backup battery supervision"

# What the daemon prints before the command.
EMPTY = ["Battery empty", "Not ready for shutdown after 15 seconds"]


class Message(NamedTuple):
    seconds: float  # since the boot
    source: str
    text: str


class Outage:
    """A board whose AC power and battery fail, with these settings; over when it is made."""

    def __init__(self, folder, *settings, matters=()):
        lines = "".join(f"{line}\n" for line in settings)
        prepare = f"{HERE}/prepare && printf '{lines}' >>/etc/kelvo/kelvo-pwr.conf"
        command = ["/usr/bin/python3", f"{HERE}/outage.py", *matters]
        options = ["--timeout", "900", "--output", folder, "--prepare", prepare]
        run = subprocess.run(
            [PROJECT / "board/board", "system", *options, "--", *command],
            cwd=PROJECT,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            text=True,
        )
        if run.returncode == 77:
            pytest.skip(run.stderr)
        self.end = run.stderr
        assert run.returncode == 125, run
        self.journal = [
            Message(int(entry["__MONOTONIC_TIMESTAMP"]) / 1e6, *source_and_text(entry))
            for entry in map(json.loads, (folder / "journal.json").open())
        ]

    def of_the_daemon(self):
        return [message.text for message in self.journal if message.source == "kelvo-pwr"]

    def when(self, text):
        """When this was said; it must have been once."""
        (message,) = self.said(text)
        return message.seconds

    def assert_order(self, *texts):
        """That each of them was said once, in this order."""
        said = [message.text for message in self.journal if message.text in texts]
        assert said == list(texts)

    def said(self, text):
        return [message for message in self.journal if message.text == text]


def source_and_text(entry):
    text = entry["MESSAGE"]
    # Bytes that are no text come as numbers.
    return entry.get("SYSLOG_IDENTIFIER"), text if isinstance(text, str) else bytes(text).decode()


@pytest.mark.parametrize("command", ["poweroff", "reboot"])
def test_the_system_goes_down_and_the_daemon_with_it(tmp_path, command):
    outage = Outage(tmp_path, f"test.shut.cmd={command}")
    assert outage.end == f"board: the command was ended by {command}\n"
    assert outage.of_the_daemon() == [
        "Cant read timestamp conf",
        "Start",
        "Full server",
        *EMPTY,
        f"Execute: {command}",
        "Interrupted with signal: 15",
    ]
    outage.assert_order(
        "Battery empty",
        f"Execute: {command}",
        # Every ordinary service first, then the daemon, then the file systems.
        f"Stopped {COMMAND_UNIT}.",
        "Stopped target basic.target - Basic System.",
        f"Stopping {SERVICE}...",
        f"Stopped {SERVICE}.",
        "Stopping settling.service - settling...",
        "Stopped target local-fs.target - Local File Systems.",
        "Shutting down.",
    )
    assert round(outage.when(f"Execute: {command}") - outage.when("Battery empty"), 2) == 120
    # Nothing has waited for the daemon.
    assert round(outage.when("Shutting down.") - outage.when(f"Execute: {command}"), 2) == 5


def test_a_system_that_hangs_loses_its_battery(tmp_path):
    outage = Outage(tmp_path, "test.shut.cmd=poweroff", matters=["hanging"])
    assert outage.end == "board: the command was ended by a loss of power\n"
    assert outage.of_the_daemon()[3:] == [
        *EMPTY,
        "Execute: poweroff",
        "Still alive, force shutdown",
    ]
    cut = outage.when("Still alive, force shutdown")
    assert round(cut - outage.when("Execute: poweroff"), 2) == 120
    assert outage.said(f"Stopped {COMMAND_UNIT}.")
    assert not outage.said(f"Stopping {SERVICE}...")


def test_a_battery_switch_that_drops_when_released_cuts_the_way_down_short(tmp_path):
    """What the hardware must not do."""
    outage = Outage(tmp_path, "test.shut.cmd=poweroff", matters=["unheld"])
    assert outage.end == "board: the command was ended by a loss of power\n"
    assert outage.of_the_daemon()[-1] == "Interrupted with signal: 15"
    assert outage.said("Stopping settling.service - settling...")
    assert not outage.said("Stopped settling.service - settling.")
