"""Plays a life with what only a simulated world can let happen."""

import re

from guest.board import Board, wire
from guest.clock import now
from guest.lines import make_chip
from guest.record import Record
from observer import equal
from player import Player
from simulator import simulator
from world import SECOND

_LOCKS = re.compile("flock|open kelvo-pwr.lock")


class SimulatedPlayer(Player):
    def _wired(self) -> Board:
        simulator().forget_triggers()
        self._other_chip("before")
        board = wire(natural_pulls=self.life.get("coupled", False))
        if self.life.get("coupled"):
            board.pwr_in.follow(board.at2)
        self._other_chip("behind")
        return board

    def _other_chip(self, where: str) -> None:
        if lines := self.life.get(where):
            make_chip(list(lines), lines)

    def _wait(self, step: dict) -> None:
        if "at_once" in step:
            return
        super()._wait(step)
        if "exact" in step:
            self._wait_for_instant(before=step["exact"] == "before")

    def _wait_for_instant(self, before: bool) -> None:
        """Until the daemon does something next; without a daemon until a whole second begins."""
        world = self.world
        instant = world.daemon.wake if world.daemon else (world.now // SECOND + 1) * SECOND
        world.advance(instant, before)
        simulator().go(instant, before)
        self._check()

    def _start(self, step: dict) -> None:
        if self.world.locked():
            super()._start(step)
            return
        simulator().forget_triggers()
        if "fault" in step:
            self._arm(step["fault"], 0)
        super()._start(step)
        if "fault" in step:
            simulator().forget_triggers()
            self.model.triggers.clear()

    def _trigger(self, step: dict) -> None:
        if self.world.daemon is not None:
            self.world.daemon.triggers.append(dict(step))
            self._arm(step, self.program.pid)

    def _arm(self, step: dict, process: int) -> None:
        given = {name: step[name] for name in ("nth", "times", "error", "slept") if name in step}
        given["after"] = step.get("behind", False)
        given["number"] = step.get("signal", 0)
        if "line" in step:
            given["line"] = self.board.chip.line(step["line"]).number
            given["level"] = step["level"]
        simulator().trigger(step["call"], **given, process=process)

    def _client(self, step: dict) -> None:
        """It has nothing to do with the daemon's lock."""
        with Record("call") as record:
            simulator().shared.has_calls = 1
            super()._client(step)
            simulator().shared.has_calls = 0
            calls = [event.value for event in record.events()]
        equal("calls for the lock", [], [call for call in calls if _LOCKS.match(call)])

    def _unplug(self, _: dict) -> None:
        self.board.chip.remove()
        self.world.is_unplugged = True
        self.tell(f"{now() / SECOND:15.6f}  unplugged")
