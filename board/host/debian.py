"""The root file system of a Debian for the board."""

from pathlib import Path

from host.debootstrap import debian_root

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

def debian() -> Path:
    """The folder with the root; made first unless it is kept."""
    return debian_root("system-root", "bookworm", _PACKAGES)
