"""Programs under observation: what they print, when, and how they end."""

import os
import re
import signal
import subprocess
import threading
import time
from contextlib import suppress
from typing import Mapping, Optional, Sequence, Union

from guest.seen import PrintedLine, SeenProgram

# How long output may arrive after the end of the program that printed it.
_LAST_OUTPUT_SECONDS = 0.1


class Program(SeenProgram):
    """A running program with both outputs on pipes; a `with` statement kills it at the end.

    `env` is added to the present environment. Bounds (`within`) are in seconds; one
    that is missed raises an AssertionError that shows everything printed so far.
    """

    def __init__(
        self,
        argv: Sequence[str],
        env: Optional[Mapping[str, str]] = None,
        directory: Optional[str] = None,
    ):
        self.argv = [str(argument) for argument in argv]
        self.lines: list[PrintedLine] = []  # of both streams, in the order of arrival
        self.ended: Optional[int] = None  # nanoseconds on the monotonic clock
        self.returncode: Optional[int] = None  # negative: ended by that signal
        self._text = {"stdout": "", "stderr": ""}
        self._searched = {"stdout": 0, "stderr": 0}
        self._changed = threading.Condition()
        pipes = {"stdout": os.pipe(), "stderr": os.pipe()}
        self._readers = [
            threading.Thread(target=self._collect, args=(name, reading), daemon=True)
            for name, (reading, _) in pipes.items()
        ]
        for reader in self._readers:
            reader.start()
        self.started = time.monotonic_ns()
        try:
            self._process = subprocess.Popen(
                self.argv,
                stdin=subprocess.DEVNULL,
                stdout=pipes["stdout"][1],
                stderr=pipes["stderr"][1],
                env={**os.environ, **(env or {})},
                cwd=directory,
                start_new_session=True,
            )
        finally:
            for _, writing in pipes.values():
                os.close(writing)
        self.pid = self._process.pid
        self._waiter = threading.Thread(target=self._await_end, daemon=True)
        self._waiter.start()

    @property
    def stdout(self) -> str:
        return self._text["stdout"]

    @property
    def stderr(self) -> str:
        return self._text["stderr"]

    def wait_for_line(
        self, text: Union[str, re.Pattern], within: float, stream: str = "stdout"
    ) -> PrintedLine:
        """Waits for a line equal to `text`, or matching it as a whole if it is a pattern.

        Each call goes on behind the line that the last one found on the same stream.
        """
        pattern = re.compile(re.escape(text)) if isinstance(text, str) else text
        hit: list[PrintedLine] = []

        def look() -> bool:
            while not hit and self._searched[stream] < len(self.lines):
                line = self.lines[self._searched[stream]]
                self._searched[stream] += 1
                if line.stream == stream and pattern.fullmatch(line.text):
                    hit.append(line)
            return bool(hit) or self.returncode is not None

        self._wait(look, within, f"a line {text!r} on {stream}")
        if not hit:
            raise AssertionError(self._report(f"ended without a line {text!r} on {stream}"))
        return hit[0]

    def wait_for_exit(self, within: float) -> int:
        """Returns the status, when all output has arrived too."""
        self._wait(lambda: self.returncode is not None, within, "its end")
        return self.returncode

    def send(self, number: int) -> None:
        """Sends a signal to the program alone, not to what it has started."""
        self._process.send_signal(number)

    def end(self, within: float) -> None:
        """Has the program end itself as a service manager does, or kills it after that."""
        self.send(signal.SIGTERM)
        self._await(lambda: self.returncode is not None, within)
        self.kill()

    def kill(self) -> None:
        """Kills the program and everything it started; no error if it has ended."""
        try:
            os.killpg(self.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        self._waiter.join()

    def _wait(self, done, within: float, subject: str) -> None:
        if not self._await(done, within):
            with self._changed:
                raise AssertionError(self._report(f"waited {within} seconds for {subject}"))

    def _await(self, done, within: float) -> bool:
        with self._changed:
            return self._changed.wait_for(done, within)

    def _collect(self, stream: str, reading: int) -> None:
        # Ahead of the program: a line gets the time at which it is written, not that
        # at which the program next waits. Outside the board only root may.
        with suppress(PermissionError):
            os.sched_setscheduler(0, os.SCHED_FIFO, os.sched_param(1))
        unfinished = ""
        while chunk := os.read(reading, 65536):
            arrived = _time_apart()
            text = chunk.decode(errors="backslashreplace")
            *complete, unfinished = (unfinished + text).split("\n")
            with self._changed:
                self._text[stream] += text
                self.lines += (PrintedLine(arrived, stream, line) for line in complete)
                self._changed.notify_all()
        if unfinished:
            with self._changed:
                self.lines.append(PrintedLine(time.monotonic_ns(), stream, unfinished))
        os.close(reading)

    def _await_end(self) -> None:
        status = self._process.wait()
        ended = time.monotonic_ns()
        for reader in self._readers:
            # Not for ever: a child left behind may keep the pipe open.
            reader.join(_LAST_OUTPUT_SECONDS)
        with self._changed:
            self.ended, self.returncode = ended, status
            self._changed.notify_all()


def _time_apart() -> int:
    """The time now, with a microsecond let pass before and after it.

    A trace rounds to microseconds; in this way it has what the program does with a line
    before it prints at an earlier time, and what it does after that at a later one.
    """
    begin = time.monotonic_ns()
    while (middle := time.monotonic_ns()) < begin + 1000:
        pass
    while time.monotonic_ns() < middle + 1000:
        pass
    return middle


run = Program.run
