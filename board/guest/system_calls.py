"""The few system calls that Python has no function for."""

import ctypes
import os
from pathlib import Path

_libc = ctypes.CDLL(None, use_errno=True)

_MS_RDONLY = 1
_MS_MOVE = 0x2000
_PR_SET_TIMERSLACK = 29
_RB_POWER_OFF = 0x4321FEDC


def mount(source: str, target: str, kind: str, options: str = "", read_only: bool = False) -> None:
    """Mounts a file system of this kind; `target` must exist."""
    flags = _MS_RDONLY if read_only else 0
    _check(
        _libc.mount(
            os.fsencode(source),
            os.fsencode(target),
            kind.encode(),
            ctypes.c_ulong(flags),
            os.fsencode(options),
        ),
        target,
    )


def enter_root(folder: Path) -> None:
    """Makes this mount the root of everything; what was the root lies hidden under it."""
    os.chdir(folder)
    _check(_libc.mount(b".", b"/", None, ctypes.c_ulong(_MS_MOVE), None), folder)
    os.chroot(".")
    os.chdir("/")


def set_timer_slack(nanoseconds: int) -> None:
    """How late a sleep may end, for this process and all that it starts later."""
    _check(_libc.prctl(_PR_SET_TIMERSLACK, ctypes.c_ulong(nanoseconds), 0, 0, 0), "timer slack")


def power_off() -> None:
    """Ends the machine at once; buffers of files opened by other processes are not flushed."""
    _check(_libc.reboot(_RB_POWER_OFF), "power off")


def _check(result: int, subject: str) -> None:
    if result < 0:
        error = ctypes.get_errno()
        raise OSError(error, os.strerror(error), subject)
