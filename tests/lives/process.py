"""What the daemon is as a process: lines, sleeps, signals, and calls at which something happens."""

import errno
import signal
from contextlib import suppress
from typing import Iterator, Optional

from world import SECOND, Changed, LineError, World

# What becomes of an exception that nobody catches.
_ABORTED = -signal.SIGABRT


class Interrupted(Exception):
    """A signal's handler has ended the daemon."""


class Ended(Exception):
    def __init__(self, status: int):
        super().__init__(status)
        self.status = status


class Process:
    """`ended` has the status once it is over."""

    _course: Iterator[int]

    def __init__(self, world: World, triggers=()):
        self.world = world
        self.triggers = list(triggers)  # see accidents
        self.lines: dict[str, object] = {}  # the chip of each line that it has found
        self.driven: dict[tuple, int] = {}  # the levels of the outputs that it has requested
        self.fields = None  # the records, once it has them
        self.handled: set[int] = set()  # signals whose handler runs
        self.ended = None
        self.command_ends = None  # while the shutdown command runs
        self.last = self.wake = world.now

    def resume(self) -> None:
        try:
            wait = next(self._course)
            self.last = self.world.now
            self.wake = self.world.now + wait
        except Ended as end:
            self.end(end.status)
        except LineError:
            self.world.printed("stderr")  # What is thrown, and its text.
            self.world.printed("stderr")
            self.end(_ABORTED)
        except Interrupted:
            pass

    def shift(self, nanoseconds: int) -> None:
        """Its true phase is known better now."""
        self.last += nanoseconds
        self.wake += nanoseconds

    def end(self, status: int) -> None:
        self.ended = status
        self.world.daemon = None
        if self.command_ends is not None:
            self.world.locked_until = self.command_ends
        for name, holder in list(self.world.holders.items()):
            if holder == "daemon":
                del self.world.holders[name]

    def signal(self, number: int) -> None:
        with suppress(Interrupted):
            self._signal(number)

    def _signal(self, number: int) -> None:
        world = self.world
        if number == 9:
            self.end(-9)
            return
        if number == 2 and self.command_ends is not None:
            return
        if number in self.handled:  # It waits until its handler is over, which never is.
            return
        self.handled.add(number)
        world.printed("stdout", f"Interrupted with signal: {number}")
        status = 0
        if self.fields is not None and self.fields["testing"] == 1:
            world.printed("stdout", "Interrupted while doing battery test")
            try:
                if not any(name == "BAT-T2" for name, _ in self.driven):
                    raise LineError
                self._drive("BAT-T2", 0)
                world.printed("stdout", "Power restored")
            except LineError:
                world.printed("stderr")
                status = 1
        self.end(status)

    def _at(self, call: str, behind: bool = False):
        """What is to happen there; returns an error for the call, and how long it sleeps before."""
        for trigger in self.triggers:
            if trigger["call"] != call or trigger.get("behind", False) != behind:
                continue
            trigger.setdefault("left", trigger.get("times", 1))
            trigger.setdefault("skips", trigger["nth"] - 1)
            if trigger["left"] == 0:
                continue
            if trigger["skips"] > 0:
                trigger["skips"] -= 1
                continue
            trigger["left"] -= 1
            if "line" in trigger:
                self.world.inputs[trigger["line"]] = trigger["level"]
            if "signal" in trigger:
                self._signal(trigger["signal"])
                if self.ended is not None:
                    raise Interrupted
            if "error" in trigger:
                return trigger["error"], trigger.get("slept", 0)
        return 0, 0

    # What it does with the world.

    def _request(self, name: str, level: Optional[int] = None) -> None:
        if self._at("request_line")[0]:
            self.world.printed("stderr")
            raise Ended(1)
        chip = self.lines[name]
        self.world.holders[name, chip] = "daemon"
        if level is not None:
            self.driven[name, chip] = level
            self.world.write(name, chip, level)

    def _read(self, name: str) -> int:
        if self._at("get_value")[0]:
            raise LineError
        try:
            return self.world.read(name, self.lines[name])
        finally:
            self._at("get_value", behind=True)

    def _drive(self, name: str, level: int) -> None:
        if self._at("set_value")[0]:
            raise LineError
        chip = self.lines[name]
        try:
            self.world.write(name, chip, level)
            self.driven[name, chip] = level
        finally:
            self._at("set_value", behind=True)

    def _sleep(self, nanoseconds: int) -> Iterator[int]:
        charged = self.world.charges.short_sleep if nanoseconds < SECOND else 0
        while True:
            error, slept = self._at("nanosleep")
            if not error:
                yield nanoseconds + charged
                return
            if slept:
                yield slept
            if error != errno.EINTR:
                return
            nanoseconds -= slept

    def _set(self, field: str, value: int) -> None:
        if self.fields[field] != value:
            self.fields[field] = value
            self.world.expected.append(Changed(self.world.now, field, value))
