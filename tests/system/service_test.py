"""The service on a booted Debian: start, lock, clients, tests of the battery, failures."""

import re
from pathlib import Path

import pytest

from pages import PROJECT
from rig import (
    CONFIGURATION,
    DESCRIPTION,
    LOCK,
    NO_RESULT_FILE,
    PROGRAM,
    RESULT_FILE,
    SECOND,
    UNIT,
    UNITS,
    shown,
    systemctl,
    systemd_version,
)
from status import ZERO_STATUS

from guest.board import wire
from guest.clock import now, set_wall, sleep_until, wait_until, wall
from guest.lines import PWR_IN, make_chip, remove_chips
from guest.process import Program, run

DAY = 24 * 3600
UP = [f"Starting {DESCRIPTION}...", f"Started {DESCRIPTION}.", NO_RESULT_FILE, "Start"]
DOWN = [
    "Interrupted with signal: 15",
    f"{UNIT}: Deactivated successfully.",
    f"Stopped {DESCRIPTION}.",
]
# What is said, beside the restart, of a unit that systemd starts again; in Debian 13 no more.
RESTARTED = [f"Stopped {DESCRIPTION}."] if systemd_version() < 257 else []

# In seconds; Debian 13's systemd comes to it by steps.
LONGEST_PAUSE = 12 if systemd_version() < 254 else 62

TRIED_AGAIN = 6
AGAIN = f"{UNIT}: Scheduled restart job, restart counter is at {TRIED_AGAIN}."


def failed_starts(reasons):
    """What the journal has when every start ends for these reasons, until it says AGAIN."""
    messages = []
    for restarts in range(1, TRIED_AGAIN + 1):
        messages += [
            *UP[:2],
            *reasons,
            f"{UNIT}: Main process exited, code=exited, status=1/FAILURE",
            f"{UNIT}: Failed with result 'exit-code'.",
            f"{UNIT}: Scheduled restart job, restart counter is at {restarts}.",
            *RESTARTED,
        ]
    return messages[: messages.index(AGAIN) + 1]


def said_until_again(journal):
    """Without the look whether the board is guarded, which comes at some moment in between."""
    looks = re.compile(
        rf"The daemon does not stay up; .*|{CONFIGURATION} is refused: .*"
        # What Debian 13's systemd says of that unit stands there, too.
        r"|kelvo-pwr-watch\.service: .*|Failed to start kelvo-pwr-watch\.service - .*"
    )
    lines = [line for line in journal.stdout.splitlines() if not looks.fullmatch(line)]
    return lines[: lines.index(AGAIN) + 1]


def test_it_is_up_after_the_boot():
    """First, before any other test has changed what was booted."""
    assert run(["systemctl", "is-system-running", "--wait"]).stdout == "running\n"
    assert shown(UNIT, "ActiveState") == "active"
    journal = run(["journalctl", "--boot", "--unit", UNIT, "--output=cat"]).stdout
    assert journal.splitlines() == [*UP, "Full server"]


def test_systemd_finds_no_fault_with_the_units():
    verified = run(["systemd-analyze", "verify", "--man=no", *UNITS])
    assert (verified.status, verified.stdout, verified.stderr) == (0, "", "")


def test_the_status_is_that_of_the_service(service):
    service.start()
    status = service.status()
    assert status == {**ZERO_STATUS, "count": status["count"]}
    sleep_until(now() + 60 * SECOND)
    assert service.status()["count"] == status["count"] + 60
    service.board.ac(False)
    sleep_until(now() + 1 * SECOND)
    assert service.status()["missingPower"] == 1
    # Everybody may look.
    nobody = run(["runuser", "-u", "nobody", "--", PROGRAM, "-c", str(CONFIGURATION), "--status"])
    assert nobody.stdout.splitlines()[1] == "missingPower             : 1"


def test_it_waits_for_chips_whose_drivers_are_being_loaded(service, tmp_path):
    remove_chips()
    wiring = tmp_path / "wiring"
    wiring.write_text(
        "#!/bin/sh\n"
        "sleep 7\n"
        "PYTHONPATH=/run/board/library /usr/bin/python3 -c "
        "'from guest.board import wire; wire(natural_pulls=True)'\n"
    )
    wiring.chmod(0o755)
    rules = Path("/run/udev/rules.d/90-slow.rules")
    rules.parent.mkdir(exist_ok=True)
    rules.write_text(f'ACTION=="change", KERNEL=="null", RUN+="{wiring}"\n')
    try:
        run(["udevadm", "control", "--reload"])
        begin = now()
        run(["udevadm", "trigger", "--action=change", "/sys/class/mem/null"])
        service.start()
        assert 7 * SECOND <= now() - begin < 8 * SECOND
        assert service.journal.stdout.splitlines() == [*UP, "Full server"]
    finally:
        rules.unlink()
        run(["udevadm", "control", "--reload"])


def test_the_documented_drop_in_waits_for_chips_that_come_late(service):
    page = (PROJECT / "docs/operation.md").read_text()
    (drop_in,) = re.findall(r"```ini\n(.*?)```", page, re.DOTALL)
    service.drop_in(drop_in)
    remove_chips()
    systemctl("start", "--no-block", UNIT)
    sleep_until(now() + 20 * SECOND)
    assert shown(UNIT, "ActiveState") == "activating"
    # One line of the four is not enough.
    make_chip([PWR_IN])
    sleep_until(now() + 20 * SECOND)
    assert shown(UNIT, "ActiveState") == "activating"
    remove_chips()
    wire(natural_pulls=True)
    service.journal.wait_for_line("Full server", within=2)


def test_a_second_daemon_is_refused_beside_the_service(service):
    service.start()
    count = service.status()["count"]
    second = service.client()
    assert (second.status, second.stderr.splitlines()[-1]) == (1, "Another instance is running")
    sleep_until(now() + 10 * SECOND)
    assert service.status()["count"] == count + 10


def test_the_service_is_refused_beside_a_daemon(service):
    with Program([PROGRAM, "-c", str(CONFIGURATION)]) as first:
        first.wait_for_line("Full server", within=1)
        systemctl("start", UNIT)
        service.journal.wait_for_line(AGAIN, within=400)
        assert said_until_again(service.journal) == failed_starts(
            [NO_RESULT_FILE, "Another instance is running"]
        )
        assert first.returncode is None


def test_nobody_else_can_hold_the_lock(service):
    service.start()
    assert (LOCK.stat().st_mode & 0o777, LOCK.stat().st_uid) == (0o600, 0)
    held = run(["flock", "--nonblock", str(LOCK), "true"])
    assert (held.status, held.stderr) == (1, "")
    other = run(["runuser", "-u", "nobody", "--", "flock", "--nonblock", str(LOCK), "true"])
    assert other.stderr == f"flock: cannot open lock file {LOCK}: Permission denied\n"


def test_without_the_lock_file_it_does_not_start(service):
    """A daemon that cannot open it would go on without a lock, and say nothing."""
    LOCK.unlink()
    try:
        assert systemctl("start", UNIT).status == 1
        reason = f"{UNIT}: Failed to set up mount namespacing: .*{LOCK}: No such file or directory"
        service.journal.wait_for_line(re.compile(reason), within=1)
    finally:
        run(["systemd-tmpfiles", "--create", "kelvo-pwr.conf"])
    assert LOCK.exists()


def test_a_battery_test_for_a_client(service):
    service.configure("test.duration=5")
    service.start()
    assert service.client("--run-test-now").status == 0
    service.journal.wait_for_line("Got run test now", within=2)
    begin = now()
    assert service.status()["testing"] == 1
    assert service.board.at2.level() == 1
    line = service.journal.wait_for_line("Test result: Battery is good", within=6)
    assert abs(line.time - begin - 5 * SECOND) < SECOND // 100
    assert service.board.at2.level() == 0
    assert len(re.findall("^MS: ", service.journal.stdout, re.MULTILINE)) == 5
    start, end = re.fullmatch(
        r"result\.start=(\d+)\nresult\.end=(\d+)\n", RESULT_FILE.read_text()
    ).groups()
    assert int(end) - int(start) == 5


def test_a_battery_that_fails_its_test(service):
    service.start()
    service.client("--run-test-now")
    service.journal.wait_for_line("Got run test now", within=2)
    service.board.battery(False)
    service.journal.wait_for_line("Test result: Battery is bad", within=2)
    assert service.status()["batteryBad"] == 1


def test_a_stop_during_a_battery_test_restores_power(service):
    service.start()
    service.client("--run-test-now")
    service.journal.wait_for_line("Got run test now", within=2)
    assert service.board.at2.level() == 1
    # So that the level is the daemon's doing.
    service.board.at2.pull(1)
    with Program(["systemctl", "stop", UNIT]) as stop:
        service.journal.wait_for_line("Power restored", within=1)
        assert stop.wait_for_exit(within=1) == 0
    assert service.state() == ("inactive", "success")
    # What the daemon prints and what systemd says take different ways into the journal.
    interrupted = [DOWN[0], "Interrupted while doing battery test", "Power restored"]
    said = service.journal.stdout.splitlines()
    assert [line for line in said if line in interrupted] == interrupted
    assert said[-1] == DOWN[-1]


def test_the_timer_asks_for_tests(service):
    assert systemctl("is-enabled", "kelvo-pwr-test.timer").stdout == "disabled\n"
    period = 2 * DAY
    service.configure(
        "test.external-scheduling=true", "test.init.disable=0", f"test.period={period}"
    )
    first = ten_o_clock_tomorrow()
    set_wall(first - 0.5)
    service.start()
    client = service.follow("kelvo-pwr-test.service")
    systemctl("start", "kelvo-pwr-test.timer")
    service.journal.wait_for_line("Test result: Battery is good", within=700)

    # A day later it is too early; after the period it is not.
    set_wall(first + DAY - 0.5)
    client.wait_for_line(f"Last test was done less than {period} seconds ago", within=70)
    set_wall(first + 3 * DAY - 0.5)
    service.journal.wait_for_line("Test result: Battery is good", within=700)


def ten_o_clock_tomorrow():
    return (wall() // DAY + 1) * DAY + 10 * 3600


def test_a_request_without_the_service_fails(service):
    service.start()
    systemctl("stop", UNIT)
    refused = systemctl("start", "kelvo-pwr-test.service")
    assert refused.status == 1
    assert service.status()["runTest"] == 0


@pytest.mark.parametrize(
    "setting, reason",
    [
        (
            "test.duration=long",
            "the argument ('long') for option 'test.duration' is invalid",
        ),
        ("nonsense", "the options configuration file contains an invalid line 'nonsense'"),
    ],
)
def test_a_broken_configuration_is_seen(service, setting, reason):
    service.configure(setting)
    systemctl("start", UNIT)
    service.journal.wait_for_line(AGAIN, within=400)
    assert said_until_again(service.journal) == failed_starts([reason])

    service.configure()
    service.journal.wait_for_line("Full server", within=62)


def test_a_chip_that_is_missing_for_a_moment_is_waited_for(service):
    remove_chips()
    systemctl("start", UNIT)
    sleep_until(now() + 35 * SECOND)
    wire(natural_pulls=True)
    service.journal.wait_for_line("Full server", within=LONGEST_PAUSE)


def test_a_missing_line_is_seen(service):
    remove_chips()
    systemctl("start", UNIT)
    service.journal.wait_for_line(AGAIN, within=400)
    assert said_until_again(service.journal) == failed_starts(
        [NO_RESULT_FILE, "Start", "Failed to get line 'PWR-IN'"]
    )


@pytest.mark.parametrize("signal", ["ABRT", "KILL"])
def test_a_daemon_that_dies_is_started_again(service, signal):
    service.start()
    begin = now()
    systemctl("kill", f"--signal={signal}", UNIT)
    again = service.journal.wait_for_line("Full server", within=12)
    assert 10 * SECOND <= again.time - begin < 11 * SECOND
    assert shown(UNIT, "NRestarts") == "1"


def test_one_that_dies_now_and_then_is_not_given_up(service):
    service.start()
    for _ in range(10):
        sleep_until(now() + 20 * SECOND)
        systemctl("kill", "--signal=ABRT", UNIT)
        service.journal.wait_for_line("Full server", within=LONGEST_PAUSE)


def test_without_the_battery_lines_it_only_watches(service):
    service.configure("gpio.at1=NO-SUCH-LINE")
    systemctl("start", UNIT)
    service.journal.wait_for_line("Minimal server", within=1)
    wait_until(lambda: service.status()["testing"] == 255, within=1)
    assert service.state() == ("active", "success")
