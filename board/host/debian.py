"""The root file system of a Debian for the board, made by debootstrap."""

import hashlib
import os
import shutil
import subprocess
from pathlib import Path

from host.cache import kept, say
from host.problems import BoardFailure, Unavailable

_SUITE = "bookworm"
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
_TARGET = "$(REPO_URI) $(COMPONENT) $(CODENAME) $(RELEASE) $(ORIGIN)"


def debian() -> Path:
    """The folder with the root; makes it first unless one of the same ingredients is kept."""
    if os.geteuid() != 0:
        raise Unavailable("a root file system of Debian can be made and read only by root")
    return kept(f"debian-{_key()}", _make)


def _key() -> str:
    """Names everything that the root is made of, this recipe included."""
    return hashlib.sha256(Path(__file__).read_bytes()).hexdigest()[:16]


def _make(work: Path) -> Path:
    if shutil.which("debootstrap") is None:
        raise Unavailable("the package debootstrap is not installed")
    root = work / "root"
    # In a name space of its own, what it mounts is gone with it, however it ends.
    command = ["unshare", "--mount", "debootstrap", "--variant=minbase", "--force-check-gpg"]
    say("fetching and installing the packages of a Debian")
    made = subprocess.run(
        [*command, f"--include={','.join(_PACKAGES)}", _SUITE, root, _mirror()],
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
    )
    if made.returncode != 0:
        last_lines = "\n".join(made.stdout.splitlines()[-20:])
        if "E: Failed getting release file" in made.stdout:
            raise Unavailable(f"Debian's packages cannot be fetched:\n{last_lines}")
        if "unshare failed" in made.stdout:
            raise Unavailable(f"a root cannot be made here: {last_lines}")
        raise BoardFailure(f"debootstrap failed:\n{last_lines}")
    for archive in (root / "var/cache/apt/archives").glob("*.deb"):
        archive.unlink()
    return root


def _mirror() -> str:
    """Where apt on this host fetches this release of Debian from."""
    query = ["apt-get", "indextargets", "--format", _TARGET, "Created-By: Packages"]
    try:
        answer = subprocess.run(query, capture_output=True, text=True)
    except FileNotFoundError:
        raise Unavailable("apt-get is missing: the board is made for Debian") from None
    for line in answer.stdout.splitlines():
        # Codename and origin are known only when apt has fetched the lists.
        address, component, codename, release, origin = line.split(" ")
        if component == "main" and _SUITE in (codename, release) and origin in ("", "Debian"):
            return address
    raise Unavailable(f"apt has been told of no place with Debian's {_SUITE}")
