"""What takes minutes to make is made once and kept."""

import fcntl
import os
import shutil
import sys
import time
from pathlib import Path
from typing import Callable


def kept(name: str, make: Callable[[Path], Path]) -> Path:
    """The file or folder of this name, which ends in a key; made first if it is missing.

    `make` gets an empty folder to work in and returns what is to be kept, which is in it.
    The folder stays only when making fails, for a look at what went wrong.
    """
    cache = Path(os.environ.get("XDG_CACHE_HOME") or Path.home() / ".cache") / "kelvo-board"
    result = cache / name
    if not result.exists():
        kind, _ = name.rsplit("-", 1)
        cache.mkdir(parents=True, exist_ok=True)
        with open(cache / f"{kind}.lock", "w") as lock:
            _wait_for(lock, kind)
            if not result.exists():
                _make(cache / f"{kind}.work", result, kind, make)
    return result


def _wait_for(lock, kind: str) -> None:
    try:
        fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        say(f"somebody else is making the {kind}; waiting for it")
        fcntl.flock(lock, fcntl.LOCK_EX)


def _make(work: Path, result: Path, kind: str, make: Callable[[Path], Path]) -> None:
    started = time.monotonic()
    shutil.rmtree(work, ignore_errors=True)
    work.mkdir()
    make(work).rename(result)
    shutil.rmtree(work, ignore_errors=True)
    say(f"the {kind} is ready after {time.monotonic() - started:.0f} seconds")


def say(text: str) -> None:
    print(f"board: {text}", file=sys.stderr, flush=True)
