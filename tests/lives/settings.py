"""The model's settings: where each value comes from and which source wins."""

import re
from typing import Callable, NamedTuple, Optional, Sequence

_TRUE, _FALSE = {"", "true", "yes", "on", "1"}, {"false", "no", "off", "0"}
BITS = {
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
    "sys.board.path": "/proc/device-tree/info/base-board",
    "result.start": 0,
    "result.end": 0,
}
_COMMAND_LINE = [name for name in DEFAULTS if name.startswith(("gpio.", "test."))]


class Loaded(NamedTuple):
    values: Optional[dict]  # None: the start ends with status 1
    stdout: list[str]
    stderr: list  # None stands for a text that is the option library's own


class Broken(Exception):
    """A text that ends the start."""


def load(
    words: Sequence[Sequence[str]],
    files: Sequence[tuple],
    result_file: Optional[str],
    before_files: Callable = lambda: None,
) -> Loaded:
    """From the pairs on the command line, the files as (path, pairs), and the result file.

    `before_files` is called before the first file is opened, which a faulty command line prevents.
    """
    given: dict = {}
    stdout: list[str] = []
    stderr: list = []
    try:
        if any(name not in _COMMAND_LINE or value == "" for name, value in words):
            raise Broken
        _take(given, words)
        before_files()
        for path, pairs in files:
            stdout += _file(given, path, pairs, DEFAULTS)
        if result_file is None:
            stderr.append("Cant read timestamp conf")
        else:
            path = given.get("sys.save.path", DEFAULTS["sys.save.path"])
            pairs = [line.split("=", 1) for line in result_file.splitlines()]
            stdout += _file(given, path, pairs, _RESULT)
    except Broken:
        return Loaded(None, stdout, [None])
    values = {**DEFAULTS, **given}
    if values["test.shut.cmd"] not in ("reboot", "poweroff"):
        values["test.shut.cmd"] = "reboot"
    return Loaded(values, stdout, stderr)


def _file(given: dict, path: str, pairs: Sequence, known: Sequence[str]) -> list[str]:
    if any(len(pair) != 2 for pair in pairs):
        raise Broken
    _take(given, [(name, value.strip()) for name, value in pairs if name in known])
    return [f"Unknown option in {path}: {name}" for name, _ in pairs if name not in known]


def _take(given: dict, pairs: Sequence) -> None:
    """What an earlier source has given is final: more values for it are not even looked at."""
    new = [(name, value) for name, value in pairs if name not in given]
    if len(dict(new)) < len(new):
        raise Broken
    given.update({name: _converted(name, value) for name, value in new})


def _converted(name: str, text: str):
    default = DEFAULTS[name]
    if isinstance(default, bool):
        if text.lower() not in _TRUE | _FALSE:
            raise Broken
        return text.lower() in _TRUE
    if isinstance(default, int):
        if not re.fullmatch("[+-]?[0-9]+", text):
            raise Broken
        return _in_range(name, int(text))
    return text


def _in_range(name: str, number: int) -> int:
    """The range of an unsigned number is that of its digits; its sign then makes it wrap."""
    if name not in BITS:
        if not -(1 << 31) <= number < 1 << 31:
            raise Broken
        return number
    if abs(number) >= 1 << BITS[name]:
        raise Broken
    return number % (1 << BITS[name])


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
