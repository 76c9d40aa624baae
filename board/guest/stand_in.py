"""Stands in for the commands that would end the system."""

import json
import os
import tempfile
from pathlib import Path
from typing import Sequence

from guest.seen import Call

_SCRIPT = """#!/usr/bin/python3 -IS
import json, os, sys, time
call = [os.path.basename(sys.argv[0]), sys.argv[1:], time.monotonic_ns(), time.time_ns()]
with open({log!r}, "a") as log:
    print(json.dumps(call), file=log, flush=True)
os.execv("/bin/sh", ["sh", "-c", {then!r}])
"""


class StandIns:
    """Commands that only note that they were called; usable in a `with` statement.

    They are found first by every process started while this is open, because its
    folder then stands first in PATH. `then` is a piece of shell that each call runs
    after its note, such as "sleep 5"; its status becomes the call's status.
    """

    def __init__(self, names: Sequence[str] = ("reboot", "poweroff"), then: str = ":"):
        self._folder = tempfile.TemporaryDirectory(prefix="stand-ins-")
        self._log = Path(self._folder.name, "calls")
        self._log.touch()
        self._log.chmod(0o666)
        Path(self._folder.name).chmod(0o755)
        commands = Path(self._folder.name, "bin")
        commands.mkdir()
        for name in names:
            command = commands / name
            command.write_text(_SCRIPT.format(log=str(self._log), then=then))
            command.chmod(0o755)
        self._path_before = os.environ["PATH"]
        os.environ["PATH"] = f"{commands}:{self._path_before}"

    def calls(self) -> list[Call]:
        """All calls so far, oldest first."""
        return [Call(*json.loads(line)) for line in self._log.read_text().splitlines()]

    def close(self) -> None:
        os.environ["PATH"] = self._path_before
        self._folder.cleanup()

    def __enter__(self) -> "StandIns":
        return self

    def __exit__(self, *_) -> None:
        self.close()
