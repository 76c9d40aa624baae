"""System calls of the program that fail on purpose: strace does it.

What is to fail is said in strace's words, such as `flock:error=EINTR:when=1`.
"""

import errno
import os
import re
from pathlib import Path
from typing import Sequence

from rig import PROGRAM, Rig

from guest.clock import wait_until
from guest.process import Program

_MARKS = ("(INJECTED)", "(DELAYED)")

# Other versions of the libraries make other calls.
_CONTENT = Path(PROGRAM).read_bytes()
LIBGPIOD_2 = b"libgpiod.so.3" in _CONTENT
BOOST_1_83 = b"libboost_program_options.so.1.83" in _CONTENT

# The request of a line, in the words of either version.
LINE_REQUEST = "GPIO_(GET_LINEHANDLE|V2_GET_LINE)_IOCTL"
# What the request of an output has in it, and the call that drives a line.
OUTPUT_REQUEST, LINE_WRITE = (
    (("GPIO_V2_GET_LINE_IOCTL", "GPIO_V2_LINE_FLAG_OUTPUT"), "GPIO_V2_LINE_SET_VALUES_IOCTL")
    if LIBGPIOD_2
    else (
        ("GPIO_GET_LINEHANDLE_IOCTL", "GPIOHANDLE_REQUEST_OUTPUT"),
        "GPIOHANDLE_SET_LINE_VALUES_IOCTL",
    )
)


def text_of(error: str) -> str:
    """The system's text for an error such as "EIO"."""
    return os.strerror(getattr(errno, error))


def calls_of_start(rig: Rig) -> list[str]:
    """What a full server calls from its begin to its first tick, as strace writes it."""
    log = rig.folder / "calls"
    rig.configure("test.battery=true")
    rig.daemon(before=("strace", "--daemonize", "--output", str(log)))
    wait_until(lambda: log.exists() and "clock_nanosleep(" in log.read_text(), within=2)
    return log.read_text().splitlines()


def nth_call(calls: Sequence[str], pattern: str, occurrence: int = 1) -> tuple[str, int]:
    """The name of the call that matches for the n-th time, and its number among its like."""
    index = [i for i, call in enumerate(calls) if re.match(pattern, call)][occurrence - 1]
    name = calls[index].partition("(")[0]
    return name, sum(call.startswith(f"{name}(") for call in calls[: index + 1])


def failing(log: Path, *faults: str) -> tuple[str, ...]:
    """What to put before a command line. The program stays the child of who starts it."""
    return ("strace", "--daemonize", *_words(log, faults))


def fail_from_now_on(program: Program, log: Path, *faults: str) -> Program:
    """Lets calls of a running program fail; they count from here. To be used with `with`."""
    strace = Program(["strace", "--attach", str(program.pid), *_words(log, faults)])
    strace.wait_for_line(f"strace: Process {program.pid} attached", within=1, stream="stderr")
    return strace


def has_failed(log: Path) -> list[str]:
    """The calls that were tampered with."""
    return [call for call in log.read_text().splitlines() if call.endswith(_MARKS)]


def _words(log: Path, faults: Sequence[str]) -> list[str]:
    names = ",".join(fault.partition(":")[0] for fault in faults)
    return ["--output", str(log), f"--trace={names}", *(f"--inject={fault}" for fault in faults)]
