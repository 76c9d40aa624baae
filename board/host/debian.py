"""The root file system of a Debian for the board."""

from pathlib import Path

from host.debootstrap import debian_root, run_to_fetch
from host.problems import Unavailable

_PACKAGES = (
    # What a small board has.
    "systemd",
    "systemd-sysv",
    "udev",
    "dbus",
    "gpiod",
    # What kelvo-pwr depends on.
    "libboost-program-options1.74.0",
    "libgpiod2",
    # What the tests inside are written with.
    "python3-pytest",
)
# What apt can install inside, without a network.
_FOR_LATER = ("curl", "nut-server", "prometheus-node-exporter")


def debian() -> Path:
    """The folder with the root; made first unless it is kept."""
    recipe = " ".join(_FOR_LATER)
    return debian_root("system-root", "bookworm", _PACKAGES, finish=_fetch, recipe=recipe)


def _fetch(root: Path) -> None:
    """Has the root's own apt keep packages for later."""
    install = ["apt-get", "install", "--yes", "--download-only", "--no-install-recommends"]
    done = run_to_fetch("chroot", root, *install, *_FOR_LATER)
    if done.returncode != 0:
        raise Unavailable(f"packages cannot be fetched:\n{done.stdout}")
