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
    # What the tests inside are written with.
    "python3-pytest",
)
# What kelvo-pwr depends on.
_LIBRARIES = {
    "bookworm": ("libboost-program-options1.74.0", "libgpiod2"),
    "trixie": ("libboost-program-options1.83.0", "libgpiod3"),
}
RELEASES = tuple(_LIBRARIES)
# What apt can install inside, without a network.
_FOR_LATER = (
    "curl",
    "dbus-user-session",
    "libpam-systemd",
    "nut-server",
    "polkitd",
    "prometheus-node-exporter",
)


def debian(release: str) -> Path:
    """The folder with the root of this release; made first unless it is kept."""
    if release not in RELEASES:
        raise Unavailable(f"there is no board with the Debian {release!r}")
    packages = (*_PACKAGES, *_LIBRARIES[release])
    name, recipe = f"{release}-system-root", " ".join(_FOR_LATER)
    return debian_root(name, release, packages, finish=_fetch, recipe=recipe)


def _fetch(root: Path) -> None:
    """Has the root's own apt keep packages for later."""
    install = ["apt-get", "install", "--yes", "--download-only", "--no-install-recommends"]
    done = run_to_fetch("chroot", root, *install, *_FOR_LATER)
    if done.returncode != 0:
        raise Unavailable(f"packages cannot be fetched:\n{done.stdout}")
