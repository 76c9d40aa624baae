"""Small Debian systems in folders, in which packages are installed and built.

A base system is made once and kept; each test gets a layer of its own above it, which the
mount namespace of this process takes away with it.
"""

import ctypes
import os
import subprocess
from pathlib import Path
from typing import Sequence

import pytest

from host.mmdebstrap import debian_root, environment, this_release
from host.problems import Unavailable

_CLONE_NEWNS = 0x20000


def require_root() -> None:
    """Skips the test where it cannot make mounts of its own."""
    if os.geteuid() != 0:
        pytest.skip("a Debian system of its own takes root")


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

    def run(self, *argv) -> subprocess.CompletedProcess:
        """Runs a command in it, without input; its status is the caller's affair."""
        return in_root(self.path, argv, timeout=300)


def in_root(path: Path, argv: Sequence, timeout: float = 1800) -> subprocess.CompletedProcess:
    own = {
        "PATH": "/usr/sbin:/usr/bin:/sbin:/bin",
        "LC_ALL": "C.UTF-8",
        "DEBIAN_FRONTEND": "noninteractive",
    }
    proxies = {name: value for name, value in environment().items() if name.endswith("_proxy")}
    return subprocess.run(
        ["chroot", str(path), *map(str, argv)],
        stdin=subprocess.DEVNULL,
        capture_output=True,
        text=True,
        env={**own, **proxies},
        timeout=timeout,
    )


def base_system(name: str, packages: Sequence[str]) -> Path:
    """The folder of a system of the host's release."""
    try:
        return debian_root(name, this_release(), packages)
    except Unavailable as reason:
        pytest.skip(str(reason))


def _run(*argv: str) -> str:
    result = subprocess.run(argv, stdin=subprocess.DEVNULL, capture_output=True, text=True)
    assert result.returncode == 0, f"{argv}\n{result.stdout[-3000:]}{result.stderr[-3000:]}"
    return result.stdout
