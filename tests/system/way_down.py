"""One outage on a booted Debian, as it is looked at on the host when the board has ended."""

import json
import os
import re
import subprocess
from pathlib import Path
from typing import NamedTuple

import pytest

from pages import PROJECT

HERE = Path(__file__).parent.relative_to(PROJECT)
UNMOUNTED = "All filesystems, swaps, loop devices, MD devices and DM devices detached."

# How a board ends.
LOSS_OF_POWER, POWEROFF, REBOOT = "a loss of power", "poweroff", "reboot"
# What is told after unmounting.
CUT = "AC power is missing: the battery is cut"
START_AGAIN = "AC power is present: a reboot instead of the power-off"


class Message(NamedTuple):
    seconds: float  # since the boot
    source: str
    text: str


class Outage:
    """A board whose AC power and battery fail, with these settings; over when it is made.

    SYSTEM_ROOT is the folder with its Debian, which install_package has made.
    """

    def __init__(self, folder, *settings, matters=(), prepare=""):
        file = "/etc/kelvo/kelvo-pwr.conf"
        # No key may stand there twice.
        set_all = [f"sed -i '/^{line.split('=')[0]}=/d;$a{line}' {file}" for line in settings]
        prepare = "\n".join([*set_all, prepare])
        command = ["/usr/bin/python3", f"{HERE}/outage.py", *matters]
        options = ["--timeout", "900", "--output", folder, "--prepare", prepare]
        options += ["--root", os.environ["SYSTEM_ROOT"]]
        run = subprocess.run(
            [PROJECT / "board/board", "system", *options, "--", *command],
            cwd=PROJECT,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            text=True,
        )
        if run.returncode == 77:
            pytest.skip(run.stderr)
        ended = re.fullmatch("board: the command was ended by (.*)\n", run.stderr)
        assert run.returncode == 125 and ended, run
        self.end = ended[1]
        self.kernel = (folder / "kernel-messages").read_text(errors="replace").splitlines()
        mounts = (line.split() for line in (folder / "mounts").read_text().splitlines())
        (root,) = (mount for mount in mounts if mount[1] == "/")
        self.is_root_read_only = "ro" in root[3].split(",")
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

    def levels(self):
        """Of the lines as the supply saw them last."""
        *_, last = (line for line in self.kernel if "supply: {" in line)
        return json.loads(last.partition("supply: ")[2])

    def after_unmounting(self):
        """What was told at the end of the way down, when all was unmounted or read-only."""
        texts = [line.partition("] ")[2] for line in self.kernel]
        unmounted = next(place for place, text in enumerate(texts) if text.endswith(UNMOUNTED))
        own = (text for text in texts[unmounted:] if text.startswith("kelvo-pwr: "))
        return [text.removeprefix("kelvo-pwr: ") for text in own]

    def said(self, text):
        return [message for message in self.journal if message.text == text]


def source_and_text(entry):
    text = entry["MESSAGE"]
    # Bytes that are no text come as numbers.
    return entry.get("SYSLOG_IDENTIFIER"), text if isinstance(text, str) else bytes(text).decode()
