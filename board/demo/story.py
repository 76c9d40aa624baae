"""Plays some eventful minutes of a board's life, on the board; prints them as JSON.

The arguments are the program and, if BAT-T2 takes AC power away from PWR-IN, "coupled".
"""

import dataclasses
import json
import sys
import tempfile
import threading
import time
from pathlib import Path

from demo.record import Event, Record
from guest.board import found
from guest.clock import now, sleep_until
from guest.lines import LINES
from guest.process import Program, run
from guest.stand_in import StandIns
from guest.trace import Trace

SECOND = 10**9
TEST_SECONDS = 20

CONFIGURATION = """\
test.battery=true
test.hour=-1
test.duration={duration}
test.shut.cmd=poweroff
sys.save.path={folder}/kelvo-pwr.dat
"""


class Story:
    def __init__(self, program: str, coupled: bool, folder: Path):
        self._program = program
        self._coupled = coupled
        self._configuration = folder / "kelvo-pwr.conf"
        self._configuration.write_text(
            CONFIGURATION.format(duration=TEST_SECONDS, folder=folder)
        )
        (folder / "kelvo-pwr.dat").touch()
        self._board = found()
        # As the hardware should have it: both connected unless the daemon says otherwise.
        self._board.at2.pull(0)
        self._board.bat_sw.pull(1)
        self._events: list[Event] = []

    def play(self) -> Record:
        levels = {line: self._board.chip.line(line).level() for line in LINES}
        with Trace() as trace, StandIns() as commands:
            self._chapter("The daemon starts")
            self._did("$ kelvo-pwr --conf kelvo-pwr.conf &")
            with self._start() as daemon:
                if self._coupled:
                    threading.Thread(target=self._watch_power_line, daemon=True).start()
                self._tell(daemon)
                begin = daemon.started
                self._events += [
                    Event(line.time, "error" if line.stream == "stderr" else "daemon", line.text)
                    for line in daemon.lines
                ]
            self._events += [
                Event(event.time, event.line, str(event.level))
                for event in trace.events()
                if event.kind == "write"
            ]
            self._events += [Event(call.time, "command", call.name) for call in commands.calls()]
        self._events.sort(key=lambda event: event.time)
        return Record(begin, self._coupled, levels, self._events)

    def _tell(self, daemon: Program) -> None:
        daemon.wait_for_line("Full server", within=1)
        sleep_until(daemon.started + 5 * SECOND + SECOND // 2)
        self._chapter("A look at its status")
        self._client("--status")

        sleep_until(now() + 4 * SECOND)
        self._chapter("A battery test on request: the battery holds")
        self._client("--run-test-now")
        daemon.wait_for_line("Test result: Battery is good", within=TEST_SECONDS + 2)

        sleep_until(now() + 2 * TEST_SECONDS * SECOND + SECOND // 2)
        self._chapter("Another test: the battery fails in the eighth second")
        self._client("--run-test-now")
        daemon.wait_for_line("Got run test now", within=2)
        sleep_until(now() + 7 * SECOND + SECOND // 3)
        self._battery(False)
        daemon.wait_for_line("Test result: Battery is bad", within=1)
        sleep_until(now() + 5 * SECOND)
        self._client("--status")
        sleep_until(now() + 5 * SECOND)
        self._battery(True)

        sleep_until(now() + 10 * SECOND + SECOND // 3)
        self._chapter("AC power is lost, the battery carries the board")
        self._ac_lost()
        sleep_until(now() + 20 * SECOND)
        self._client("--run-test")

        sleep_until(now() + 30 * SECOND + SECOND // 3)
        self._chapter("The battery runs empty: the way down")
        self._battery(False)
        daemon.wait_for_line("Battery empty", within=2)
        daemon.wait_for_line("Still alive, force shutdown", within=300)
        sleep_until(now() + SECOND // 2)
        self._did("On a real board the power is gone here.")

    def _start(self) -> Program:
        return Program([self._program, "--conf", str(self._configuration)])

    def _client(self, word: str) -> None:
        self._did(f"$ kelvo-pwr --conf kelvo-pwr.conf {word}")
        result = run([self._program, "--conf", str(self._configuration), word])
        printed = (result.stdout + result.stderr).splitlines()
        self._events += [Event(now(), "client", line) for line in printed]

    def _ac_lost(self) -> None:
        self._did("AC power is lost.")
        if not self._coupled:
            self._note("PWR-IN", 1)
        self._board.ac(False)

    def _battery(self, good: bool) -> None:
        self._did("The battery is charged again." if good else "The battery voltage falls.")
        self._note("BAT-T1", int(good))
        self._board.battery(good)

    def _watch_power_line(self) -> None:
        """Coupled, PWR-IN changes without our doing."""
        before = 0
        while True:
            level = self._board.pwr_in.level()
            if level != before:
                self._note("PWR-IN", level)
                before = level
            time.sleep(0.01)

    def _chapter(self, title: str) -> None:
        self._events.append(Event(now(), "chapter", title))

    def _did(self, what: str) -> None:
        self._events.append(Event(now(), "outside", what))

    def _note(self, line: str, level: int) -> None:
        self._events.append(Event(now(), line, str(level)))


def main() -> None:
    with tempfile.TemporaryDirectory() as folder:
        record = Story(sys.argv[1], "coupled" in sys.argv[2:], Path(folder)).play()
    json.dump(dataclasses.asdict(record), sys.stdout)


if __name__ == "__main__":
    main()
