"""What only a simulated world can let happen, put into lives.

Supplies that are coupled; other lines of the same name; a calendar that turns where the program
looks; things done at the very instant of another or of what the daemon does; calls that fail,
signals and changes of a line between two of them; a chip that is unplugged. They have random
numbers of their own, so that the rest of a seed's life is as on the board.
"""

import errno
import random

_MILLISECOND = 10**6
# The calendar's second begins so long before the clock's.
_CALENDARS = (0, 1, 999_999_999, *(n * 25 * _MILLISECOND for n in (1, 5, 13, 25, 33)))
_CALLS = ("get_value", "get_value", "set_value", "set_value")
_CALLS += ("nanosleep", "fopen", "write", "system")
_NTH = (1, 1, 2, 3, 4, 5, 20, 21, 22, 23, 100)


def add(life: dict) -> None:
    choose = random.Random(f"accidents of {life['seed']}")
    life["coupled"] = choose.random() < 0.25
    life["before"] = _others(choose) if choose.random() < 0.08 else {}
    life["behind"] = _others(choose) if choose.random() < 0.08 else {}
    if choose.random() < 0.5:
        life["calendar"] = choose.choice(_CALENDARS)
    for step in life["steps"]:
        if choose.random() < 0.3:
            step["exact"] = choose.choice(("before", "behind"))
        elif choose.random() < 0.1:
            step["at_once"] = True
        if step["do"] == "start" and choose.random() < 0.04:
            step["fault"] = _fault_at_start(choose)
    if choose.random() < 0.5:
        for _ in range(choose.choice((1, 1, 2, 3))):
            _insert(choose, life["steps"], {"do": "trigger", **_trigger(choose)})
    if choose.random() < 0.02:
        _insert(choose, life["steps"], {"do": "unplug"})


def _others(choose: random.Random) -> dict:
    """Lines of the same names on another chip, with their levels."""
    names = choose.sample(("PWR-IN", "BAT-T1", "BAT-T2", "BAT-SW"), choose.choice((1, 1, 2, 4)))
    return {name: choose.choice((0, 0, 1)) for name in names}


def _insert(choose: random.Random, steps: list, step: dict) -> None:
    place = choose.randrange(1, len(steps) + 1)
    after = choose.choice((0, 1, 2, 5, 20))
    steps.insert(place, {"after": after, "tenth": choose.randrange(1, 9), **step})


def _fault_at_start(choose: random.Random) -> dict:
    if choose.random() < 0.4:
        # A signal before anything is read.
        kinds = (
            {"call": "shm_open", "nth": 1, "error": errno.EACCES},
            {"call": "fopen", "nth": 1, "signal": choose.choice((2, 15))},
        )
        return choose.choice(kinds)
    return {"call": "request_line", "nth": choose.randrange(1, 5), "error": errno.EIO}


def _trigger(choose: random.Random) -> dict:
    """Of calls that the daemon makes from then on."""
    nth = choose.choice(_NTH)
    signal = {"signal": choose.choice((2, 15)), "behind": choose.random() < 0.5}
    call = choose.choice(_CALLS)
    if call == "get_value":
        line = {"line": choose.choice(("PWR-IN", "BAT-T1")), "level": choose.randrange(2)}
        kinds = {"error": errno.EIO}, signal, {**line, "behind": True}, {**line, "behind": False}
        return {"call": call, "nth": nth, **choose.choice(kinds)}
    if call == "set_value":
        # What drives BAT-T2 to 1, and back to 0.
        kinds = {"error": errno.EIO}, signal
        return {"call": call, "nth": choose.choice((1, 1, 2, 3)), **choose.choice(kinds)}
    if call == "nanosleep":
        slept = choose.choice((0, 1, 3 * _MILLISECOND))
        error = choose.choice((errno.EINTR, errno.EINTR, errno.EINVAL))
        times = choose.choice((1, 2))
        return {"call": call, "nth": nth, "error": error, "slept": slept, "times": times}
    if call == "system":
        return {"call": call, "nth": 1, **choose.choice(({"error": errno.EAGAIN}, {"signal": 15}))}
    return {"call": call, "nth": choose.choice((1, 2)), "error": errno.ENOSPC}
