"""Root file systems of Debian, made by mmdebstrap and kept.

By itself it prints the folder of one: python3 -m host.mmdebstrap NAME RELEASE PACKAGE...
"""

import hashlib
import os
import platform
import shlex
import shutil
import subprocess
import sys
from pathlib import Path
from typing import Callable, Iterable, Union

from host.cache import kept, say
from host.problems import BoardFailure, Unavailable, status_of

# What later runs of apt look into, and an identity: without one systemd sets up a new machine.
_KEPT = ("cleanup/apt/lists", "cleanup/reproducible")
_TARGET = "$(REPO_URI) $(COMPONENT) $(CODENAME) $(RELEASE) $(LABEL)"


def this_release() -> str:
    """The name of the Debian that this host runs."""
    return platform.freedesktop_os_release().get("VERSION_CODENAME", "")


def debian_root(
    name: str,
    release: str,
    packages: Iterable[str],
    finish: Callable[[Path], None] = lambda root: None,
    recipe: str = "",
) -> Path:
    """The folder of a minimal Debian with these packages; made first unless it is kept.

    `finish` is called with the folder of one that is being made; `recipe` names what it does.
    """
    if os.geteuid() != 0:
        raise Unavailable("a root file system of Debian can be made and read only by root")
    packages = sorted(packages)

    def make(work: Path) -> Path:
        root = work / "root"
        bootstrap(root, release, packages, f"--skip={','.join(_KEPT)}")
        finish(root)
        return root

    # All that it is made of, this recipe included.
    ingredients = repr((release, packages, recipe)).encode() + Path(__file__).read_bytes()
    return kept(f"{name}-{hashlib.sha256(ingredients).hexdigest()[:16]}", make)


def bootstrap(
    root: Path, release: str, packages: Iterable[str], *options: str, before: str = ""
) -> None:
    """Makes a minimal Debian with these packages, by mmdebstrap with these options.

    The shell runs `before` first; what it mounts stays until all is made.
    """
    if shutil.which("mmdebstrap") is None:
        raise Unavailable("the package mmdebstrap is not installed")
    # In a name space of its own, what it mounts is gone with it, however it ends.
    command = ["unshare", "--mount", "sh", "-ec", f'{before}\nexec "$@"', "sh"]
    command += ["mmdebstrap", "--mode=root", "--variant=minbase"]
    # A copy of the archive that has stood still for weeks serves, too.
    command += ["--dpkgopt=force-unsafe-io", '--aptopt=Acquire::Check-Valid-Until "false"']
    command += [f"--include={','.join(packages)}", *options]
    say(f"fetching and installing the packages of Debian's {release}")
    made = run_to_fetch(*command, release, root, mirror())
    if made.returncode != 0:
        last_lines = "\n".join(made.stdout.splitlines()[-20:])
        if "E: apt-get update" in made.stdout or "Failed to fetch" in made.stdout:
            raise Unavailable(f"Debian's packages cannot be fetched:\n{last_lines}")
        if made.stdout.startswith("unshare: "):
            raise Unavailable(f"a root cannot be made here: {last_lines}")
        raise BoardFailure(f"mmdebstrap failed:\n{last_lines}")


def run_to_fetch(*command: Union[str, Path]) -> subprocess.CompletedProcess:
    """For what fetches packages. Its output has its errors among it."""
    return subprocess.run(
        command,
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
        env=environment(),
    )


def mirror() -> str:
    """Where apt on this host fetches Debian from; other releases are there, too."""
    targets = _asked("apt-get", "indextargets", "--format", _TARGET, "Created-By: Packages")
    for line in targets.splitlines():
        # Codename and label are known only when apt has fetched the lists.
        address, component, codename, release, label = line.split(" ", 4)
        ours = this_release() in (codename, release) and label in ("", "Debian")
        if ours and component == "main":
            return address
    raise Unavailable("apt has been told of no place with the Debian of this host")


def environment() -> dict[str, str]:
    """With the proxy that apt has been told of, for others that fetch packages."""
    answer = _asked("apt-config", "shell", "http_proxy", "Acquire::http::Proxy")
    return {**dict(word.split("=", 1) for word in shlex.split(answer)), **os.environ}


def _asked(*question: str) -> str:
    try:
        return subprocess.run(question, capture_output=True, text=True).stdout
    except FileNotFoundError:
        raise Unavailable(f"{question[0]} is missing: the board is made for Debian") from None


def _print_folder() -> int:
    name, release, *packages = sys.argv[1:]
    print(debian_root(name, release, packages))
    return 0


if __name__ == "__main__":
    sys.exit(status_of(_print_folder))
