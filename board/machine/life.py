"""The life of a machine: boots, stimuli, ends of its power, boots again."""

import base64
import json
import random
import shutil
import time
from pathlib import Path
from typing import Callable, NamedTuple, Optional, Sequence

from guest.names import LINES, PWR_IN
from host.problems import BoardFailure
from machine.channels import OFFSETS
from machine.disk import Disk, Lost
from machine.emulator import Emulator, Product
from machine.supply import Supply

# 3 June 2026, 12:00:00 UTC: after the making of every system that is booted, whose calendar would
# otherwise begin then.
_BEGIN = 1780488000
_SECOND = 10**9
# How a boot can end, beside the system's own ways.
_CUT, _SAVED = "power cut", "saved"


class Happening(NamedTuple):
    boot: int
    # Nanoseconds on the machine's monotonic clock in that boot.
    time: int
    # "boot", "end", "outside", a line's name, or what the command notes.
    kind: str
    text: str


class Life:
    """Over when it has been lived."""

    def __init__(
        self,
        product: Product,
        folder: Path,
        disk: Disk,
        command: Sequence[str],
        environment: Optional[dict[str, str]] = None,
        coupled: bool = False,
        realtime: bool = False,
        chance: Optional[random.Random] = None,
        output: Callable[[int, bytes], None] = lambda number, data: None,
        saved: Optional[Path] = None,
        look: Callable[[Path], None] = lambda image: None,
    ):
        """With a folder that `save` has filled the first boot is over; the disk is a copy of its.

        `look` is called with the image that each cut leaves, which it must not change.
        """
        self._product, self._folder, self._disk = product, folder, disk
        self._task: dict = {"command": list(command), "environment": environment or {}}
        self._realtime, self._chance, self._output, self._look = realtime, chance, output, look
        self.supply = Supply(coupled=coupled)
        self.happenings: list[Happening] = []
        self.lost: list[Lost] = []  # of each cut
        # In nanoseconds of the machine's time: of words for which it stood, and for which it ran.
        self.longest_words = [0, 0]
        self.lateness: list[int] = []  # nanoseconds of each planned stimulus
        self.ages: list[int] = []  # of the machine, in nanoseconds, when each boot began
        self._boot = 0
        self._how: Optional[str] = None  # this boot ends
        self._age = 0  # nanoseconds since it was first switched on, when this boot began
        self._now = 0  # nanoseconds on its monotonic clock
        self._plan: list[tuple[int, dict]] = []
        self._inputs: dict[str, int] = {}
        self._status: Optional[int] = None
        self._saved, self._to_save = saved, None

    def live(self, longest_seconds: float, most_boots: Optional[int] = None) -> Optional[int]:
        """Returns the status of the command, or None if the machine is off and will stay so.

        After so many boots it stays off, whatever is to come.
        """
        end = time.monotonic() + longest_seconds
        while True:
            how = self._live_one_boot(end)
            if self._status is not None or self._boot == most_boots:
                return self._status
            self._age += self._now
            if how != "reboot" and not self._is_switched_on_again(how == "poweroff"):
                return None

    def save(self, folder: Path, longest_seconds: float) -> None:
        """Runs the command, then keeps in the folder what lives can begin with."""
        self._task["goes on"] = True
        self._to_save = folder
        self._live_one_boot(time.monotonic() + longest_seconds)
        if self.happenings.pop().text != _SAVED:
            raise BoardFailure(f"there is nothing to be saved; its console:\n{self._console()}")
        self._disk.image.rename(folder / "disk")
        shutil.copy(self._folder / "console", folder)
        (folder / "happenings.json").write_text(json.dumps(self.happenings))

    def _live_one_boot(self, end: float) -> str:
        self._boot += 1
        self._now, self._how = 0, None
        self.ages.append(self._age)
        emulator = self._begun() if self._saved is None else self._gone_on(self._saved)
        self._saved = None
        try:
            while (request := emulator.request(end - time.monotonic())) is not None:
                try:
                    answer = self._serve(emulator, request)
                except ValueError as error:
                    answer = {"error": str(error)}
                if answer is None:
                    break
                emulator.answer(answer)
        except (TimeoutError, RuntimeError) as error:
            emulator.cut()
            reason = str(error) or "still running when its time was over"
            raise BoardFailure(f"{reason}; its console:\n{self._console()}") from None
        return self._ended(emulator)

    def _begun(self) -> Emulator:
        self._note("boot", str(self._boot))
        (self._folder / "console").open("a").write(f"=== boot {self._boot} ===\n")
        emulator = self._emulator()
        self._inputs = {}
        self._put(emulator)
        emulator.begin()
        return emulator

    def _gone_on(self, folder: Path) -> Emulator:
        happenings = json.loads((folder / "happenings.json").read_text())
        self.happenings = [Happening(*fields) for fields in happenings]
        shutil.copy(folder / "console", self._folder)
        self._inputs = self.supply.inputs()
        emulator = self._emulator(folder / "state")
        emulator.begin()
        return emulator

    def _emulator(self, state: Optional[Path] = None) -> Emulator:
        wall = _BEGIN + self._age / _SECOND
        drive = self._disk.connect()
        return Emulator(self._product, self._folder, drive, wall, self._realtime, state)

    def _ended(self, emulator: Emulator) -> str:
        """The disk becomes what it is now."""
        emulator.cut()
        how = emulator.how or self._how or _CUT
        if how == _CUT:
            self.lost.append(self._disk.keep_flushed(self._chance))
            self._look(self._disk.image)
        else:
            self._disk.keep_all()
        self._note("end", how)
        self.supply.board_is_off()
        return how

    def _serve(self, emulator: Emulator, request: dict) -> Optional[dict]:
        """None is the end: the machine has no power any more, or its command has ended."""
        self._now = request["monotonic"]
        self.longest_words = [*map(max, self.longest_words, request["longest"])]
        answer: dict = {}
        if "output" in request:
            self._output(request["output"], base64.b64decode(request["data"]))
        if "done" in request and self._to_save is not None:
            emulator.save(self._to_save / "state")
            self._how = _SAVED
            return None
        if "task" in request:
            boot = {"BOARD_BOOT": str(self._boot)}
            answer = {**self._task, "environment": {**self._task["environment"], **boot}}
        if "failure" in request:
            raise RuntimeError(request["failure"])
        if "status" in request:
            self._status, self._how = request["status"], "the command's end"
        if "note" in request:
            self._note(*request["note"])
        if "plan" in request:
            self._plan.append((self._age + self._now + request["plan"], request["change"]))
            self._plan.sort(key=lambda planned: planned[0])
        elif "change" in request:
            self._change(request["change"])
        for when, number, level in request.get("writes", ()):
            name = LINES[number % 8 - OFFSETS[PWR_IN]]
            self.happenings.append(Happening(self._boot, when, name, str(level)))
        while self._plan and self._plan[0][0] <= self._age + self._now:
            due, change = self._plan.pop(0)
            self.lateness.append(self._age + self._now - due)
            self._change(change)
        self.supply.driven(emulator.pins.outputs())
        if self._status is not None or not self.supply.powers():
            return None
        self._put(emulator)
        if "levels" in request:
            answer["levels"] = {**emulator.pins.outputs(), **self._inputs}
        if self._plan:
            due, change = self._plan[0]
            answer["due"] = due - self._age
            answer["cut"] = not self.supply.after(change).powers()
        return answer

    def _put(self, emulator: Emulator) -> None:
        inputs = self.supply.inputs()
        emulator.pins.put(inputs)
        for name, level in inputs.items():
            if self._inputs.get(name) != level:
                self._note(name, str(level))
        self._inputs = inputs

    def _is_switched_on_again(self, was_powered: bool) -> bool:
        """Lets what is planned happen until power comes on; or there is none to come."""
        powered = was_powered
        if self.supply.powers() and not powered:
            return True
        while self._plan:
            due, change = self._plan.pop(0)
            self._now = 0
            self._age = max(self._age, due)
            self._change(change)
            if self.supply.ac:
                self.supply.board_is_off()
            if self.supply.powers() and not powered:
                return True
            powered = self.supply.powers()
        return False

    def _change(self, change: dict) -> None:
        self.supply.change(**change)
        self._note("outside", json.dumps(change))

    def _note(self, kind: str, text: str) -> None:
        self.happenings.append(Happening(self._boot, self._now, kind, text))

    def _console(self) -> str:
        return (self._folder / "console").read_text(errors="replace")[-3000:]

