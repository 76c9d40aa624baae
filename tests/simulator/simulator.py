"""A simulated world for the executable as it is: clocks, sleeps and lines, and who plays them.

The processes in it have the same clock and the same lines. No time passes while one of them runs,
unless it is charged for; it passes when all of them sleep, and only as far as `go` lets it. Then
all that was due has happened, and every process waits in a sleep or has ended: nobody waits "long
enough".

    world = simulator()                     the one world of this Python process
    world.now, world.wall                   nanoseconds since boot, and since the epoch; to be set
    process = world.start(argv)             a process, as far as its first sleep or its end
    world.go(until)                         until then; what is due at that very instant is done
    world.go(until, before=True)            ... is still to be done
    world.go(until, at_output=True)         no farther than to where something is printed
    world.signal(process, number)           while it sleeps
    world.trigger("get_value", error=EIO)   a call that fails; `nth`, `times`, a signal, a line or a
                                            step of the calendar at a call, before or behind it
    world.shared.command_lasts              and command_status of shutdown commands, which never run
    world.taken()                           what has happened since it was last asked: Event

The lines are tables in `layout`; `guest` beside this file has them, the clocks, programs, traces
and stand-ins by the names that the virtual board has for them, so that a scenario runs in both.
Segment, lock and files are real: play with a /dev/shm and a /run of your own (host/with_own_shm).
"""

import ctypes
import mmap
import os
import select
import signal
import socket
import struct
import subprocess
from contextlib import suppress
from functools import cache
from typing import Callable, NamedTuple, Optional, Sequence, Union

from guest.seen import FIELDS
from layout import EVENT, KINDS, NUMBER, TEXTS, World

_PROGRAM = os.environ["KELVO_PWR"]
_MOST_EVENTS = 1 << 16
_MESSAGE = struct.Struct("=qq")
_FIELD_NAMES = tuple(FIELDS)
_FIELD, _PRINTED = KINDS.index("field"), KINDS.index("printed")
_STREAMS = {1: "stdout", 2: "stderr"}


class Event(NamedTuple):
    """`subject` is the number of a line, the name of a field or of a stream, or None.

    `value` is a level, the value of a field, how many bytes have been printed, or a text: of a
    command, of a file that is written, or of a call where these are recorded.
    """

    time: int
    kind: str
    subject: Union[int, str, None]
    value: Union[int, str]
    process: int


class Process:
    """`wake` is when its sleep ends, and `has_printed` tells whether it has before that; `ended` is
    the time of its end, `status` then as subprocess has it.
    """

    def __init__(self, popen: subprocess.Popen, player: socket.socket, outputs: dict):
        self.popen = popen
        self.pid = popen.pid
        self.wake: Optional[int] = None
        self.has_printed = False
        self.ended: Optional[int] = None
        self.status: Optional[int] = None
        self._player = player
        self._outputs = outputs

    def says(self) -> bool:
        """Whether it sleeps; otherwise it has ended."""
        try:
            message = self._player.recv(_MESSAGE.size)
        except ConnectionResetError:
            message = b""
        if message:
            self.wake, self.has_printed = _MESSAGE.unpack(message)
        return message != b""

    def answer(self) -> None:
        with suppress(BrokenPipeError):
            self._player.send(b"!")

    def output(self, stream: str, begin: int = 0, end: Optional[int] = None) -> bytes:
        """What it has printed on "stdout" or "stderr"."""
        descriptor = self._outputs[stream]
        size = os.fstat(descriptor).st_size if end is None else end
        return os.pread(descriptor, size - begin, begin)

    def __del__(self) -> None:
        for descriptor in self._outputs.values():
            os.close(descriptor)


class Orphan(NamedTuple):
    """A command that outlives its daemon."""

    owner: int  # the daemon's process
    end: int
    holder: int  # a descriptor of the process that has what the command inherited


class Simulator:
    def __init__(self):
        self._taken_out: list[bytes] = []
        self._sleeping: list[Process] = []
        self._stopped: list[Process] = []
        self._orphans: list[Orphan] = []
        size = ctypes.sizeof(World)
        self._file = os.memfd_create("world")
        os.ftruncate(self._file, size + _MOST_EVENTS * EVENT.size)
        self._memory = mmap.mmap(self._file, size + _MOST_EVENTS * EVENT.size)
        self.shared = World.from_buffer(self._memory)
        self.shared.size = size
        self.shared.most_events = _MOST_EVENTS
        # An hour after boot, noon on the third of June 2024.
        self.now, self.wall = 3600 * 10**9, 1_717_416_000 * 10**9

    # Time.

    @property
    def now(self) -> int:
        return self.shared.now

    @now.setter
    def now(self, nanoseconds: int) -> None:
        assert not self._sleeping
        self.shared.now = nanoseconds

    @property
    def wall(self) -> int:
        return self.shared.now + self.shared.wall

    @wall.setter
    def wall(self, nanoseconds: int) -> None:
        self.shared.wall = nanoseconds - self.shared.now

    def go(self, until: int, before: bool = False, at_output: bool = False) -> None:
        shared = self.shared
        shared.stops_at_output = at_output
        horizon = until - 1 if before else until
        while due := [process for process in self._sleeping if process.wake <= horizon]:
            process = min(due, key=lambda one: one.wake)
            shared.horizon = min([horizon, *(one.wake for one in due if one is not process)])
            self._go_on(process)
            if at_output and (process.has_printed or process.ended is not None):
                break
        else:
            shared.now = max(shared.now, until)
        self._end_orphans(lambda orphan: orphan.end <= shared.now)

    # Processes.

    def start(self, argv: Sequence[str], env=None, directory=None, **streams) -> Process:
        """`env` is the whole environment; `streams` may replace stdout and stderr."""
        ours, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        outputs = {name: os.memfd_create(name) for name in _STREAMS.values() if name not in streams}
        descriptors = self._file, theirs.fileno()
        environment = {**(os.environ if env is None else env)}
        others = environment.get("LD_PRELOAD")
        preloaded = ":".join(filter(None, [os.environ["SIMULATOR"], others]))
        if _PROGRAM in argv[1:]:
            # What is to start the program is not of its build, which may have other libraries.
            program = argv.index(_PROGRAM)
            argv = [*argv[:program], "/usr/bin/env", f"LD_PRELOAD={preloaded}", *argv[program:]]
        else:
            environment["LD_PRELOAD"] = preloaded
        environment["SIMULATED"] = ",".join(map(str, descriptors))
        self.shared.horizon = self.shared.now - 1
        with theirs:
            popen = subprocess.Popen(
                argv,
                stdin=subprocess.DEVNULL,
                env=environment,
                cwd=directory,
                pass_fds=descriptors,
                start_new_session=True,
                **outputs,
                **streams,
            )
        process = Process(popen, ours, outputs)
        self._listen(process)
        return process

    def signal(self, process: Process, number: int) -> None:
        """Returns when it has been handled, which a stopped process does once it continues."""
        process.popen.send_signal(number)
        if number == signal.SIGSTOP:
            os.waitid(os.P_PID, process.pid, os.WSTOPPED)
            self._sleeping.remove(process)
            self._stopped.append(process)
        elif process in self._stopped and number in (signal.SIGCONT, signal.SIGKILL):
            self._stopped.remove(process)
            self._sleeping.append(process)
        if process in self._sleeping:
            self.shared.horizon = self.shared.now - 1
            self._go_on(process)

    def kill(self, process: Process) -> None:
        """With what it has started."""
        if process in self._sleeping + self._stopped:
            self.signal(process, signal.SIGKILL)
        self._end_orphans(lambda orphan: orphan.owner == process.pid)

    def _go_on(self, process: Process) -> None:
        self._sleeping.remove(process)
        process.answer()
        self._listen(process)

    def _listen(self, process: Process) -> None:
        """Until it sleeps or has ended."""
        while process.says():
            if self.shared.events < _MOST_EVENTS:
                self._sleeping.append(process)
                return
            self._take_out()
            process.answer()
        process.status = process.popen.wait()
        process.ended = self.shared.now
        for line in self.shared.line[: self.shared.lines]:
            if line.holder == process.pid:
                line.holder, line.driven = 0, -1
        if self.shared.command_holder and self.shared.command_owner == process.pid:
            holder = os.pidfd_open(self.shared.command_holder)
            self._orphans.append(Orphan(process.pid, self.shared.command_ends, holder))
            self.shared.command_holder = 0

    def _end_orphans(self, chosen: Callable[[Orphan], bool]) -> None:
        for orphan in filter(chosen, list(self._orphans)):
            self._orphans.remove(orphan)
            signal.pidfd_send_signal(orphan.holder, signal.SIGKILL)
            select.select([orphan.holder], [], [])
            os.close(orphan.holder)

    # What happens at calls.

    def trigger(
        self,
        call: str,
        nth: int = 1,
        times: int = 1,
        error: int = 0,
        number: int = 0,
        line: int = -1,
        level: int = 0,
        wall_step: int = 0,
        slept: int = 0,
        after: bool = False,
        process: int = 0,
    ):
        """From the n-th such call from now on, of one process or all of them.

        Returns what tells how many `times` are left.
        """
        trigger = self.shared.trigger[self.shared.triggers]
        trigger.call, trigger.skips, trigger.times = call.encode(), nth - 1, times
        trigger.is_after, trigger.error, trigger.signal = after, error, number
        trigger.line, trigger.level = line, level
        trigger.wall_step, trigger.slept, trigger.process = wall_step, slept, process
        self.shared.triggers += 1
        return trigger

    def forget_triggers(self) -> None:
        self.shared.triggers = 0

    # What has happened.

    def taken(self) -> list[Event]:
        self._take_out()
        raw = b"".join(self._taken_out)
        self._taken_out.clear()
        events = []
        for time, kind, subject, process, data in EVENT.iter_unpack(raw):
            if kind in TEXTS:
                about, value = None, data.rstrip(b"\0").decode()
            else:
                (value,) = NUMBER.unpack(data)
                about = subject
                if kind == _FIELD:
                    about = _FIELD_NAMES[subject]
                elif kind == _PRINTED:
                    about = _STREAMS[subject]
            events.append(Event(time, KINDS[kind], about, value, process))
        return events

    def _take_out(self) -> None:
        size = ctypes.sizeof(World)
        self._taken_out.append(self._memory[size : size + self.shared.events * EVENT.size])
        self.shared.events = 0


@cache
def simulator() -> Simulator:
    """The one world of this process."""
    return Simulator()
