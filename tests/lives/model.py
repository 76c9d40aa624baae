"""What the daemon is to do, told second by second.

Each operation that waits is a generator that yields the nanoseconds to sleep; the
daemon is at rest whenever something is done to it.
"""

from typing import Iterator

from process import Ended, Process
from settings import listing
from world import MILLISECOND, REQUEST, SECOND, STATUS, Called, Saved, Synced, World

GOOD, BAD = "Battery is good", "Battery is bad"


class Daemon(Process):
    """From its start."""

    def __init__(self, world: World, words, verbose: bool, triggers=()):
        super().__init__(world, triggers)
        self._course = self._life(words, verbose)

    # The way from start to one of the two loops.

    def _life(self, words, verbose: bool) -> Iterator[int]:
        world = self.world
        values, stdout, stderr = world.load(words, lambda: self._at("fopen"))
        for text in stdout:
            world.printed("stdout", text)
        for text in stderr:
            world.printed("stderr", *([text] if text else []))
        if values is None:
            raise Ended(1)
        self.settings = values
        if verbose:
            for text in listing(values, False, False):
                world.printed("stdout", text)
        world.printed("stdout", "Start")
        if self._at("shm_open")[0]:
            world.segment = None
            world.printed("stderr", "Permission denied")
            raise Ended(1)
        world.segment = dict.fromkeys(STATUS + REQUEST, 0)
        self.fields = world.segment
        if not self._acquire("gpio.pwr-in"):
            raise Ended(1)
        self._request("PWR-IN")
        if not values["test.battery"] or not all(
            self._acquire(key) for key in ("gpio.at1", "gpio.at2", "gpio.bat-sw")
        ):
            yield from self._minimal_server()
        self._request("BAT-T1")
        self._request("BAT-T2", 0)
        self._request("BAT-SW", 1)
        yield from self._full_server()

    def _acquire(self, key: str) -> bool:
        name = self.settings[key]
        chip = self.world.find(name)
        if chip == "nowhere":
            self.world.printed("stderr", f"Failed to get line '{name}'")
            return False
        if (name, chip) in self.world.holders:
            self.world.printed("stderr", f"Line '{name}' is already in use")
            return False
        self.lines[name] = chip
        return True

    def _second(self) -> Iterator[int]:
        yield from self._sleep(SECOND)
        self._count()

    def _seconds(self, number: int) -> Iterator[int]:
        for _ in range(number):
            yield from self._second()

    def _count(self) -> None:
        self._set("count", (self.fields["count"] + 1) % (1 << 32))

    # The loops.

    def _minimal_server(self) -> Iterator[int]:
        self.world.printed("stdout", "Minimal server")
        for field in ("batteryEmpty", "batteryBad", "testing"):
            self._set(field, 255)
        while True:
            self._set("missingPower", 1 if self._read("PWR-IN") else 0)
            yield from self._second()

    def _full_server(self) -> Iterator[int]:
        world = self.world
        world.printed("stdout", "Full server")
        missing = self._read("PWR-IN")
        while True:
            if missing:
                self._set("missingPower", 1)
                if self._read("BAT-T1") != 1:
                    yield from self._go_down()
            else:
                self._set("missingPower", 0)
                if self._is_test_due():
                    yield from self._scheduled_test()
            yield from self._second()
            missing = self._read("PWR-IN")

    # The test.

    def _is_test_due(self) -> bool:
        world, settings, fields = self.world, self.settings, self.fields
        start, period = settings["result.start"], settings["test.period"]
        quiet = settings["test.init.disable"]
        if settings["test.external-scheduling"]:
            if fields["runTest"] == 1:
                self._set("runTest", 0)
                if world.passed_since(start, period) and world.up_for(quiet):
                    return True
        elif (
            world.passed_since(start, period)
            and world.up_for(quiet)
            and world.hour() == settings["test.hour"]
        ):
            return True
        if fields["runTestNow"] != 1:
            return False
        self._set("runTestNow", 0)
        world.printed("stdout", "Got run test now")
        return world.passed_since(start, 2 * fields["duration"])

    def _scheduled_test(self) -> Iterator[int]:
        fields, settings = self.fields, self.settings
        self._set("testing", 1)
        settings["result.start"] = self.world.wall_seconds()
        self._save()
        self._set("duration", fields["duration"] or settings["test.duration"])
        yield from self._test(fields["duration"])
        self._set("duration", settings["test.duration"])
        settings["result.end"] = self.world.wall_seconds()
        self._save()
        self._set("testing", 0)
        result = BAD if fields["batteryBad"] == 1 else GOOD
        self.world.printed("stdout", f"Test result: {result}")

    def _save(self) -> None:
        if self._at("fopen")[0]:
            return
        self.world.expected.append(Saved(self.world.now, "result.dat"))
        if self._at("write")[0]:
            self.world.result_file = ""
            return
        self.world.result_file = "".join(
            f"{key}={self.settings[key]}\n" for key in ("result.start", "result.end")
        )

    def _test(self, duration: int) -> Iterator[int]:
        self._drive("BAT-T2", 1)
        good = self._read("BAT-T1") == 1
        for _ in range(duration if good else 0):
            good = yield from self._watch_one_second()
            if not good:
                break
        self._drive("BAT-T2", 0)
        self._set("batteryBad", 0 if good else 1)

    def _watch_one_second(self) -> Iterator[int]:
        world = self.world
        begin = world.now
        world.printed("stdout", *(f"MS: {number}" for number in world.milliseconds()))
        good = self._read("BAT-T1") == 1
        over = not good
        while not over:
            yield from self._sleep(10 * MILLISECOND)
            good = self._read("BAT-T1") == 1
            yield from self._sleep(40 * MILLISECOND)
            # Ends with the twentieth step, unless a sleep has failed: nothing is near the limit.
            over = not good or world.now // MILLISECOND - begin // MILLISECOND > 999
            world.milliseconds()
        self._count()
        return good

    # The way down.

    def _go_down(self) -> Iterator[int]:
        world, settings = self.world, self.settings
        world.printed("stdout", "Battery empty")
        self._set("batteryEmpty", 1)
        yield from self._grace(15)
        timeout = settings["test.shut.timeout"]
        yield from self._seconds(timeout - 15 if timeout > 15 else 5)
        command = settings["test.shut.cmd"]
        world.printed("stdout", f"Execute: {command}")
        yield from self._command(command)
        yield from self._seconds(max(settings["test.shut.cutoff"], 15))
        world.printed("stdout", "Still alive, force shutdown")
        world.expected.append(Synced(world.now))
        self._drive("BAT-SW", 0)

    def _command(self, command: str) -> Iterator[int]:
        world = self.world
        if self._at("system")[0]:
            return
        world.expected.append(Called(world.now + world.charges.before_note, command))
        if world.life["command_seconds"]:
            self.command_ends = world.now + world.life["command_seconds"] * SECOND
            yield world.life["command_seconds"] * SECOND
            self.command_ends = None
        world.now += world.charges.command

    def _grace(self, seconds: int) -> Iterator[int]:
        for _ in range(seconds):
            yield from self._second()
            if self.fields["batteryEmpty"] != 1:
                return
        self.world.printed("stdout", f"Not ready for shutdown after {seconds} seconds")
