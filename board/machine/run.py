"""`board machine`: one command on a whole machine, its output and status passed on."""

import json
import os
import shutil
import subprocess
from argparse import Namespace
from pathlib import Path
from typing import Optional, Sequence

from host.cache import kept
from host.problems import BoardFailure, Unavailable
from machine.device_tree import device_tree
from machine.disk import Disk
from machine.emulator import Product, command_of
from machine.files import add_own, take_out
from machine.life import Life
from machine.root import PROCESSORS, key_of, machine_root

_TOOLS = ("debugfs", "dtc", "fdtoverlay", "qemu-img")
# On the host's clock, for what is installed and booted once.
_LONGEST_PREPARATION_SECONDS = 1800


def check_tools(architecture: str) -> None:
    """Raises Unavailable with what is missing."""
    for tool in (PROCESSORS[architecture].emulator, *_TOOLS):
        if shutil.which(tool) is None:
            raise Unavailable(f"{tool} is not installed")


def machine(scratch: Path, arguments: Namespace) -> int:
    """With the arguments of the command line."""
    product, disk = product_of(arguments.arch, arguments.release, scratch)
    if arguments.package:
        disk = installed(product, disk, arguments.package)
    # With a kernel of one's own Debian's initial RAM disk is of no use.
    initial = arguments.initrd or (None if arguments.kernel else product.initial)
    own = Product(
        product.architecture,
        arguments.kernel or product.kernel,
        initial,
        arguments.dtb or product.device_tree,
    )
    return run(
        scratch,
        own,
        arguments.disk or disk,
        arguments.command,
        arguments.timeout,
        more=arguments.put,
        coupled=arguments.coupled,
        realtime=arguments.realtime,
        keep=arguments.output,
    )


def product_of(architecture: str, release: str, folder: Path) -> tuple[Product, Path]:
    """What Debian's own machine boots, and its disk. The folder is for its device tree."""
    check_tools(architecture)
    root = machine_root(architecture, release)
    tree = device_tree(command_of(architecture), folder)
    return Product(architecture, root.kernel, root.initial, tree), root.disk


def installed(product: Product, disk: Path, package: Path) -> Path:
    """A disk like this one, after the package was installed and the machine went down; kept."""

    def make(work: Path) -> Path:
        copy = copy_disk(disk, work)
        add_own(copy.image, [package])
        command = f"dpkg --install {package.name} && systemctl poweroff && sleep 1000"
        life = Life(product, work, copy, ["sh", "-c", command])
        if life.live(_LONGEST_PREPARATION_SECONDS) is not None:
            raise BoardFailure(f"{package} cannot be installed")
        return copy.image

    return kept(f"installed-machine-{key_of(disk, package)}", make)


def copy_disk(image: Path, folder: Path) -> Disk:
    """For a life of its own; holes in it stay holes."""
    copy = folder / "disk"
    subprocess.run(["cp", "--sparse=always", "--reflink=auto", image, copy], check=True)
    return Disk(copy)


def run(
    scratch: Path,
    product: Product,
    disk: Path,
    command: Sequence[str],
    longest_seconds: float,
    more: Sequence[Path] = (),
    coupled: bool = False,
    realtime: bool = False,
    keep: Optional[Path] = None,
) -> int:
    """Returns the command's status; `keep` gets the console, the journal and what happened."""
    copy = copy_disk(disk, scratch)
    add_own(copy.image, more)
    life = Life(
        product, scratch, copy, command, coupled=coupled, realtime=realtime, output=_pass_on
    )
    try:
        status = life.live(longest_seconds)
    finally:
        if keep is not None:
            keep_all(life, scratch, copy, keep)
    if status is None:
        raise BoardFailure("the machine is off, and no power is to come")
    return status


def keep_all(life: Life, scratch: Path, disk: Disk, folder: Path) -> None:
    folder.mkdir(parents=True, exist_ok=True)
    shutil.copy(scratch / "console", folder)
    happenings = [happening._asdict() for happening in life.happenings]
    (folder / "happenings.json").write_text(json.dumps(happenings, indent=1) + "\n")
    (folder / "journal.json").write_text(journal(disk, scratch))
    exactness = {"lateness": life.lateness, "longest_words": life.longest_words}
    (folder / "exactness.json").write_text(json.dumps(exactness) + "\n")


def journal(disk: Disk, scratch: Path) -> str:
    """Of all boots, one entry a line, each in JSON."""
    shutil.rmtree(scratch / "journal", ignore_errors=True)
    take_out(disk.image, "/var/log/journal", scratch)
    read = ["journalctl", "--output=json", f"--directory={scratch / 'journal'}"]
    return subprocess.run(read, stdout=subprocess.PIPE, text=True).stdout


def _pass_on(number: int, data: bytes) -> None:
    while data:
        data = data[os.write(number, data) :]

