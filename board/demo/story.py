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

from demo.chapters import SECOND, SETTINGS, tell
from demo.record import Event, Record
from guest.board import found
from guest.clock import now, sleep_until
from guest.lines import LINES
from guest.process import Program, run
from guest.stand_in import StandIns
from guest.trace import Trace


class Story:
    def __init__(self, program: str, coupled: bool, folder: Path):
        self._program = program
        self._coupled = coupled
        self._configuration = folder / "kelvo-pwr.conf"
        self._configuration.write_text(f"{SETTINGS}sys.save.path={folder}/kelvo-pwr.dat\n")
        (folder / "kelvo-pwr.dat").touch()
        self._board = found()
        # As the hardware should have it: both connected unless the daemon says otherwise.
        self._board.at2.pull(0)
        self._board.bat_sw.pull(1)
        self._events: list[Event] = []

    def play(self) -> Record:
        levels = {line: self._board.chip.line(line).level() for line in LINES}
        with Trace() as trace, StandIns() as commands:
            self.chapter("The daemon starts")
            self._did("$ kelvo-pwr --conf kelvo-pwr.conf &")
            with self._start() as daemon:
                if self._coupled:
                    threading.Thread(target=self._watch_power_line, daemon=True).start()
                begin = daemon.started
                tell(self, daemon, begin)
                daemon.wait_for_line("Still alive, force shutdown", within=300)
                sleep_until(now() + SECOND // 2)
                self._did("On a real board the power is gone here.")
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

    def _start(self) -> Program:
        return Program([self._program, "--conf", str(self._configuration)])

    def client(self, word: str) -> None:
        self._did(f"$ kelvo-pwr --conf kelvo-pwr.conf {word}")
        result = run([self._program, "--conf", str(self._configuration), word])
        printed = (result.stdout + result.stderr).splitlines()
        self._events += [Event(now(), "client", line) for line in printed]

    def ac_lost(self) -> None:
        self._did("AC power is lost.")
        if not self._coupled:
            self._note("PWR-IN", 1)
        self._board.ac(False)

    def battery(self, good: bool) -> None:
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

    def chapter(self, title: str) -> None:
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
