"""File systems of the board: the host's, read-only, and its own on top."""

from pathlib import Path
from typing import Iterable

from guest.system_calls import mount

_OWN = (
    ("devtmpfs", "/dev", "mode=0755"),
    ("proc", "/proc", ""),
    ("sysfs", "/sys", ""),
    ("configfs", "/sys/kernel/config", ""),
    ("tracefs", "/sys/kernel/tracing", ""),
    ("devpts", "/dev/pts", ""),
    ("tmpfs", "/dev/shm", "mode=1777"),
    ("tmpfs", "/run", "mode=0755"),
)

# The names that programs expect in /dev beside the kernel's own devices.
_LINKS = (
    ("/proc/self/fd", "/dev/fd"),
    ("/proc/self/fd/0", "/dev/stdin"),
    ("/proc/self/fd/1", "/dev/stdout"),
    ("/proc/self/fd/2", "/dev/stderr"),
)


def mount_own() -> None:
    for kind, folder, options in _OWN:
        Path(folder).mkdir(exist_ok=True)
        mount(kind, folder, kind, options)
    for target, name in _LINKS:
        Path(name).symlink_to(target)


def mount_from_host(scratch: Path, others: Iterable[Path]) -> None:
    """Mounts the scratch folder, writable, where the host has it.

    Of the other folders those come back, read-only, that `mount_own` has hidden, such
    as a checkout below /dev/shm.
    """
    scratch.mkdir(parents=True, exist_ok=True)
    mount("none", str(scratch), "hostfs", options=str(scratch))
    for folder in others:
        if not folder.exists():
            folder.mkdir(parents=True)
            mount("none", str(folder), "hostfs", options=str(folder), read_only=True)
