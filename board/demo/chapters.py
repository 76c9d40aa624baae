"""The story itself, wherever it is played."""

from guest.clock import now, sleep_until

SECOND = 10**9
_TEST_SECONDS = 20
SETTINGS = f"""\
test.battery=true
test.hour=-1
test.duration={_TEST_SECONDS}
test.shut.cmd=poweroff
"""


def tell(stage, daemon, begin: int) -> None:
    """From a daemon that was started then to the way down, on a stage with these methods."""
    daemon.wait_for_line("Full server", within=1)
    sleep_until(begin + 5 * SECOND + SECOND // 2)
    stage.chapter("A look at its status")
    stage.client("--status")

    sleep_until(now() + 4 * SECOND)
    stage.chapter("A battery test on request: the battery holds")
    stage.client("--run-test-now")
    daemon.wait_for_line("Test result: Battery is good", within=_TEST_SECONDS + 2)

    sleep_until(now() + 2 * _TEST_SECONDS * SECOND + SECOND // 2)
    stage.chapter("Another test: the battery fails in the eighth second")
    stage.client("--run-test-now")
    daemon.wait_for_line("Got run test now", within=2)
    sleep_until(now() + 7 * SECOND + SECOND // 3)
    stage.battery(False)
    daemon.wait_for_line("Test result: Battery is bad", within=1)
    sleep_until(now() + 5 * SECOND)
    stage.client("--status")
    sleep_until(now() + 5 * SECOND)
    stage.battery(True)

    sleep_until(now() + 10 * SECOND + SECOND // 3)
    stage.chapter("AC power is lost, the battery carries the board")
    stage.ac_lost()
    sleep_until(now() + 20 * SECOND)
    stage.client("--run-test")

    sleep_until(now() + 30 * SECOND + SECOND // 3)
    stage.chapter("The battery runs empty: the way down")
    stage.battery(False)
    daemon.wait_for_line("Battery empty", within=2)
