"""How a daemon ends by signals."""

import re
import signal

from guest.lines import AT2, BAT_SW

INT, TERM = signal.SIGINT, signal.SIGTERM

INTERRUPTED = "Interrupted with signal: {}\n"
DURING_TEST = "Interrupted while doing battery test\nPower restored\n"


def ended(rig, daemon):
    """Status and texts of a daemon that a signal ended, and what it wrote to both outputs."""
    status = daemon.wait_for_exit(within=60)
    text = re.sub(r"MS: \d+", "MS: N", daemon.stdout)
    levels = tuple([level for _, level in rig.trace.writes(name)] for name in (AT2, BAT_SW))
    rig.trace.clear()
    return status, text, daemon.stderr, levels


def said(calls):
    """What these calls have written to standard output."""
    texts = (re.match(r'write\(1, "(.*)\\n", \d+\)', call.text) for call in calls)
    return "".join(re.sub(r"MS: \d+", "MS: N", text[1]) + "\n" for text in texts if text)


def interrupted(calls, i, is_testing):
    """What is printed in all when SIGTERM arrives at the end of that call.

    A line that is being written then is written a second time, in front of the handler's.
    """
    again = said(calls[i : i + 1])
    handler = INTERRUPTED.format(15) + (DURING_TEST if is_testing else "")
    return said(calls[: i + 1]) + again + handler
