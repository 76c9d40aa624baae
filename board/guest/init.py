#!/usr/bin/python3 -P
"""The first process of the virtual board: prepares it, runs one command, ends it.

What to do stands in `task.json` in the scratch folder, the only one that both the
host and the board can write. The command's output goes there, and at the end the
file `outcome`: its status, or what went wrong.
"""

import fcntl
import json
import os
import socket
import struct
import sys
from pathlib import Path

from guest import board
from guest.command import TooLong, run_command, run_on_terminal
from guest.first_process import be_first_process, write_to_kernel_messages
from guest.mounts import mount_from_host, mount_own
from guest.system_calls import set_timer_slack

_HOME, _TEMPORARY = Path("/run/home"), Path("/run/tmp")

_SIOCSIFFLAGS = 0x8914
_IFF_UP = 1


def main() -> None:
    scratch = Path(os.environ["BOARD_SCRATCH"])
    library = os.environ["PYTHONPATH"]
    # Read now, because the board's own file systems may hide the folder.
    task = json.loads((scratch / "task.json").read_text())
    mount_own()
    write_to_kernel_messages()
    mount_from_host(scratch, [Path(library).parent, Path(task["directory"])])
    set_environment(task["environment"], library)
    start_loopback()
    if not task["realtime"]:
        # A sleep then ends when it should, not up to 50 microseconds later.
        set_timer_slack(1)
    board.wire(natural_pulls=task["natural_pulls"])
    if task["coupled"]:
        coupling = [sys.executable, "-P", "-m", "guest.coupling"]
        os.posix_spawn(coupling[0], coupling, os.environ)
    outcome = run(task, scratch)
    (scratch / "outcome").write_text(json.dumps(outcome))


def start_loopback() -> None:
    """Gives the board its addresses 127.0.0.1 and those beside it."""
    with socket.socket() as any_socket:
        fcntl.ioctl(any_socket, _SIOCSIFFLAGS, struct.pack("16sh22x", b"lo", _IFF_UP))


def set_environment(outside: dict[str, str], library: str) -> None:
    """The command's environment is the caller's, but for places that cannot be written."""
    for folder in (_HOME, _TEMPORARY):
        folder.mkdir()
    paths = [library, *filter(None, [outside.get("PYTHONPATH")])]
    os.environ.clear()
    os.environ.update(outside)
    os.environ.update(HOME=str(_HOME), TMPDIR=str(_TEMPORARY), PYTHONPATH=":".join(paths))


def run(task: dict, scratch: Path) -> dict:
    try:
        if task["terminal"]:
            status = run_on_terminal(task["command"], task["directory"], task["terminal"])
        else:
            outputs = {int(number): scratch / name for number, name in task["outputs"].items()}
            status = run_command(
                task["command"], task["directory"], outputs, task["longest_seconds"]
            )
    except TooLong as reason:
        return {"failure": str(reason)}
    return {"status": status}


if __name__ == "__main__":
    be_first_process(main)
