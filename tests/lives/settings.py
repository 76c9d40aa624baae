"""The model's settings: where each value comes from and which source wins."""

from typing import NamedTuple, Optional, Sequence

_TRUE, _FALSE = {"", "true", "yes", "on", "1"}, {"false", "no", "off", "0"}
_BITS = {
    "test.period": 32,
    "test.duration": 16,
    "test.init.disable": 16,
    "test.shut.timeout": 32,
    "test.shut.cutoff": 32,
    "result.start": 64,
    "result.end": 64,
}
_RESULT = ("result.start", "result.end")

DEFAULTS = {
    "gpio.pwr-in": "PWR-IN",
    "gpio.at1": "BAT-T1",
    "gpio.at2": "BAT-T2",
    "gpio.bat-sw": "BAT-SW",
    "test.battery": False,
    "test.external-scheduling": False,
    "test.period": 1209600,
    "test.hour": 10,
    "test.duration": 600,
    "test.init.disable": 600,
    "test.shut.timeout": 120,
    "test.shut.cutoff": 120,
    "test.shut.cmd": "reboot",
    "sys.save.path": "/usr/local/etc/kelvo/kelvo-pwr.dat",
    "result.start": 0,
    "result.end": 0,
}


class Loaded(NamedTuple):
    values: Optional[dict]  # None: the start ends with status 1
    stdout: list[str]
    stderr: list  # None stands for a text that is the option library's own


class Broken(Exception):
    """A text that ends the start."""


def load(
    words: Sequence[Sequence[str]], files: Sequence[tuple], result_file: Optional[str]
) -> Loaded:
    """From the pairs on the command line, the files as (path, pairs), and the result file."""
    given: dict[str, str] = {}
    stdout: list[str] = []
    try:
        _take(given, dict(words))
        for path, pairs in files:
            stdout += _file(given, path, pairs, [*DEFAULTS, "sys.board.path"])
        stderr = []
        values = _typed(given)
        if result_file is None:
            stderr.append("Cant read timestamp conf")
        else:
            pairs = [line.split("=", 1) for line in result_file.splitlines()]
            stdout += _file(given, values["sys.save.path"], pairs, _RESULT)
        return Loaded(_typed(given), stdout, stderr)
    except Broken:
        return Loaded(None, stdout, [None])


def _file(given: dict, path: str, pairs: Sequence, known: Sequence[str]) -> list[str]:
    names = [pair[0] for pair in pairs if pair[0] in known]
    if any(len(pair) != 2 for pair in pairs) or len(names) != len(set(names)):
        raise Broken
    _take(given, {name: value for name, value in pairs if name in known})
    _typed(given)
    return [f"Unknown option in {path}: {name}" for name, _ in pairs if name not in known]


def _take(given: dict, more: dict) -> None:
    """The first source that gives a value is the last word."""
    for name, value in more.items():
        given.setdefault(name, value)


def _typed(given: dict) -> dict:
    values = dict(DEFAULTS)
    for name, text in given.items():
        default = DEFAULTS.get(name)
        if isinstance(default, bool):
            if text.lower() not in _TRUE | _FALSE:
                raise Broken
            values[name] = text.lower() in _TRUE
        elif isinstance(default, int):
            try:
                values[name] = int(text)
            except ValueError:
                raise Broken from None
            if name in _BITS and values[name] >= 1 << _BITS[name]:
                raise Broken
        else:
            values[name] = text
    if values["test.shut.cmd"] not in ("reboot", "poweroff"):
        values["test.shut.cmd"] = "reboot"
    return values


def listing(values: dict, run_test: bool, run_test_now: bool) -> list[str]:
    """What --verbose prints; its order and one of its labels are not those of the options."""

    def word(flag: bool) -> str:
        return "true" if flag else "false"

    def signed(value: int) -> int:
        return value - (1 << 32) if value >= 1 << 31 else value

    rows = [("run-test", word(run_test)), ("run-test-now", word(run_test_now))]
    rows += [(key, values[key]) for key in ("gpio.pwr-in", "gpio.at1", "gpio.at2", "gpio.bat-sw")]
    rows += [
        ("test.battery", word(values["test.battery"])),
        ("test.external_scheduling", word(values["test.external-scheduling"])),
        ("test.hour", values["test.hour"]),
    ]
    for key in ("period", "duration", "init.disable", "shut.timeout", "shut.cutoff"):
        rows.append((f"test.{key}", f"{signed(values['test.' + key])} seconds"))
    rows += [
        ("test.shut.cmd", values["test.shut.cmd"]),
        ("startTimestamp", values["result.start"]),
        ("endTimestamp", values["result.end"]),
    ]
    return [f"{label:<24} : {value}" for label, value in rows]
