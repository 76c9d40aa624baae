"""What the program itself says, of its options above all."""

import os
import re
import subprocess
from pathlib import Path
from typing import NamedTuple

_SOURCE = Path(__file__).parent.parent.parent / "src" / "config"
_OPTION = re.compile(r"(?:-(\w) \[ )?--([\w.-]+)(?: \])?(?: arg)?(?: \(=(.*?)\))?(?: {2,}(.*))?")
_TRUTHS = ("test.battery", "test.external-scheduling")


class Switch(NamedTuple):
    short: str
    name: str
    description: str


class Setting(NamedTuple):
    name: str
    default: str  # as one would write it
    description: str


def run(*words) -> subprocess.CompletedProcess:
    """A run of the program that ends by itself."""
    return subprocess.run(
        [os.environ["KELVO_PWR"], *words], capture_output=True, text=True, timeout=60
    )


def switches() -> list[Switch]:
    return [Switch(short, name, text) for short, name, _, text in _options() if "." not in name]


def settings() -> list[Setting]:
    """Those of the command line, in the order of the help."""
    return [
        Setting(name, {"0": "false"}[default] if name in _TRUTHS else default, text)
        for _, name, default, text in _options()
        if "." in name
    ]


def file_settings() -> list[Setting]:
    """Those of files alone, which the help leaves out, as the source declares them."""
    table = (_SOURCE / "power_settings.cpp").read_text()
    fields = (_SOURCE / "power_settings.h").read_text()
    declared = re.findall(r'\("((?:result|sys)\.[\w.]+)", valueOf\((\w+)\), "(.*)"\)', table)
    return [
        Setting(name, re.search(rf'\b{field} = "?(.*?)"?;', fields)[1], text)
        for name, field, text in declared
    ]


def _options() -> list[tuple[str, ...]]:
    """Short name, long name, default and description; a switch has no default."""
    _, *entries = re.split(r"^  (?=-)", run("--help").stdout, flags=re.MULTILINE)
    one_line = (re.sub(r"\n\s+", "  ", entry.strip()) for entry in entries)
    found = (_OPTION.fullmatch(line).groups(default="") for line in one_line)
    return [(*names, re.sub(" +", " ", text)) for *names, text in found]
