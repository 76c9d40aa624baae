"""What is seen of programs, lines and the shared records."""

from typing import NamedTuple, Optional

# The fields of the two records, with what stands for their types in `struct`.
FIELDS = {
    "count": "I",
    "missingPower": "B",
    "batteryEmpty": "B",
    "batteryBad": "B",
    "testing": "B",
    "runTest": "B",
    "runTestNow": "B",
    "duration": "H",
}


class PrintedLine(NamedTuple):
    time: int  # nanoseconds on the monotonic clock, when its end arrived
    stream: str  # "stdout" or "stderr"
    text: str  # without its line end


class Result(NamedTuple):
    stdout: str
    stderr: str
    status: int  # negative: ended by that signal


class Call(NamedTuple):
    name: str
    arguments: list[str]
    time: int  # nanoseconds on the monotonic clock
    wall: int  # nanoseconds since the Unix epoch


class Event(NamedTuple):
    time: int  # nanoseconds on the monotonic clock, rounded to a microsecond
    kind: str  # "read", "write", "input" or "output"; the last two set the direction
    line: Optional[str]
    level: Optional[int]  # None when the direction is set
    process: int
