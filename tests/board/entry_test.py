"""What the program becomes, and how each start ends."""

import re

import pytest

from rig import LOCK, NO_RESULT_FILE, PROGRAM, SECOND, SEGMENT
from status import ZERO_STATUS

from guest.clock import now, sleep_until, wait_until
from guest.process import Program


def assert_ends(daemon, stdout, stderr, status):
    assert daemon.wait_for_exit(within=1) == status
    assert daemon.stdout == stdout
    assert daemon.stderr == NO_RESULT_FILE + stderr


def lines_touched(rig):
    return {event.line for event in rig.trace.events()}


def test_full_server_claims_its_lines_before_the_first_tick(rig):
    daemon = rig.full_server()
    assert daemon.stdout == "Start\nFull server\n"
    assert daemon.stderr == NO_RESULT_FILE
    assert rig.board.at2.level() == 0
    assert rig.board.bat_sw.level() == 1
    assert [line.holder() for line in rig.board.chip.lines] == ["kelvo-pwr"] * 4
    requests = [
        (event.line, event.kind)
        for event in rig.trace.events()
        if event.kind in ("input", "output")
    ]
    assert requests == [
        ("PWR-IN", "input"),
        ("BAT-T1", "input"),
        ("BAT-T2", "output"),
        ("BAT-SW", "output"),
    ]
    assert rig.status() == ZERO_STATUS


@pytest.mark.kernel
def test_the_line_library_asks_for_these_directions(rig):
    rig.full_server()
    directions = [line.info().direction for line in rig.board.chip.lines]
    assert directions == ["input", "input", "output", "output"]


def test_without_battery_tests_no_battery_line_is_even_looked_up(rig):
    rig.configure("gpio.at1=NONE-1", "gpio.at2=NONE-2", "gpio.bat-sw=NONE-3")
    daemon = rig.minimal_server()
    assert daemon.stdout == "Start\nMinimal server\n"
    assert daemon.stderr == NO_RESULT_FILE
    assert lines_touched(rig) == {"PWR-IN"}


@pytest.mark.parametrize("setting", ["gpio.at1", "gpio.at2", "gpio.bat-sw"])
def test_a_missing_battery_line_gives_the_minimal_server(rig, setting):
    rig.configure("test.battery=true", f"{setting}=NO-SUCH-LINE")
    daemon = rig.minimal_server()
    assert daemon.stdout == "Start\nMinimal server\n"
    assert daemon.stderr == NO_RESULT_FILE + "Failed to get line 'NO-SUCH-LINE'\n"
    assert lines_touched(rig) == {"PWR-IN"}
    assert [line.holder() for line in rig.board.chip.lines] == ["kelvo-pwr", None, None, None]


@pytest.mark.parametrize("name", ["BAT-T1", "BAT-T2", "BAT-SW"])
def test_a_busy_battery_line_gives_the_minimal_server(rig, name):
    rig.configure("test.battery=true")
    with rig.board.chip.line(name).hold():
        daemon = rig.minimal_server()
        assert daemon.stderr == NO_RESULT_FILE + f"Line '{name}' is already in use\n"
        free = [line.holder() for line in rig.board.chip.lines if line.name != name]
        assert free == ["kelvo-pwr", None, None]


def test_the_search_for_battery_lines_stops_at_the_first_failure(rig):
    rig.configure("test.battery=true", "gpio.at1=NONE-1", "gpio.at2=NONE-2", "gpio.bat-sw=NONE-3")
    daemon = rig.minimal_server()
    assert daemon.stderr == NO_RESULT_FILE + "Failed to get line 'NONE-1'\n"


def test_a_missing_power_line_ends_the_start_and_leaves_zero_records(rig):
    rig.configure("test.battery=true", "gpio.pwr-in=NO-SUCH-LINE")
    assert_ends(rig.daemon(), "Start\n", "Failed to get line 'NO-SUCH-LINE'\n", 1)
    assert rig.status() == ZERO_STATUS
    assert lines_touched(rig) == set()


def test_a_busy_power_line_ends_the_start(rig):
    with rig.board.pwr_in.hold():
        assert_ends(rig.daemon(), "Start\n", "Line 'PWR-IN' is already in use\n", 1)
    assert rig.status() == ZERO_STATUS


@pytest.mark.kernel
def test_a_failing_request_of_the_power_line_ends_the_start(rig):
    """Another process takes the line between the look at it and the request."""
    log = rig.folder / "calls"
    strace = ("strace", "--output", str(log), "--trace=ioctl")
    minimal = rig.daemon(before=strace)
    minimal.wait_for_line("Minimal server", within=1)
    minimal.kill()
    calls = log.read_text().splitlines()
    # As version 1 and version 2 of the kernel's interface call it.
    request_call = re.compile("GPIO_GET_LINEHANDLE_IOCTL|GPIO_V2_GET_LINE_IOCTL")
    (request,) = (i for i, call in enumerate(calls, 1) if request_call.search(call))
    daemon = rig.daemon(before=(*strace, f"--inject=ioctl:error=EBUSY:when={request}"))
    assert_ends(daemon, "Start\n", "error requesting GPIO lines: Device or resource busy\n", 1)
    assert rig.status() == ZERO_STATUS


@pytest.mark.parametrize("again", ["gpio.at2=BAT-T1", "gpio.bat-sw=BAT-T1", "gpio.bat-sw=BAT-T2"])
def test_a_failing_request_of_a_battery_line_ends_the_start(rig, again):
    rig.configure("test.battery=true", again)
    stderr = "error requesting GPIO lines: Device or resource busy\n"
    assert_ends(rig.daemon(), "Start\n", stderr, 1)


def test_one_name_for_the_power_line_and_a_battery_line_gives_the_minimal_server(rig):
    rig.configure("test.battery=true", "gpio.at1=PWR-IN")
    daemon = rig.minimal_server()
    assert daemon.stderr == NO_RESULT_FILE + "Line 'PWR-IN' is already in use\n"


def test_a_second_daemon_ends_before_it_touches_anything(rig):
    first = rig.full_server()
    sleep_until(first.started + 3 * SECOND + SECOND // 2)
    rig.set_fields(runTest=1)
    segment = SEGMENT.stat()
    assert_ends(rig.daemon(), "", "Another instance is running\n", 1)
    assert (SEGMENT.stat().st_ino, rig.status()) == (
        segment.st_ino,
        {**ZERO_STATUS, "count": 3, "runTest": 1},
    )
    sleep_until(first.started + 5 * SECOND + SECOND // 2)
    assert rig.status()["count"] == 5


def test_a_lock_file_that_cannot_be_opened_stops_no_daemon(rig):
    LOCK.unlink(missing_ok=True)
    LOCK.mkdir()
    try:
        rig.minimal_server()
        assert_ends(rig.daemon(), "Start\n", "Line 'PWR-IN' is already in use\n", 1)
    finally:
        LOCK.rmdir()


def test_the_lock_is_free_again_when_its_daemon_is_killed(rig):
    rig.minimal_server().kill()
    rig.minimal_server()


def test_a_segment_that_cannot_be_created_ends_the_start(rig):
    SEGMENT.mkdir()
    try:
        assert_ends(rig.daemon(), "Start\n", "File exists\n", 1)
    finally:
        SEGMENT.rmdir()


def test_words_without_dashes_are_ignored(rig):
    with Program([PROGRAM, "status", "-c", str(rig.conf), "--", "--help"]) as daemon:
        daemon.wait_for_line("Minimal server", within=1)
        assert daemon.stdout == "Start\nMinimal server\n"


def calls_of(rig, *words, ends_by_itself):
    """The system calls of one run that show the order of its steps."""
    log = rig.folder / "calls"
    calls = "rt_sigaction,openat,flock,write,unlink,munmap,exit_group"
    # As a process of its own, so that a signal goes to the program.
    strace = ("strace", "--daemonize", "--output", str(log), f"--trace={calls}")
    program = rig.daemon(*words, before=strace)
    if not ends_by_itself:
        program.wait_for_line("Minimal server", within=1)
        # Not while it still writes that line, which would then appear twice.
        sleep_until(now() + SECOND // 2)
        program.send(15)
    program.wait_for_exit(within=1)
    wait_until(lambda: "+++ exited" in log.read_text(), within=1)
    return log.read_text().splitlines()


def assert_in_order(calls, *patterns):
    """Each pattern is in a later call than the one before."""
    rest = iter(calls)
    for pattern in patterns:
        assert any(re.search(pattern, call) for call in rest), pattern


@pytest.mark.kernel
def test_the_steps_of_a_start_come_in_their_order(rig):
    calls = calls_of(rig, ends_by_itself=False)
    assert_in_order(
        calls,
        r"rt_sigaction\(SIGINT, {sa_handler=0x",
        r"rt_sigaction\(SIGTERM, {sa_handler=0x",
        r"openat\(.*kelvo-pwr.conf",
        r"openat\(.*result.dat",
        r"openat\(.*/var/run/kelvo-pwr.lock",
        r"flock\(",
        r'write\(1, "Start\\n"',
        r'unlink\("/dev/shm/kelvo-pwr-shm"',
        r"openat\(.*/dev/shm/kelvo-pwr-shm.*O_CREAT",
        r'write\(1, "Minimal server\\n"',
        r'write\(1, "Interrupted with signal: 15\\n"',
        r"munmap\(0x\w+, 1024\)",
        r"exit_group\(0\)",
    )


@pytest.mark.kernel
def test_a_client_unmaps_the_segment_before_it_ends(rig):
    rig.minimal_server()
    calls = calls_of(rig, "--status", ends_by_itself=True)
    assert_in_order(
        calls, r"openat\(.*/dev/shm/kelvo-pwr-shm", r"munmap\(0x\w+, 1024\)", r"exit_group\(0\)"
    )


# The order of the modes: help, status, run-test, run-test-now.


def test_help_wins_over_status_and_opens_no_segment(rig):
    result = rig.client("--help", "-s", "-r", "-n", "-v")
    assert result.stdout == rig.client("-h").stdout
    assert result.stdout.startswith("Options:\n")
    assert (result.stderr, result.status) == (NO_RESULT_FILE, 0)


def test_status_wins_over_requests_and_posts_nothing(rig):
    rig.full_server("test.init.disable=0")
    plain = rig.client("-s")
    assert rig.client("-s", "-r", "-n") == plain
    assert rig.status()["runTest"] == rig.status()["runTestNow"] == 0


def test_run_test_wins_over_run_test_now(rig):
    rig.full_server("test.init.disable=0", "test.hour=-1", "test.duration=7")
    result = rig.client("-n", "-r")
    assert result == ("", NO_RESULT_FILE, 0)
    assert rig.status() == {**ZERO_STATUS, "runTest": 1, "duration": 7}


def test_verbose_goes_with_every_mode(rig):
    daemon = rig.daemon("-v")
    daemon.wait_for_line("Minimal server", within=1)
    listing = daemon.stdout.removesuffix("Start\nMinimal server\n")
    assert len(listing.splitlines()) == 17
    status = rig.client("-s").stdout
    assert rig.client("-v", "-s").stdout == listing + status
    asked = listing.replace("run-test                 : false", "run-test                 : true")
    assert rig.client("-v", "-r").stdout == asked + "Testing is disabled, exiting.\n"
    asked = listing.replace("run-test-now             : false", "run-test-now             : true")
    assert rig.client("-v", "-n").stdout == asked + "Testing is disabled, exiting.\n"


@pytest.mark.parametrize("word", ["--run-test", "--run-test-now"])
def test_a_minimal_server_takes_no_requests(rig, word):
    rig.minimal_server()
    before = rig.status()
    assert rig.client(word) == ("Testing is disabled, exiting.\n", NO_RESULT_FILE, 0)
    assert rig.status() == before


@pytest.mark.parametrize("words", [["-s"], ["-r"], ["-n"]])
def test_a_client_without_a_segment_ends_with_the_reason(rig, words):
    assert rig.client(*words) == ("", NO_RESULT_FILE + "No such file or directory\n", 1)
