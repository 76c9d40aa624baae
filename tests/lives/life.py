"""Makes a life of the board from a seed.

A life is plain data, so that it can be printed, shortened and played again: what the
board is like, what the daemon is told, and the steps. A step says how many seconds
after the one before, in which tenth of that second, and what is done then.
"""

import random
from datetime import datetime, timezone

import accidents
import oddities

_SHUTDOWN_WAITS = (0, 5, 14, 15, 16, 17, 19, 20, 30, 120)
_DURATIONS = (0, 1, 2, 3, 5, 10, 30, 30, 60, 600)
_PERIODS = (0, 5, 20, 60, 60, 600, 3600, 86_400, 1_209_600, (1 << 32) - 1)
# In seconds; on the board a life begins when the one before has ended.
_UPTIMES = (0, 5, 60, 590, 599, 600, 3_000, 65_000, 70_000, 4_000_000)


def make(seed: int, is_simulated: bool) -> dict:
    choose = random.Random(seed)
    wall = _wall(choose)
    zone = choose.choice(("UTC", "Europe/Berlin", "Asia/Tokyo", "America/New_York"))
    confs, words = _settings(choose, wall)
    life = {
        "seed": seed,
        "wall": wall,
        "zone": zone,
        "held": _held(choose),
        "command_seconds": choose.choice((0, 0, 0, 7, 40)),
        "command_status": choose.choice((0, 0, 1)),
        "confs": confs,
        "words": words,
        "result": _result(choose, wall),
        "steps": _steps(choose, wall),
    }
    oddities.add(life)
    life["uptime"] = random.Random(f"uptime of {seed}").choice(_UPTIMES)
    if is_simulated:
        accidents.add(life)
    return life


def _wall(choose: random.Random) -> int:
    """Often just before a full hour, sometimes before a zone turns its clocks."""
    if choose.random() < 0.15:
        turn = choose.choice((datetime(2026, 3, 29, 1), datetime(2026, 10, 25, 1)))
        whole = int(turn.replace(tzinfo=timezone.utc).timestamp())
    else:
        whole = choose.randrange(400_000, 560_000) * 3600
    return whole - choose.choice((0, 1, 10, 60, 600, 1800)) - choose.randrange(20)


def _held(choose: random.Random) -> list[str]:
    """Lines that another process has."""
    held = []
    if choose.random() < 0.06:
        held.append(choose.choice(("BAT-T1", "BAT-T2", "BAT-SW")))
    if choose.random() < 0.02:
        held.append("PWR-IN")
    return held


def _settings(choose: random.Random, wall: int):
    """Spread over the command line and two files; one key in three stands in several."""
    values = _values(choose, wall)
    confs: list[list] = [[], []]
    words: list = []
    for name, value in values.items():
        choose.choice((confs[0], confs[0], confs[1], words)).append([name, value])
        # The winner is drawn again: whichever source stands first counts.
        if choose.random() < 0.33:
            other = _values(choose, wall).get(name, value)
            for source in (words, confs[0], confs[1]):
                if name not in (pair[0] for pair in source) and choose.random() < 0.5:
                    source.append([name, other])
    if choose.random() < 0.1:
        confs[choose.randrange(2)].append([choose.choice(("foo.bar", "verbose", "conf")), "1"])
    if choose.random() < 0.03:
        confs[1].append(["result.start", str(wall - choose.choice((10, 100, 5000)))])
    return confs, words


def _values(choose: random.Random, wall: int) -> dict:
    on = choose.choice(("true", "yes", "on", "1", "TRUE"))
    off = choose.choice(("false", "no", "off", "0"))
    values = {
        "test.battery": on if choose.random() < 0.92 else off,
        "test.external-scheduling": on if choose.random() < 0.4 else off,
        "test.period": str(choose.choice(_PERIODS)),
        "test.hour": str(choose.choice((-1, 24, *range(24)))),
        "test.duration": str(choose.choice(_DURATIONS)),
        "test.init.disable": choose.choice(
            ("0", "0", "0", "600", "65535", ["after the begin", choose.randrange(60)])
        ),
        "test.shut.timeout": str(choose.choice((*_SHUTDOWN_WAITS, 1000, (1 << 32) - 1))),
        "test.shut.cutoff": str(choose.choice(_SHUTDOWN_WAITS)),
        "test.shut.cmd": choose.choice(("reboot", "poweroff", "poweroff", "halt", "Poweroff")),
    }
    if choose.random() < 0.5:
        # The hour that it is, or comes soon, where the board stands.
        shift = choose.choice((0, 1, 2, 9, -4, -5))
        values["test.hour"] = str((wall // 3600 + shift + choose.choice((0, 0, 1))) % 24)
    for name in choose.sample(tuple(values), choose.randrange(4)):
        if name != "test.battery":
            del values[name]
    if choose.random() < 0.05:
        name = choose.choice(("gpio.at1", "gpio.at2", "gpio.bat-sw"))
        values[name] = choose.choice(("NO-SUCH-LINE", "PWR-IN", "bat-t1"))
    if choose.random() < 0.02:
        values["gpio.pwr-in"] = "NO-SUCH-LINE"
    return values


def _result(choose: random.Random, wall: int):
    """What an earlier life has left in the result file, or None."""
    start = wall - choose.choice((-100_000, -1, 0, 3, 10, 50, 100, 3600, 86_400, 2_000_000))
    return choose.choice(
        (
            None,
            None,
            f"result.start={start}\nresult.end={start + 5}\n",
            f"result.start={start}\nresult.end={start + 5}\n",
            f"result.start={start}\n",
            f"foo=1\nresult.start={start}\ngpio.at1=X\n",
            "",
        )
    )


def _steps(choose: random.Random, wall: int) -> list[dict]:
    steps = [_step(choose, {"do": "start", "verbose": choose.random() < 0.1}, 0)]
    if choose.random() < 0.1:
        steps.insert(0, _step(choose, _action(choose, wall)))
    for _ in range(choose.randrange(4, 16)):
        steps.append(_step(choose, _sequel(choose, steps[-1]) or _action(choose, wall)))
    if choose.random() < 0.01:
        # A long quiet span.
        steps[-1]["after"] = choose.randrange(20_000, 100_000)
    return steps


def _step(choose: random.Random, action: dict, after=None) -> dict:
    if after is None:
        after = choose.choice((0, 0, 1, 1, 2, 3, 5, 10, 17, 40, 70, 130, 300))
        if after == 300 and choose.random() < 0.2:
            after = choose.randrange(600, 2000)
    return {"after": after, "tenth": choose.randrange(1, 9), **action}


def _sequel(choose: random.Random, last: dict):
    """What hits a daemon in the middle of something, or None."""
    if last["do"] == "outage" and choose.random() < 0.25:
        return {"do": "post", "fields": {"batteryEmpty": choose.choice((0, 2, 255))}}
    asked = last["do"] == "post" or "run-test-now" in last.get("flags", ())
    if asked and choose.random() < 0.15:
        return {"do": "signal", "number": choose.choice((2, 15))}
    return None


def _action(choose: random.Random, wall: int) -> dict:
    kinds = {
        "ac": 5,
        "battery": 4,
        "outage": 3,
        "client": 7,
        "post": 5,
        "signal": 3,
        "start": 4,
        "wall": 2,
        "result": 1,
        "look": 1,
    }
    (kind,) = choose.choices(tuple(kinds), tuple(kinds.values()))
    if kind == "ac":
        return {"do": "ac", "on": choose.random() < 0.55}
    if kind == "battery":
        return {"do": "battery", "good": choose.random() < 0.6}
    if kind == "outage":
        return {"do": "outage"}
    if kind == "client":
        return _client(choose)
    if kind == "post":
        return {"do": "post", "fields": _fields(choose)}
    if kind == "signal":
        return {"do": "signal", "number": choose.choice((2, 15, 15, 9))}
    if kind == "start":
        return {"do": "start", "verbose": choose.random() < 0.1}
    if kind == "wall":
        return {"do": "wall", "by": _clock_step(choose)}
    if kind == "result":
        text = choose.choice((_result(choose, wall), "result.start=abc\n", "nonsense\n"))
        return {"do": "result", "text": text}
    return {"do": "look"}


def _client(choose: random.Random) -> dict:
    flags = choose.choice(
        (
            ["run-test"],
            ["run-test"],
            ["run-test-now"],
            ["run-test-now"],
            ["run-test-now"],
            ["run-test", "run-test-now"],
            ["status", "run-test"],
            ["verbose", "run-test-now"],
            ["verbose", "status"],
        )
    )
    words = []
    if choose.random() < 0.7:
        words.append(["test.duration", str(choose.choice((*_DURATIONS, 65_536)))])
    if choose.random() < 0.3:
        words.append(["test.period", str(choose.choice(_PERIODS))])
    if choose.random() < 0.2:
        words.append(["test.init.disable", choose.choice(("0", "65535"))])
    return {"do": "client", "flags": flags, "words": words}


def _fields(choose: random.Random) -> dict:
    """What another process writes to the records; the daemon must trust it."""
    requests = (
        {"runTest": 1},
        {"runTestNow": 1},
        {"runTest": 1, "runTestNow": 1},
        {"duration": 0, "runTestNow": 1},
        {"duration": choose.choice((0, 1, 2, 7, 20, 90)), "runTest": 1},
        {"duration": choose.choice((1, 2, 7, 20, 90)), "runTestNow": 1},
        {"runTest": choose.choice((0, 2, 255)), "runTestNow": choose.choice((0, 2, 255))},
    )
    statuses = (
        {"batteryEmpty": 0},
        {"batteryEmpty": 255},
        {"count": choose.choice((2**31 - 2, 2**32 - 3))},
        {"batteryBad": choose.choice((0, 1, 2))},
        {"missingPower": choose.choice((0, 1, 2))},
        {"testing": choose.choice((0, 1, 2))},
    )
    return choose.choice(requests if choose.random() < 0.8 else statuses)


def _clock_step(choose: random.Random) -> int:
    span = choose.choice((1, 5, 60, 3600, 86_400, 1_209_600, 31_536_000))
    return choose.choice((-1, 1)) * span
