"""A segment as of a daemon that lives, and a wait for what a program makes of it."""

import os
import subprocess
import threading
from functools import partial
from pathlib import Path

from guest import clock

# For what is waited for until it happens.
LONG = 60
SEGMENT = Path("/dev/shm/kelvo-pwr-shm")
wait_until = partial(clock.wait_until, within=LONG, step=0.05)


def _segment_tool(*words):
    subprocess.run([os.environ["SEGMENT_TOOL"], *words], check=True)


def set_fields(*assignments):
    _segment_tool("set", *assignments)


class Heart:
    """Has the count move on, as a daemon does that lives."""

    def __init__(self):
        _segment_tool("make", "status", "request")
        self._over = threading.Event()
        self._thread = threading.Thread(target=self._beat)

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *_):
        self._over.set()
        self._thread.join()

    def _beat(self):
        count = 100
        while not self._over.wait(0.3):
            count += 1
            set_fields(f"count={count}")
