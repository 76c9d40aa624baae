"""Values that are repeated, misspelt or written in unusual ways, put into some lives.

They have random numbers of their own, so that the rest of a seed's life is not drawn anew.
"""

import random

from settings import BITS, DEFAULTS

_MISSPELT = ("abc", "", "maybe", "0x10", "1e3", "5 6", "-", "--1", "18446744073709551616")
_TRUE, _FALSE = ("Yes", "oN", "TRUE", "1"), ("nO", "Off", "FALSE", "0")


def add(life: dict) -> None:
    choose = random.Random(f"oddities of {life['seed']}")
    sources = [life["words"], *life["confs"]]
    if choose.random() < 0.15:
        _repeat(choose, sources)
    if choose.random() < 0.2:
        source = choose.choice(sources)
        _respell(choose, source, in_file=source is not life["words"])
    if choose.random() < 0.02:
        choose.choice(sources).append([choose.choice(tuple(DEFAULTS)), choose.choice(_MISSPELT)])
    for step in life["steps"]:
        if step["do"] == "client" and choose.random() < 0.1:
            _respell(choose, step["words"], in_file=False)
    if life["result"] and choose.random() < 0.1:
        life["result"] = _wrapped(life["result"])


def _repeat(choose: random.Random, sources: list) -> None:
    """What an earlier source has given, once or twice more. Clients have not been given it
    where it stands on the daemon's command line."""
    first = choose.randrange(len(sources) - 1)
    if sources[first]:
        name = choose.choice(sources[first])[0]
        later = choose.choice(sources[first + 1 :])
        later += [[name, choose.choice(_MISSPELT)] for _ in range(choose.choice((1, 2)))]


def _respell(choose: random.Random, source: list, in_file: bool) -> None:
    """The same value in other letters, where one of the source has any."""
    pairs = [pair for pair in source if isinstance(pair[1], str)]
    if not pairs:
        return
    pair = choose.choice(pairs)
    name, text = pair
    default = DEFAULTS.get(name)
    if isinstance(default, bool):
        is_true = text.lower() in ("true", "yes", "on", "1")
        pair[1] = choose.choice((*_TRUE, "") if is_true and in_file else _TRUE if is_true else _FALSE)
    elif isinstance(default, int) and text.isdigit():
        number = int(text)
        spellings = [f"+{number}", f"00{number}"]
        if name in BITS:
            spellings += [_negative(number, BITS[name])] * 3
        pair[1] = choose.choice(spellings)
    if in_file and choose.random() < 0.5:
        pair[1] = f" {pair[1]}\t"


def _negative(number: int, bits: int) -> str:
    """What wraps around to the number."""
    return str(number - (1 << bits)) if number else "-0"


def _wrapped(result_file: str) -> str:
    lines = [line.split("=", 1) for line in result_file.splitlines()]
    return "".join(
        f"{name}={_negative(int(value), BITS[name]) if name in BITS else value}\n"
        for name, value in lines
    )
