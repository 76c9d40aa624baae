"""A processor for each board.

The board's kernel and its programs hand over to each other at each system call, which takes twice
as long from one processor to another.
"""

import os
import socket


def take_processor() -> None:
    """Keeps this process, and what it starts, on a processor that no other board has taken.

    Until this process ends; where all are taken it stays on any.
    """
    for number in sorted(os.sched_getaffinity(0)):
        # A name that one process at a time can have, and that goes with it.
        name = socket.socket(socket.AF_UNIX)
        try:
            name.bind(f"\0kelvo-board-processor-{number}")
        except OSError:
            name.close()
            continue
        os.sched_setaffinity(0, {number})
        name.detach()
        return
