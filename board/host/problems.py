"""Why a run of the board can fail for reasons of its own, and how it then ends."""

import sys
from typing import Callable

_FAILED, _SKIPPED = 125, 77


class Unavailable(Exception):
    """This host cannot run the board; says what is missing."""


class BoardFailure(Exception):
    """The board did not do what it should; says what happened."""


def status_of(action: Callable[[], int]) -> int:
    """What the action returns, or the exit status for its failure, which is reported."""
    try:
        return action()
    except Unavailable as reason:
        print(f"SKIP: {reason}", file=sys.stderr)
        return _SKIPPED
    except BoardFailure as reason:
        print(f"board: {reason}", file=sys.stderr)
        return _FAILED
