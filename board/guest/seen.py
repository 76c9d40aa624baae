"""What is seen of programs, lines and the shared records."""

from typing import Mapping, NamedTuple, Optional, Sequence

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


class SeenProgram:
    """What programs have in either world: `argv`, `lines`, `returncode` and `kill`."""

    @classmethod
    def run(
        cls,
        argv: Sequence[str],
        env: Optional[Mapping[str, str]] = None,
        directory: Optional[str] = None,
        within: float = 60,
    ) -> Result:
        """Runs a program that is expected to end by itself."""
        with cls(argv, env, directory) as program:
            status = program.wait_for_exit(within)
            return Result(program.stdout, program.stderr, status)

    def __enter__(self):
        return self

    def __exit__(self, *_) -> None:
        self.kill()

    def _report(self, problem: str) -> str:
        state = "still running" if self.returncode is None else f"status {self.returncode}"
        printed = "\n".join(
            f"  {line.time / 1e9:15.6f} {line.stream}: {line.text}" for line in self.lines
        )
        return f"{' '.join(self.argv)}: {problem} ({state}); printed so far:\n{printed}"


class SeenLines:
    """What traces have in either world: `events` and `close`."""

    def writes(self, line: str) -> list[tuple[int, int]]:
        """What was written to this line: pairs of time in nanoseconds and level."""
        return [
            (event.time, event.level)
            for event in self.events()
            if event.kind == "write" and event.line == line
        ]

    def __enter__(self):
        return self

    def __exit__(self, *_) -> None:
        self.close()
