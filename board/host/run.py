"""`board run` and `board system`: one command on the board, its output and status passed on."""

import os
import shutil
from pathlib import Path
from typing import BinaryIO, Optional, Sequence

from host.machine import Machine, task
from host.problems import BoardFailure
from host.processor import take_processor

# Every wait inside takes no time outside; so a program that waits for what never
# comes would be waited for in vain without this.
_LONGEST_BOARD_SECONDS = 400 * 24 * 60 * 60

# On the host's clock; it takes about one.
_LONGEST_BOOT_SECONDS = 300


def run(
    kernel: Path,
    scratch: Path,
    command: Sequence[str],
    longest_seconds: float,
    realtime: bool = False,
    coupled: bool = False,
    keep: Optional[Path] = None,
    root: Optional[Path] = None,
    prepare: str = "",
) -> int:
    """Returns the command's status; `keep` gets what the command left in BOARD_OUTPUT.

    With a `root` the command runs in the Debian there, booted by systemd after the piece
    of shell `prepare` has been run in it.
    """
    if not realtime:
        take_processor()
    output = scratch / "output"
    output.mkdir()
    # When both go to one place, such as a terminal, their order is to be kept.
    together = os.path.sameopenfile(1, 2)
    outputs = {1: "stdout", 2: "stdout" if together else "stderr"}
    work = task(
        command,
        outputs,
        realtime=realtime,
        coupled=coupled,
        # Coupled, a BAT-T2 pulled to 1 would keep AC power away from the start.
        natural_pulls=coupled,
        longest_seconds=_LONGEST_BOARD_SECONDS,
        environment={"BOARD_OUTPUT": str(output)},
    )
    if root is None:
        machine = Machine(kernel, scratch, work)
    else:
        work.update(root=str(root), prepare=prepare)
        # Half of it is for what is installed there.
        machine = Machine(kernel, scratch, work, init="debian_init.py", megabytes=512)
    descriptors = (1,) if together else (1, 2)
    files = [(number, (scratch / outputs[number]).open("rb")) for number in descriptors]

    def pass_on() -> None:
        for descriptor, file in files:
            _copy(file, descriptor)

    try:
        return machine.wait(pass_on, longest_seconds)
    finally:
        # A run that fails may have left what explains it.
        if keep is not None:
            if root is not None:
                shutil.copy(machine.kernel_messages, output)
            _keep(output, keep)


def boot(kernel: Path, scratch: Path) -> int:
    """Shows that the kernel boots: has it run `true`."""
    try:
        return run(kernel, scratch, ["true"], longest_seconds=_LONGEST_BOOT_SECONDS)
    except BoardFailure as reason:
        raise BoardFailure(f"{kernel} does not boot: {reason}") from None


def _copy(file: BinaryIO, descriptor: int) -> None:
    try:
        while chunk := file.read(1 << 16):
            while chunk:
                chunk = chunk[os.write(descriptor, chunk) :]
    except BrokenPipeError:
        raise BoardFailure("nobody reads the output any more") from None


def _keep(output: Path, folder: Path) -> None:
    try:
        shutil.copytree(output, folder, dirs_exist_ok=True)
    except OSError as error:
        raise BoardFailure(f"the output cannot be kept: {error}") from None
