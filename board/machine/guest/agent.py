"""Links the machine with what stands around it, from early in the boot to its very end.

It tells of each level that is written to a line at once, so that the supply can answer, has what
is to happen outside at some moment happen then, and passes on the words of other programs. It is
ahead of all of them. Systemd leaves a process alone on the way down whose name begins with "@".
"""

import json
import os
import re
import select
import socket
import sys
import time
from pathlib import Path
from typing import Optional

from guest.mailbox import Mailbox
from guest.outside import SOCKET, tell_systemd

_TRACING = Path("/sys/kernel/tracing")
_INSTANCE = _TRACING / "instances/board"
_RECORD = re.compile(rb" (\d+)\.(\d{6}): gpio_value: (\d+) set (\d)")
# So that outside it is known how far the machine's time has come.
_BEAT_SECONDS = 20


def main() -> None:
    os.sched_setscheduler(0, os.SCHED_FIFO, os.sched_param(50))
    mailbox, writes = Mailbox(), follow_writes()
    server = socket.socket(socket.AF_UNIX)
    Path(SOCKET).unlink(missing_ok=True)
    server.bind(SOCKET)
    server.listen()
    answer = mailbox.ask({}, runs=True)
    tell_systemd("READY=1")
    while True:
        ready, _, _ = select.select([writes, server], [], [], seconds_until(answer.get("due")))
        if writes in ready:
            # It may be the last thing that happens, as what is due now may be.
            answer = mailbox.ask({"writes": records(os.read(writes, 65536))}, runs=True)
        elif server in ready:
            answer = serve(server, mailbox)
        else:
            is_beat = seconds_until(answer.get("due")) > 0
            answer = mailbox.ask({}, runs=is_beat or answer["cut"])


def seconds_until(due: Optional[int]) -> float:
    """Not more than a beat; `due` is on the monotonic clock, in nanoseconds."""
    if due is None:
        return _BEAT_SECONDS
    return min(_BEAT_SECONDS, max(0, (due - time.monotonic_ns()) / 1e9))


def serve(server: socket.socket, mailbox: Mailbox) -> dict:
    channel, _ = server.accept()
    with channel, channel.makefile("rb") as requests:
        request = json.loads(requests.readline())
        # What is printed need not be exact in time.
        answer = mailbox.ask(request, runs="output" in request)
        channel.sendall(json.dumps(answer).encode() + b"\n")
    return answer


def follow_writes() -> int:
    """What the kernel records of levels that are written to lines, beside all others' tracing."""
    if not _TRACING.is_mount():
        os.system(f"mount -t tracefs tracefs {_TRACING}")
    _INSTANCE.mkdir()
    for name, text in (
        ("trace_clock", "mono"),
        ("events/gpio/gpio_value/filter", "get == 0"),
        ("events/gpio/gpio_value/enable", "1"),
        # Whoever reads is told of the first byte.
        ("buffer_percent", "0"),
    ):
        (_INSTANCE / name).write_text(text)
    return os.open(_INSTANCE / "trace_pipe", os.O_RDONLY | os.O_NONBLOCK)


def records(text: bytes) -> list[list[int]]:
    """Time in nanoseconds, the kernel's number of the line, level."""
    found = (map(int, match.groups()) for match in _RECORD.finditer(text))
    return [[s * 10**9 + us * 1000, number, level] for s, us, number, level in found]


if __name__ == "__main__":
    if not sys.orig_argv[0].startswith("@"):
        os.execv("/usr/bin/python3", ["@outside", *sys.orig_argv[1:]])
    main()
