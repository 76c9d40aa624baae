"""The status, as its client prints it."""

from guest.seen import Result

ZERO_STATUS = {
    "count": 0,
    "missingPower": 0,
    "batteryEmpty": 0,
    "batteryBad": 0,
    "testing": 0,
    "runTest": 0,
    "runTestNow": 0,
    "duration": 0,
}


def fields(printed: Result) -> dict[str, int]:
    """All eight of them."""
    assert printed.status == 0, printed
    lines = (line.split(" : ") for line in printed.stdout.splitlines())
    return {name.strip(): int(value) for name, value in lines}
