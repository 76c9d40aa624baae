"""A scratch folder and processes that are gone after the run, however it ends."""

import os
import shutil
import signal
import sys
import tempfile
import traceback
from pathlib import Path
from typing import Callable

from host.children import adopt_orphans, follow_parent, kill_children
from host.problems import status_of

_ENDING = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)


def supervised(action: Callable[[Path], int]) -> int:
    """Runs the action in a process of its own with a scratch folder; returns its status.

    Two processes look after each other: whichever of them is killed, the other ends
    what is still running and removes the scratch folder.
    """
    scratch = Path(tempfile.mkdtemp(prefix="board-"))
    adopt_orphans()
    child = os.fork()
    if child == 0:
        _act(action, scratch)
    for number in _ENDING:
        signal.signal(number, lambda number, _: os.kill(child, number))
    try:
        _, status = os.waitpid(child, 0)
    finally:
        _clean(scratch)
    code = os.waitstatus_to_exitcode(status)
    return 128 - code if code < 0 else code


def _act(action: Callable[[Path], int], scratch: Path) -> None:
    """The second process; never returns."""
    status = 1
    try:
        for number in _ENDING:
            signal.signal(number, _end)
        follow_parent(os.getppid(), signal.SIGTERM)
        adopt_orphans()
        status = status_of(lambda: action(scratch))
    except SystemExit as end:
        status = end.code
    except BaseException:
        traceback.print_exc()
    finally:
        _clean(scratch)
        os._exit(status)


def _end(number: int, _) -> None:
    sys.exit(128 + number)


def _clean(scratch: Path) -> None:
    for number in _ENDING:
        signal.signal(number, signal.SIG_IGN)
    kill_children()
    # The other process may be removing it too.
    shutil.rmtree(scratch, ignore_errors=True)
