"""How the end of a board is told by its kernel's messages; run by pytest on the host."""

import pytest

from host.last_words import is_restart, reason_of_end

BEFORE = """\
Run /board/guest/init.py as init process
userspace - ptrace set fp regs failed, errno = 14

"""
AFTER = """\

CPU: 0 PID: 1 Comm: init.py Not tainted 6.1.170 #1
Stack: Kernel panic
"""


@pytest.mark.parametrize(
    "panic, reason",
    [
        (
            "Attempted to kill init! exitcode=0x0000000b",
            "the first process was killed by signal 11 (Segmentation fault)",
        ),
        (
            "Attempted to kill init! exitcode=0x00000086",
            "the first process was killed by signal 6 (Aborted)",
        ),
        ("Attempted to kill init! exitcode=0x00000100", "the first process ended, with status 1"),
        (
            "Requested init /board/guest/init.py failed (error -2).",
            "the kernel gave up: Requested init /board/guest/init.py failed (error -2).",
        ),
    ],
)
def test_a_panic_is_told_as_what_it_is(panic, reason):
    messages = f"{BEFORE}Kernel panic - not syncing: {panic}\r\n{AFTER}"
    assert reason_of_end(messages) == reason


def test_no_panic():
    assert reason_of_end(BEFORE) == "ended without an outcome"


@pytest.mark.parametrize("last, restarts", [("System halted", False), ("Restarting system", True)])
def test_a_restart_is_told_from_an_end(last, restarts):
    assert is_restart(f"{BEFORE}[  126.110000] reboot: {last}\r\n\n") == restarts
