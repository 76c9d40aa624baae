"""Processes of the board: none of them may outlive the run."""

import ctypes
import os
import signal
from pathlib import Path

_libc = ctypes.CDLL(None, use_errno=True)

_PR_SET_PDEATHSIG = 1
_PR_SET_CHILD_SUBREAPER = 36


def adopt_orphans() -> None:
    """From now on what our descendants leave behind becomes our own child."""
    _libc.prctl(_PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)


def follow_parent(parent: int, number: int) -> None:
    """Has this process sent the signal when its parent dies, or at once if it has."""
    _libc.prctl(_PR_SET_PDEATHSIG, int(number), 0, 0, 0)
    if os.getppid() != parent:
        os.kill(os.getpid(), number)


def kill_children() -> None:
    """Kills and reaps every child and, after `adopt_orphans`, their descendants too.

    A process group is killed as a whole: a user-mode kernel guides its processes by
    ptrace, and one that lost its guide would run on as a program of the host.
    """
    children = Path(f"/proc/self/task/{os.getpid()}/children")
    while True:
        for child in map(int, children.read_text().split()):
            group = os.getpgid(child)
            if group != os.getpgrp():
                os.killpg(group, signal.SIGKILL)
            os.kill(child, signal.SIGKILL)
        try:
            os.wait()
        except ChildProcessError:
            return
