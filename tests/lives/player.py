"""Plays one life, the model beside it."""

import os
import shutil
from contextlib import ExitStack
from pathlib import Path

import clients
from guest.board import Board, wire
from guest.clock import now, set_wall_ahead, sleep_until
from guest.lines import remove_chips
from guest.process import Program, run
from guest.segment import SEGMENT, Records
from guest.stand_in import StandIns
from model import Daemon
from observer import Mismatch, equal, text_equal
from world import MILLISECOND, SECOND, World

PROGRAM = os.environ["KELVO_PWR"]

# Stimuli come 25 milliseconds into a tenth of the daemon's second: its ticks begin at 0,
# the samples of a test stand at 10 and end at 0 of every 50. Where that is not enough,
# because a test has moved the seconds, they wait until nothing is due so near.
_INTO_TENTH = 25 * MILLISECOND
_CLEAR = 5 * MILLISECOND
# The world's second begins at .5 by the calendar. Off all multiples of 25 milliseconds,
# it never changes where the program looks at it.
_CALENDAR = 12_500_000
# Comparing now and then keeps a long wait within the tolerance, and within memory.
LONGEST_UNSEEN = 200


class Player:
    def __init__(self, life: dict, folder: Path, records: Records, place, tell=lambda _: None):
        self.life = life
        self.records = records
        self.place = place  # charges, and what can be seen
        self.tell = tell  # what happens, for a reader
        self.folder = folder
        self.program = None  # the daemon's process
        self.model = None  # and its model; both stay after its end, until looked at
        self.calendar = life.get("calendar", _CALENDAR)
        self.played = 0  # steps
        self.story: list[tuple] = []  # what was seen on the board, by its times
        self.moments: list[int] = []  # when each step was done

    def play(self) -> None:
        """Raises Mismatch, or Undecided when no verdict is possible from there on."""
        with ExitStack() as self.open:
            self._prepare()
            for step in self.life["steps"]:
                self._wait(step)
                self.moments.append(now())
                self.tell(f"{now() / SECOND:15.6f}  {step}")
                getattr(self, f"_{step['do']}")(step)
                self._look({})
                self.played += 1
            self._client({"flags": ["status"], "words": []})

    def _prepare(self) -> None:
        shutil.rmtree(self.folder, ignore_errors=True)
        self.folder.mkdir()
        SEGMENT.unlink(missing_ok=True)
        remove_chips()
        self.board = self._wired()
        charges = self.place.charges()
        sleep_until((now() // SECOND + 1) * SECOND)
        life = self.life
        self.confs = [self.folder / f"{number}.conf" for number in range(2)]
        self.result_file = self.folder / "result.dat"
        paths = {"confs": [str(conf) for conf in self.confs], "result": str(self.result_file)}
        self.world = World(life, now(), 0, paths, charges)
        self._set_wall(life["wall"] - now() // SECOND)
        self._write_files()
        os.environ["TZ"] = life["zone"]
        command = f"sleep {life['command_seconds']}; exit {life['command_status']}"
        commands = self.open.enter_context(StandIns(then=command))
        self.seen = self.open.enter_context(
            self.place.Observer(self.tell, commands, self.records, self.story)
        )
        for name in life["held"]:
            self.open.enter_context(self.board.chip.line(name).hold())

    def _wired(self) -> Board:
        return wire()

    def _write_files(self) -> None:
        for conf, pairs in self.world.files():
            Path(conf).write_text("".join(f"{name}={value}\n" for name, value in pairs))
        self._result({"text": self.life["result"]})

    # Waiting.

    def _wait(self, step: dict) -> None:
        left = step["after"]
        while left > LONGEST_UNSEEN:
            self._pass_time(self._moment(LONGEST_UNSEEN, 5))
            self._check()
            left -= LONGEST_UNSEEN
        if left > 1:
            self._pass_time(self._moment(left - 1, step["tenth"]))
            self._check()
            left = 1
        self._pass_time(self._moment(left, step["tenth"]))
        self._check()

    def _moment(self, seconds: int, tenth: int) -> int:
        """The first such moment of the daemon's second that is so far away or farther."""
        world = self.world
        base = world.daemon.last if world.daemon else world.now // SECOND * SECOND
        into = tenth * SECOND // 10 + _INTO_TENTH
        earliest = world.now + max(seconds * SECOND, 2 * _CLEAR)
        return base + into + -(-(earliest - base - into) // SECOND) * SECOND

    def _pass_time(self, until: int) -> None:
        world = self.world
        world.advance(until)
        while (daemon := world.daemon) is not None and (
            daemon.wake - world.now < _CLEAR or world.now - daemon.last < _CLEAR
        ):
            world.advance(world.now + 7 * MILLISECOND)
        sleep_until(world.now)
        world.now = max(world.now, now())

    # What can be done.

    def _start(self, step: dict) -> None:
        pairs = [(name, self.world.resolved(name, value)) for name, value in self.life["words"]]
        words = [f"--{name}={value}" for name, value in pairs]
        argv = [PROGRAM, *self._conf_words(), *words, *(["-v"] if step["verbose"] else [])]
        if self.world.locked():
            answer = clients.refused_daemon(self.world, self.life["words"])
            if step["verbose"]:
                argv.remove("-v")
            self._answered(argv, answer)
            return
        self.program = self.open.enter_context(Program(argv))
        self.seen.follow(self.program)
        self.world.now = self.program.started
        triggers = [dict(step["fault"])] if "fault" in step else []
        self.model = Daemon(self.world, self.life["words"], step["verbose"], triggers)
        self.world.daemon = self.model
        self.world.settle()
        sleep_until(now() + MILLISECOND)

    def _client(self, step: dict) -> None:
        flags, words = step["flags"], step["words"]
        argv = [PROGRAM, *self._conf_words(), *(f"--{flag}" for flag in flags)]
        argv += [f"--{name}={value}" for name, value in words]
        self._answered(argv, clients.client(self.world, flags, words))

    def _ac(self, step: dict) -> None:
        self.board.ac(step["on"])
        self.world.inputs["PWR-IN"] = 0 if step["on"] else 1

    def _battery(self, step: dict) -> None:
        self.board.battery(step["good"])
        self.world.inputs["BAT-T1"] = 1 if step["good"] else 0

    def _outage(self, step: dict) -> None:
        self._battery({"good": False})
        self._ac({"on": False})

    def _post(self, step: dict) -> None:
        if self.world.segment is not None:
            self.records.set(step["fields"])
            self.world.segment.update(step["fields"])

    def _signal(self, step: dict) -> None:
        if self.world.daemon is not None:
            self.world.now = now()
            self.world.daemon.signal(step["number"])
            self.program.send(step["number"])
            if self.world.daemon is None:
                self._await_end()

    def _wall(self, step: dict) -> None:
        self._set_wall(self.world.offset // SECOND + step["by"])

    def _result(self, step: dict) -> None:
        self.world.result_file = step["text"]
        self.result_file.unlink(missing_ok=True)
        if step["text"] is not None:
            self.result_file.write_text(step["text"])

    def _look(self, step: dict) -> None:
        self._check()
        equal("BAT-T2", self.world.level("BAT-T2"), self.board.at2.level())
        equal("BAT-SW", self.world.level("BAT-SW"), self.board.bat_sw.level())
        saved = self.result_file.read_text() if self.result_file.exists() else None
        equal("the result file", self.world.result_file, saved)
        equal("the records", self.world.segment, self.records.fields())

    # Comparing.

    def _conf_words(self) -> list[str]:
        return [word for conf in self.confs for word in ("-c", str(conf))]

    def _answered(self, argv: list, answer: clients.Answer) -> None:
        result = run(argv)
        self.story.append((now(), "answered", *result))
        shown = " ".join(argv[1:])
        self.tell(f"{now() / SECOND:15.6f}    {shown}: {result}")
        text_equal(f"standard output of {shown}", answer.stdout, result.stdout)
        text_equal(f"standard error of {shown}", answer.stderr, result.stderr)
        equal(f"status of {shown}", answer.status, result.status)

    def _check(self) -> None:
        """What the daemon has done since the last time."""
        if self.program is None:
            return
        if self.model.ended is not None:
            self._await_end()
        elif self.program.returncode is not None:
            raise Mismatch(f"the daemon has ended\n  seen: {self.program.returncode}")
        self.seen.compare(self.world)

    def _await_end(self) -> None:
        try:
            status = self.program.wait_for_exit(within=1)
        except AssertionError as problem:
            raise Mismatch(str(problem)) from None
        equal("status of the daemon", self.model.ended, status)

    def _set_wall(self, seconds_ahead: int) -> None:
        self.world.offset = seconds_ahead * SECOND + self.calendar
        set_wall_ahead(self.world.offset)
