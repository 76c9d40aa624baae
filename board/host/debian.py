"""The root file system of a Debian for the board.

By itself it prints the folder of one: python3 -m host.debian [RELEASE]
"""

import sys
from pathlib import Path
from tempfile import TemporaryDirectory
from typing import Iterable

from host.mmdebstrap import debian_root, run_to_fetch, this_release
from host.problems import Unavailable, status_of

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
# What kelvo-pwr depends on, in each release; the earlier ones first.
LIBRARIES = {
    "bookworm": ("libboost-program-options1.74.0", "libgpiod2"),
    "trixie": ("libboost-program-options1.83.0", "libgpiod3"),
}
RELEASES = tuple(LIBRARIES)
# What apt can install inside, without a network.
_FOR_LATER = (
    "curl",
    "dbus-user-session",
    "libpam-systemd",
    "mosquitto",
    "mosquitto-clients",
    "nut-server",
    "polkitd",
    "prometheus-node-exporter",
)


def debian(release: str) -> Path:
    """The folder with the root of this release; made first unless it is kept."""
    if release not in RELEASES:
        raise Unavailable(f"there is no board with the Debian {release!r}")
    before = RELEASES[: RELEASES.index(release)]

    def fetch(root: Path) -> None:
        _fetch(root, _FOR_LATER)
        for earlier in before:
            _fetch_of_another(root, release, earlier)

    packages = (*_PACKAGES, *LIBRARIES[release])
    recipe = " ".join((*_FOR_LATER, *before))
    return debian_root(f"{release}-system-root", release, packages, finish=fetch, recipe=recipe)


def _fetch(root: Path, packages: Iterable[str], *options: str) -> None:
    """Has the root's own apt keep packages for later."""
    install = ["install", "--yes", "--download-only", "--no-install-recommends"]
    _run_apt(root, *options, *install, *packages)


def _fetch_of_another(root: Path, release: str, other: str) -> None:
    """The libraries that a system which was upgraded from the other release still has."""
    own = (root / "etc/apt/sources.list").read_text()
    with TemporaryDirectory(dir=root / "var") as folder:
        Path(folder, "lists/partial").mkdir(parents=True)
        sources, lists = Path(folder, "sources.list"), Path(folder, "lists")
        sources.write_text(own.replace(f" {release} ", f" {other} "))
        inside = [f"/{path.relative_to(root)}" for path in (sources, lists)]
        options = [f"-oDir::Etc::SourceList={inside[0]}", f"-oDir::State::Lists={inside[1]}"]
        _run_apt(root, *options, "-oAPT::Sandbox::User=root", "update")
        _fetch(root, LIBRARIES[other], *options)


def _run_apt(root: Path, *words: str) -> None:
    done = run_to_fetch("chroot", root, "apt-get", *words)
    if done.returncode != 0:
        raise Unavailable(f"packages cannot be fetched:\n{done.stdout}")


def _print_folder() -> int:
    # An empty word stands for none.
    print(debian("".join(sys.argv[1:]) or this_release()))
    return 0


if __name__ == "__main__":
    sys.exit(status_of(_print_folder))
