"""What the kernel's messages say of the end of a board."""

import os
import re
import signal

_PANIC = re.compile(r"Kernel panic - not syncing: (.*)")
_RESTART = "reboot: Restarting system"
_FIRST_PROCESS = re.compile(r"Attempted to kill init! exitcode=0x([0-9a-f]{8})")


def reason_of_end(messages: str) -> str:
    """In one line, why a board has ended that left no outcome."""
    panic = _PANIC.search(messages)
    if panic is None:
        return "ended without an outcome"
    died = _FIRST_PROCESS.fullmatch(panic[1].rstrip())
    if died is None:
        return f"the kernel gave up: {panic[1].rstrip()}"
    code = os.waitstatus_to_exitcode(int(died[1], 16))
    if code < 0:
        return f"the first process was killed by signal {-code} ({signal.strsignal(-code)})"
    return f"the first process ended, with status {code}"


def is_restart(messages: str) -> bool:
    """Whether the board was to start again rather than to stay off."""
    return _RESTART in messages
