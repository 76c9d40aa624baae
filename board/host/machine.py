"""One run of the virtual board: from a task to its outcome."""

import json
import os
import signal
import subprocess
import time
from pathlib import Path
from typing import Callable, Optional, Sequence

from host.children import follow_parent
from host.last_words import is_restart, reason_of_end
from host.problems import BoardFailure

_LIBRARY = Path(__file__).parent.parent

# Monday, 3 June 2024, 12:00:00.5 UTC: far from midnight and from a change of clocks,
# and half way between two seconds.
_START_NANOSECONDS = 1717416000500000000

_POLL_SECONDS = 0.01


class Machine:
    """A board that has been switched on; `scratch` is an empty folder of its own."""

    def __init__(
        self,
        kernel: Path,
        scratch: Path,
        task: dict,
        terminal: Optional[int] = None,
        init: str = "init.py",
        megabytes: int = 256,
    ):
        self._scratch = scratch
        self.kernel_messages = scratch / "kernel-messages"
        for name in set(task["outputs"].values()):
            (scratch / name).touch()
        (scratch / "task.json").write_text(json.dumps(task))
        parent = os.getpid()
        with self.kernel_messages.open("wb") as log:
            self._process = subprocess.Popen(
                _arguments(kernel, scratch, task["realtime"], terminal, init, megabytes),
                stdin=subprocess.DEVNULL,
                stdout=log,
                stderr=log,
                # The kernel keeps its memory in TMPDIR and its sockets below HOME.
                env={"TMPDIR": str(scratch), "HOME": str(scratch)},
                pass_fds=[] if terminal is None else [terminal],
                start_new_session=True,
                preexec_fn=lambda: follow_parent(parent, signal.SIGTERM),
            )

    def wait(self, meanwhile: Callable[[], None], longest_seconds: Optional[float]) -> int:
        """Calls `meanwhile` over and over, and once more after the end; returns the status."""
        end = None if longest_seconds is None else time.monotonic() + longest_seconds
        while self._process.poll() is None:
            meanwhile()
            if end is not None and time.monotonic() > end:
                raise BoardFailure(f"still running after {longest_seconds:g} seconds")
            time.sleep(_POLL_SECONDS)
        meanwhile()
        return self._status()

    def _status(self) -> int:
        outcome = self._scratch / "outcome"
        if not outcome.exists():
            end = self._scratch / "end"
            messages = self.kernel_messages.read_text(errors="replace")
            if end.exists():
                # What systemd meant, until something at the very end did otherwise.
                how = "reboot" if is_restart(messages) else end.read_text().strip()
                raise BoardFailure(f"the command was ended by {how}")
            raise BoardFailure(f"{reason_of_end(messages)}; the kernel said:\n{messages}")
        result = json.loads(outcome.read_text())
        if "failure" in result:
            raise BoardFailure(result["failure"])
        return result["status"]


def task(
    command: Sequence[str],
    outputs: dict[int, str],
    realtime: bool,
    coupled: bool,
    natural_pulls: bool,
    longest_seconds: int,
    terminal: Optional[str] = None,
    environment: dict[str, str] = {},
) -> dict:
    """What the board's first process is told.

    `outputs` has the file in the scratch folder for each of the command's descriptors;
    a command on a terminal, which is named as the board has it, needs none. The bound
    is on the board's clock.
    """
    return {
        "command": list(command),
        "directory": os.getcwd(),
        "environment": {**os.environ, **environment},
        "outputs": outputs,
        "realtime": realtime,
        "coupled": coupled,
        "natural_pulls": natural_pulls,
        "longest_seconds": longest_seconds,
        "terminal": terminal,
    }


def _arguments(
    kernel: Path,
    scratch: Path,
    realtime: bool,
    terminal: Optional[int],
    init: str,
    megabytes: int,
) -> list[str]:
    arguments = [
        str(kernel),
        f"mem={megabytes}M",
        "root=/dev/root",
        "rootfstype=hostfs",
        "rootflags=/",
        "ro",
        # A restart or a power-off inside ends the run.
        "noreboot",
        # The kernel's messages go to its standard error, early ones and late ones.
        "stderr=1",
        "con=null",
        "con0=null,fd:2",
        f'init="{_LIBRARY / "guest" / init}"',
        f'BOARD_SCRATCH="{scratch}"',
        f'PYTHONPATH="{_LIBRARY}"',
    ]
    if terminal is not None:
        arguments.append(f"con1=fd:{terminal},fd:{terminal}")
    if not realtime:
        arguments += ["time-travel=inf-cpu", f"time-travel-start={_START_NANOSECONDS}"]
    return arguments
