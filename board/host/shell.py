"""`board shell`: a person at the board's terminal, in real time."""

import fcntl
import os
import pty
import select
import signal
import sys
import termios
import tty
from pathlib import Path

from host.machine import Machine, task
from host.problems import BoardFailure

_BOARD = Path(__file__).parent.parent
_COMMANDS = _BOARD / "guest" / "commands"
_STARTUP = _BOARD / "guest" / "shell_startup"
_RELEASE_BUILD = _BOARD.parent / "build" / "release"


def shell(kernel: Path, scratch: Path, coupled: bool) -> int:
    """Returns the shell's status when it is left."""
    if not sys.stdin.isatty():
        raise BoardFailure("a shell needs a terminal on its standard input")
    master, slave = pty.openpty()
    _copy_window_size(master)
    signal.signal(signal.SIGWINCH, lambda *_: _copy_window_size(master))
    machine = Machine(
        kernel,
        scratch,
        task(
            ["/bin/bash", "--rcfile", str(_STARTUP), "-i"],
            outputs={},
            realtime=True,
            coupled=coupled,
            natural_pulls=True,
            longest_seconds=0,
            # The board's second console; the first has the kernel's messages.
            terminal="/dev/tty1",
            environment={"PATH": _path(), "BOARD_COUPLED": "yes" if coupled else "no"},
        ),
        terminal=slave,
    )
    before = termios.tcgetattr(0)
    tty.setraw(0)
    try:
        return machine.wait(lambda: _exchange(master), longest_seconds=None)
    finally:
        termios.tcsetattr(0, termios.TCSADRAIN, before)


def _path() -> str:
    program = Path(os.environ.get("KELVO_PWR", _RELEASE_BUILD / "kelvo-pwr")).absolute()
    if not program.exists():
        raise BoardFailure(f"there is no {program}: build it, or set KELVO_PWR")
    return f"{_COMMANDS}:{program.parent}:{os.environ['PATH']}"


def _copy_window_size(master: int) -> None:
    size = fcntl.ioctl(0, termios.TIOCGWINSZ, bytes(8))
    fcntl.ioctl(master, termios.TIOCSWINSZ, size)


def _exchange(master: int) -> None:
    while ready := select.select([0, master], [], [], 0)[0]:
        if master in ready:
            os.write(1, os.read(master, 65536))
        if 0 in ready:
            keys = os.read(0, 1024)
            if not keys:
                raise BoardFailure("the terminal has gone")
            os.write(master, keys)
