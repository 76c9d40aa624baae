"""Programs under observation in the simulated world."""

import os
import re
import signal
from typing import Mapping, Optional, Sequence, Union

from guest import record
from guest.clock import now, sleep_until
from guest.seen import PrintedLine, SeenProgram
from simulator import simulator

_SECOND = 10**9


class Program(SeenProgram):
    """A simulated program, as far as its first sleep; as the board's otherwise."""

    def __init__(
        self,
        argv: Sequence[str],
        env: Optional[Mapping[str, str]] = None,
        directory: Optional[str] = None,
    ):
        self.argv = [str(argument) for argument in argv]
        self._lines: list[PrintedLine] = []
        self._read = {"stdout": 0, "stderr": 0}
        self._unfinished = {"stdout": b"", "stderr": b""}
        self._searched = {"stdout": 0, "stderr": 0}
        self.started = now()
        self._process = simulator().start(self.argv, {**os.environ, **(env or {})}, directory)
        self.pid = self._process.pid

    @property
    def lines(self) -> list[PrintedLine]:
        """Of both streams, in the order of their ends."""
        for event in record.printed(self.pid):
            self._append(event.time, event.subject, event.value)
        if self.ended is not None:
            for stream in self._read:
                self._append(self.ended, stream, None)
        return self._lines

    def text(self, stream: str, begin: int = 0, end: Optional[int] = None) -> str:
        """These bytes of a stream."""
        return self._process.output(stream, begin, end).decode(errors="backslashreplace")

    @property
    def stdout(self) -> str:
        return self.text("stdout")

    @property
    def stderr(self) -> str:
        return self.text("stderr")

    @property
    def ended(self) -> Optional[int]:
        return self._process.ended

    @property
    def returncode(self) -> Optional[int]:
        return self._process.status

    def wait_for_line(
        self, text: Union[str, re.Pattern], within: float, stream: str = "stdout"
    ) -> PrintedLine:
        """As the board's; the time is then that of the line, if it was still to come."""
        pattern = re.compile(re.escape(text)) if isinstance(text, str) else text
        end = now() + round(within * _SECOND)
        while True:
            lines = self.lines
            while self._searched[stream] < len(lines):
                line = lines[self._searched[stream]]
                self._searched[stream] += 1
                if line.stream == stream and pattern.fullmatch(line.text):
                    return line
            if self.returncode is not None:
                raise AssertionError(self._report(f"ended without a line {text!r} on {stream}"))
            if now() >= end:
                problem = f"waited {within} seconds for a line {text!r} on {stream}"
                raise AssertionError(self._report(problem))
            simulator().go(end, at_output=True)

    def wait_for_exit(self, within: float) -> int:
        end = now() + round(within * _SECOND)
        while self.returncode is None:
            if now() >= end:
                raise AssertionError(self._report(f"waited {within} seconds for its end"))
            simulator().go(end, at_output=True)
        return self.returncode

    def send(self, number: int) -> None:
        """Sends a signal to the program alone; returns when it has been handled."""
        simulator().signal(self._process, number)

    def end(self, within: float) -> None:
        if self.returncode is None:
            self.send(signal.SIGTERM)
            sleep_until(now() + round(within * _SECOND) if self.returncode is None else now())
        self.kill()

    def kill(self) -> None:
        """Kills the program and everything it started; no error if it has ended."""
        simulator().kill(self._process)

    def _append(self, time: int, stream: str, end: Optional[int]) -> None:
        """The lines up to there; an unfinished one at the end of all."""
        text = self._unfinished[stream] + self._process.output(stream, self._read[stream], end)
        self._read[stream] += len(text) - len(self._unfinished[stream])
        *complete, rest = text.split(b"\n")
        if end is None and rest:
            complete, rest = [*complete, rest], b""
        self._unfinished[stream] = rest
        self._lines += [
            PrintedLine(time, stream, line.decode(errors="backslashreplace")) for line in complete
        ]


run = Program.run
