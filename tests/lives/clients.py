"""What a client answers, and what it leaves in the request record."""

from typing import NamedTuple, Sequence

from model import BAD, GOOD
from settings import listing
from world import REQUEST, STATUS, World


class Answer(NamedTuple):
    stdout: list[str]
    stderr: list  # None stands for a text that is a library's own
    status: int


def client(world: World, flags: Sequence[str], words: Sequence) -> Answer:
    """`flags` are long names without their dashes; `words` are settings on the command line."""
    values, stdout, stderr = world.load(words)
    if values is None:
        return Answer(stdout, stderr, 1)
    if "verbose" in flags:
        stdout += listing(values, "run-test" in flags, "run-test-now" in flags)
    fields = world.segment
    if fields is None:
        return Answer(stdout, [*stderr, "No such file or directory"], 1)
    if "status" in flags:
        stdout += [f"{name:<24} : {_signed(fields[name])}" for name in STATUS + REQUEST]
    elif fields["testing"] == 255:
        stdout.append("Testing is disabled, exiting.")
    else:
        stdout += _request(world, "run-test" in flags, values)
    return Answer(stdout, stderr, 0)


def _request(world: World, periodic: bool, values: dict) -> list[str]:
    fields, start = world.segment, values["result.start"]
    if fields["testing"] == 1:
        return ["Test is already running."]
    if fields["missingPower"] == 1:
        state = "Battery is empty" if fields["batteryEmpty"] == 1 else GOOD
        return ["We are running on batteries.", state]
    threshold = values["test.period"] if periodic else 2 * values["test.duration"]
    allowed = world.passed_since(start, threshold)
    if periodic:
        allowed = allowed and world.up_for(values["test.init.disable"])
    if not allowed:
        last = BAD if fields["batteryBad"] == 1 else GOOD
        return [
            f"Last test was done less than {threshold} seconds ago",
            f"Last test result: {last}",
        ]
    fields["runTest" if periodic else "runTestNow"] = 1
    fields["duration"] = values["test.duration"]
    return []


def _signed(value: int) -> int:
    return value - (1 << 32) if value >= 1 << 31 else value


def refused_daemon(world: World, words: Sequence) -> Answer:
    """A start while the lock is held."""
    values, stdout, stderr = world.load(words)
    if values is not None:
        stderr = [*stderr, "Another instance is running"]
    return Answer(stdout, stderr, 1)
