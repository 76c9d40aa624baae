"""Runs the board's one command and carries its output out."""

import fcntl
import os
import signal
import termios
import threading
from pathlib import Path
from typing import Mapping, Sequence

# What a shell answers for a command that it cannot find, and one that it cannot run.
_NOT_FOUND, _NOT_RUNNABLE = 127, 126


class TooLong(Exception):
    """The command still ran when its time, by the board's clock, was over."""


def run_command(
    command: Sequence[str], directory: str, outputs: Mapping[int, Path], longest_seconds: int
) -> int:
    """Returns the status as a shell gives it: 128 + n when signal n ended the command.

    `outputs` has the files to which descriptors 1 and 2 go; both may go to the same.
    To the command they are pipes, since a file would be emptied by whoever opens
    /dev/stderr for writing. Whatever still runs when the command ends is killed.
    """
    # Ahead of the command: one that spins is never interrupted, because its spinning
    # takes no time, and what it printed before is then the only sign of it.
    os.sched_setscheduler(0, os.SCHED_FIFO, os.sched_param(1))
    pipes = {path: os.pipe() for path in set(outputs.values())}
    descriptors = {0: os.open(os.devnull, os.O_RDONLY)}
    descriptors.update((number, pipes[path][1]) for number, path in outputs.items())
    child = _start(command, directory, descriptors)
    for descriptor in set(descriptors.values()):
        os.close(descriptor)
    carriers = [
        threading.Thread(target=_carry, args=(reading, path))
        for path, (reading, _) in pipes.items()
    ]
    for carrier in carriers:
        carrier.start()
    try:
        return _wait_for(child, longest_seconds)
    finally:
        os.kill(-1, signal.SIGKILL)
        for carrier in carriers:
            carrier.join()


def run_on_terminal(command: Sequence[str], directory: str, terminal: str) -> int:
    """As `run_command`, with the terminal as the command's own and no bound on its time."""
    descriptor = os.open(terminal, os.O_RDWR | os.O_NOCTTY)
    child = _start(command, directory, {0: descriptor, 1: descriptor, 2: descriptor}, terminal=True)
    return _wait_for(child, 0)


def _start(
    command: Sequence[str], directory: str, descriptors: Mapping[int, int], terminal: bool = False
) -> int:
    child = os.fork()
    if child != 0:
        return child
    try:
        os.setsid()
        os.sched_setscheduler(0, os.SCHED_OTHER, os.sched_param(0))
        for number, descriptor in descriptors.items():
            os.dup2(descriptor, number)
        if terminal:
            fcntl.ioctl(0, termios.TIOCSCTTY, 0)
        # Python ignores these two; a program expects them as they are by default.
        for number in (signal.SIGPIPE, signal.SIGXFSZ):
            signal.signal(number, signal.SIG_DFL)
        os.chdir(directory)
        os.execvp(command[0], command)
    except OSError as error:
        os.write(2, f"board: {command[0]}: {error.strerror}\n".encode())
        os._exit(_NOT_FOUND if isinstance(error, FileNotFoundError) else _NOT_RUNNABLE)


def _carry(reading: int, path: Path) -> None:
    with path.open("ab", buffering=0) as file:
        while chunk := os.read(reading, 65536):
            file.write(chunk)


def _wait_for(child: int, longest_seconds: int) -> int:
    """Waits for this child; reaps the orphans that fall to the first process meanwhile."""

    def give_up(*_) -> None:
        raise TooLong(f"still running after {longest_seconds} seconds of the board's time")

    signal.signal(signal.SIGALRM, give_up)
    signal.alarm(longest_seconds)
    while True:
        ended, status = os.wait()
        if ended == child:
            signal.alarm(0)
            code = os.waitstatus_to_exitcode(status)
            return 128 - code if code < 0 else code
