"""Small Debian systems in folders, in which packages are installed and built.

A base system is made once and kept; each test gets a layer of its own above it, which the
mount namespace of this process takes away with it.
"""

import ctypes
import fcntl
import hashlib
import os
import shutil
import subprocess
from pathlib import Path
from typing import Optional, Sequence

import pytest

_CLONE_NEWNS = 0x20000


def require_root() -> None:
    """Skips the test where it cannot make mounts of its own."""
    if os.geteuid() != 0:
        pytest.skip("a Debian system of its own takes root")
    if not shutil.which("debootstrap"):
        pytest.skip("debootstrap is not installed")


def leave_mount_namespace() -> None:
    """What is mounted from here on is seen by this process and its children alone."""
    if ctypes.CDLL(None, use_errno=True).unshare(_CLONE_NEWNS) != 0:
        error = ctypes.get_errno()
        pytest.skip(f"no mount namespace: {os.strerror(error)}")
    _run("mount", "--make-rprivate", "/")


class Root:
    """A layer above a base system, in which everything may be changed."""

    def __init__(self, base: Path, scratch: Path):
        # Not every file system can hold the upper layer.
        _run("mount", "-t", "tmpfs", "tmpfs", str(scratch))
        for name in ("changes", "work", "root"):
            (scratch / name).mkdir()
        self.path = scratch / "root"
        layers = f"lowerdir={base},upperdir={scratch / 'changes'},workdir={scratch / 'work'}"
        _run("mount", "-t", "overlay", "overlay", "-o", layers, str(self.path))

    def __enter__(self) -> "Root":
        return self

    def __exit__(self, *_) -> None:
        _run("umount", "--recursive", str(self.path.parent))

    def run(self, *argv, env: Optional[dict] = None) -> subprocess.CompletedProcess:
        """Runs a command in it, without input; its status is the caller's affair."""
        return in_root(self.path, argv, env)


def in_root(path: Path, argv: Sequence, env: Optional[dict] = None) -> subprocess.CompletedProcess:
    environment = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL": "C.UTF-8", **(env or {})}
    environment["DEBIAN_FRONTEND"] = "noninteractive"
    # As apt and debootstrap outside.
    environment |= {k: v for k, v in os.environ.items() if k.endswith("_proxy")}
    return subprocess.run(
        ["chroot", str(path), *map(str, argv)],
        stdin=subprocess.DEVNULL,
        capture_output=True,
        text=True,
        env=environment,
    )


def base_system(name: str, packages: Sequence[str], finish=None, recipe: str = "") -> Path:
    """The folder of a base system of the host's release with these packages.

    `finish` is called with the folder of one that is being made; `recipe` names what it does.
    """
    ingredients = repr((_release(), sorted(packages), recipe))
    key = hashlib.sha256(ingredients.encode()).hexdigest()[:16]
    cache = Path(os.environ.get("XDG_CACHE_HOME") or Path.home() / ".cache") / "kelvo-package"
    cache.mkdir(parents=True, exist_ok=True)
    kept = cache / f"{name}-{key}"
    with open(cache / f"{name}.lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if not kept.exists():
            unfinished = cache / f"{name}-unfinished"
            shutil.rmtree(unfinished, ignore_errors=True)
            _bootstrap(unfinished, packages)
            if finish:
                finish(unfinished)
            unfinished.rename(kept)
    return kept


def _bootstrap(folder: Path, packages: Sequence[str]) -> None:
    include = [f"--include={','.join(sorted(packages))}"] if packages else []
    _run("debootstrap", "--variant=minbase", *include, _release(), str(folder), _mirror())


def _release() -> str:
    text = Path("/etc/os-release").read_text()
    return dict(line.split("=", 1) for line in text.splitlines() if "=" in line)[
        "VERSION_CODENAME"
    ]


def _mirror() -> str:
    """Where apt gets this release from."""
    wanted = f"|Debian|{_release()}|main"
    targets = _run(
        "apt-get", "indextargets", "--format", "$(SITE)|$(LABEL)|$(CODENAME)|$(COMPONENT)",
        "Created-By: Packages",
    )  # fmt: skip
    found = [line for line in targets.splitlines() if line.endswith(wanted)]
    assert found, f"apt has no index of {_release()}; apt-get update gets it:\n{targets}"
    return found[0].removesuffix(wanted)


def _run(*argv: str) -> str:
    result = subprocess.run(argv, stdin=subprocess.DEVNULL, capture_output=True, text=True)
    assert result.returncode == 0, f"{argv}\n{result.stdout[-3000:]}{result.stderr[-3000:]}"
    return result.stdout
