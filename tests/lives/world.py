"""What the model knows: the board around the program, and what it expects to be seen."""

from datetime import datetime
from typing import NamedTuple, Optional, Union
from zoneinfo import ZoneInfo

from settings import load

SECOND = 10**9
MILLISECOND = 10**6

STATUS = ("count", "missingPower", "batteryEmpty", "batteryBad", "testing")
REQUEST = ("runTest", "runTestNow", "duration")


class Undecided(Exception):
    """Two answers are right, and which one comes hangs on less than the tolerance."""


class Charges(NamedTuple):
    """What the place where a life is played charges for what the program does, in nanoseconds."""

    clock_read: int
    access: int  # of a line
    short_sleep: int  # added to one
    printed_line: int
    before_note: int  # of a shutdown command, or rather its stand-in
    command: int  # all of it, but for the time that it sleeps
    # How far apart the model's time and the place's may be. Whatever would come out differently
    # within this distance cannot be decided and ends the life without a verdict.
    tolerance: int


NO_CHARGES = Charges(0, 0, 0, 0, 0, 0, 0)


class LineError(Exception):
    """What the line library throws."""


class Line(NamedTuple):
    time: int
    stream: str
    texts: tuple  # each of them is right; empty: some text, in the words of a library


class Access(NamedTuple):
    time: int
    kind: str  # "read" or "write"
    line: str
    level: int


class Called(NamedTuple):
    time: int
    name: str


class Changed(NamedTuple):
    time: int
    field: str
    value: int


class Synced(NamedTuple):
    time: int


class Saved(NamedTuple):
    time: int
    file: str


Expected = Union[Line, Access, Called, Changed, Synced, Saved]


class World:
    """The clocks, lines, files and the segment; and everything expected since last asked."""

    def __init__(self, life: dict, now: int, offset: int, paths: dict, charges: Charges):
        self.life = life
        self.now = now  # the monotonic clock
        self.offset = offset  # the calendar clock less the monotonic one
        self.paths = paths  # the configuration files and the result file
        self.charges = charges
        self.zone = ZoneInfo(life["zone"])
        self.begin = now // SECOND
        self.inputs = {"PWR-IN": 0, "BAT-T1": 1}
        self.is_coupled = life.get("coupled", False)
        # Where a line stands that nobody drives: on the wrong side, if that does nothing else.
        self.pulls = {"BAT-T2": 0, "BAT-SW": 1} if self.is_coupled else {"BAT-T2": 1, "BAT-SW": 0}
        # Lines of the same names on chips that are searched before and behind.
        self.before, self.behind = life.get("before", {}), life.get("behind", {})
        self.is_unplugged = False
        self.holders = {(name, None): "another" for name in life["held"]}
        self.result_file: Optional[str] = life["result"]
        self.segment: Optional[dict[str, int]] = None
        self.daemon = None
        self.locked_until: float = 0  # by a shutdown command that outlives its daemon
        self.expected: list[Expected] = []

    def advance(self, until: int, before: bool = False) -> None:
        """Lets the daemon live until then; `before`: what is due just then is still to be done."""
        horizon = until - 1 if before else until
        while self.daemon is not None and self.daemon.wake <= horizon:
            self.now = self.daemon.wake
            self.daemon.resume()
        self.now = max(self.now, until)

    def settle(self) -> None:
        """Lets the daemon do what takes it no time."""
        self.advance(self.now)

    def taken(self) -> list[Expected]:
        expected, self.expected = self.expected, []
        return expected

    def load(self, words, before_files=lambda: None):
        words = [self._resolved(*pair) for pair in words]
        return load(words, self.files(), self.result_file, before_files)

    def files(self) -> list[tuple]:
        """Each configuration file's path and pairs."""
        files = [
            (path, [self._resolved(*pair) for pair in pairs])
            for path, pairs in zip(self.paths["confs"], self.life["confs"])
        ]
        files[0][1].insert(0, ("sys.save.path", self.paths["result"]))
        return files

    def resolved(self, name: str, value) -> str:
        """Some quiet times are meant from the begin of the life, which is later than boot."""
        return self._resolved(name, value)[1]

    def _resolved(self, name, value):
        if isinstance(value, list):
            return name, str(min(self.begin + value[1], 65535))
        return name, value

    def printed(self, stream: str, *texts: str) -> None:
        self.expected.append(Line(self.now, stream, texts))
        self.now += self.charges.printed_line

    def find(self, name: str):
        """Where the program finds a line: None on the board's own chip, else a chip's lines."""
        if name in self.before:
            return "before"
        if not self.is_unplugged and (name in self.inputs or name in self.pulls):
            return None
        return "behind" if name in self.behind else "nowhere"

    def read(self, name: str, chip) -> int:
        if chip is not None:
            level = getattr(self, chip)[name]
        elif self.is_unplugged:
            raise LineError
        else:
            level = self.level(name)
        self.expected.append(Access(self.now, "read", name, level))
        self.now += self.charges.access
        return level

    def write(self, name: str, chip, level: int) -> None:
        if chip is None and self.is_unplugged:
            raise LineError
        self.expected.append(Access(self.now, "write", name, level))

    def level(self, name: str) -> int:
        """On the board's own chip."""
        if name == "PWR-IN" and self.is_coupled and self.level("BAT-T2") == 1:
            return 1
        driven = self.daemon.driven if self.daemon is not None else {}
        return driven.get((name, None), self.pulls.get(name, self.inputs.get(name)))

    # Clocks.

    def wall_seconds(self) -> int:
        return self._same(lambda wall: wall // SECOND, self.offset)

    def milliseconds(self) -> list[int]:
        """Both numbers when a boundary is near."""
        tolerance = self.charges.tolerance
        first = (self.now - tolerance) // MILLISECOND
        last = (self.now + tolerance) // MILLISECOND
        self.now += self.charges.clock_read
        return list(range(first, last + 1))

    def passed_since(self, start: int, threshold: int) -> bool:
        """A start in the future counts as long ago."""
        return self._same(
            lambda wall: (wall // SECOND - start) % (1 << 64) >= threshold, self.offset
        )

    def up_for(self, seconds: int) -> bool:
        return self._same(lambda steady: steady // SECOND >= seconds, 0)

    def hour(self) -> int:
        return self._same(
            lambda wall: datetime.fromtimestamp(wall // SECOND, self.zone).hour, self.offset
        )

    def _same(self, answer, offset: int):
        time = self.now + offset
        self.now += self.charges.clock_read
        tolerance = self.charges.tolerance
        if tolerance <= time % SECOND < SECOND - tolerance:
            return answer(time)
        early, late = answer(time - tolerance), answer(time + tolerance)
        if early != late:
            raise Undecided
        return early

    def locked(self) -> bool:
        is_near = abs(self.locked_until - self.now) < SECOND // 100
        if self.charges.tolerance and is_near:
            raise Undecided
        return self.daemon is not None or self.now < self.locked_until
