"""A Debian system with the compilers, and with what the package takes, for other machines.

By itself it prints the folder of one, which is kept: python3 -m cross_root RELEASE
"""

import re
import shutil
import sys
from pathlib import Path
from typing import NamedTuple

from debian_root import in_root
from host.mmdebstrap import debian_root
from host.problems import status_of
from pages import blocks

PROJECT = Path(__file__).parent.parent.parent
((*PREPARE, BUILD),) = blocks("installation.md", "Cross-building")
APT = 'APT::Get::Assume-Yes "true";\nAPT::Install-Recommends "false";\n'


class Machine(NamedTuple):
    name: str
    compiler: str
    emulator: str
    kind: str  # what readelf says


MACHINES = [
    Machine("arm64", "aarch64-linux-gnu-g++", "qemu-aarch64-static", "AArch64"),
    Machine("armhf", "arm-linux-gnueabihf-g++", "qemu-arm-static", "ARM"),
]


def succeed(path, *argv):
    result = in_root(path, argv)
    assert result.returncode == 0, result.stdout[-3000:] + result.stderr[-3000:]
    return result.stdout


def follow(path, machine, *commands):
    """What the page says for arm64, in the folder of the sources."""
    for command in commands:
        command = command.replace("arm64", machine.name)
        succeed(path, "sh", "-ec", f"cd /build/kelvo-pwr; {command}")


def add_machines(path):
    """Compilers, and what the package is built from, for each of the machines."""
    (path / "etc/apt/apt.conf.d/own").write_text(APT)
    sources = path / "build/kelvo-pwr/debian"
    sources.mkdir(parents=True)
    for name in ("control", "changelog"):
        shutil.copy(PROJECT / "debian" / name, sources / name)
    for machine in MACHINES:
        follow(path, machine, *PREPARE)
    shutil.rmtree(path / "build")
    succeed(path, "apt-get", "clean")


def cross_root(release: str) -> Path:
    control = (PROJECT / "debian" / "control").read_text()
    build_depends = re.search(r"^Build-Depends:\n((?: .*\n)+)", control, re.MULTILINE)[1]
    packages = ["build-essential", "qemu-user-static"]
    recipe = repr((build_depends, MACHINES, PREPARE, APT))
    return debian_root("cross-root", release, packages, finish=add_machines, recipe=recipe)


def _print_folder() -> int:
    print(cross_root(sys.argv[1]))
    return 0


if __name__ == "__main__":
    sys.exit(status_of(_print_folder))
