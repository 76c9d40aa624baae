"""The two loops: their second, what they publish and what they leave alone."""

from pathlib import Path

from rig import NO_RESULT_FILE, SECOND

from guest.clock import now, set_wall, sleep_until

A_TIME = 1_790_000_000


def power_reads(rig):
    return [
        event.time
        for event in rig.trace.events()
        if event.line == "PWR-IN" and event.kind == "read"
    ]


def test_count_advances_once_a_second(rig):
    daemon = rig.full_server("test.hour=-1")
    for seconds in (0, 1, 2, 3, 60, 3600):
        sleep_until(daemon.started + seconds * SECOND + SECOND // 2)
        assert rig.status()["count"] == seconds


def test_a_tick_is_exactly_a_second_and_one_read(rig):
    rig.full_server("test.hour=-1")
    sleep_until(now() + 10 * SECOND + SECOND // 2)
    reads = power_reads(rig)
    assert len(reads) == 11
    assert {round((later - earlier) / 1e6) for earlier, later in zip(reads, reads[1:])} == {1000}
    assert {event.line for event in rig.trace.events() if event.kind == "read"} == {"PWR-IN"}


def test_missing_power_follows_the_line_within_a_second(rig):
    daemon = rig.full_server("test.hour=-1")
    for round_trip in range(3):
        begin = daemon.started + (4 * round_trip + 1) * SECOND
        sleep_until(begin + SECOND // 10)
        rig.board.ac(False)
        sleep_until(begin + 9 * SECOND // 10)
        assert rig.status()["missingPower"] == 0
        sleep_until(begin + SECOND + SECOND // 10)
        assert rig.status()["missingPower"] == 1
        rig.board.ac(True)
        sleep_until(begin + 2 * SECOND + SECOND // 10)
        assert rig.status()["missingPower"] == 0
    assert daemon.stdout == "Start\nFull server\n"


def test_the_battery_is_read_only_while_power_is_missing(rig):
    daemon = rig.full_server("test.hour=-1")
    sleep_until(daemon.started + 2 * SECOND + SECOND // 2)
    rig.board.ac(False)
    sleep_until(daemon.started + 5 * SECOND + SECOND // 2)
    rig.board.ac(True)
    sleep_until(daemon.started + 8 * SECOND + SECOND // 2)
    reads = [
        round((event.time - daemon.started) / SECOND)
        for event in rig.trace.events()
        if event.line == "BAT-T1" and event.kind == "read"
    ]
    assert reads == [3, 4, 5]


def test_power_lost_before_the_start_counts_from_the_first_pass(rig):
    rig.board.ac(False)
    rig.board.battery(False)
    daemon = rig.full_server("test.hour=-1")
    line = daemon.wait_for_line("Battery empty", within=0.1)
    assert line.time - daemon.started < SECOND


def test_the_minimal_server_publishes_power_alone(rig):
    daemon = rig.minimal_server()
    assert rig.status() == {
        "count": 0,
        "missingPower": 0,
        "batteryEmpty": 255,
        "batteryBad": 255,
        "testing": 255,
        "runTest": 0,
        "runTestNow": 0,
        "duration": 0,
    }
    rig.board.ac(False)
    rig.board.battery(False)
    sleep_until(daemon.started + SECOND + SECOND // 2)
    status = rig.status()
    assert (status["count"], status["missingPower"], status["batteryEmpty"]) == (1, 1, 255)
    rig.board.ac(True)
    sleep_until(daemon.started + 1000 * SECOND + SECOND // 2)
    status = rig.status()
    assert (status["count"], status["missingPower"], status["testing"]) == (1000, 0, 255)
    assert daemon.stdout == "Start\nMinimal server\n"
    assert rig.commands.calls() == []
    assert {event.line for event in rig.trace.events()} == {"PWR-IN"}


def test_the_minimal_server_serves_no_request(rig):
    rig.configure("test.external-scheduling=true", "test.init.disable=0")
    daemon = rig.minimal_server()
    rig.set_fields(runTest=1, runTestNow=1, duration=5)
    sleep_until(now() + 10 * SECOND)
    status = rig.status()
    assert (status["runTest"], status["runTestNow"], status["duration"]) == (1, 1, 5)
    assert daemon.stdout == "Start\nMinimal server\n"


def test_count_wraps_and_prints_as_a_signed_number(rig):
    daemon = rig.full_server("test.hour=-1")
    sleep_until(daemon.started + SECOND // 2)
    rig.set_fields(count=2**31 - 1)
    assert rig.status()["count"] == 2**31 - 1
    sleep_until(daemon.started + 3 * SECOND // 2)
    assert rig.status()["count"] == -(2**31)
    rig.set_fields(count=2**32 - 1)
    assert rig.status()["count"] == -1
    sleep_until(daemon.started + 5 * SECOND // 2)
    assert rig.status()["count"] == 0


def test_a_stopped_daemon_sleeps_on_when_it_continues(rig):
    """The second that was interrupted is not lost and not counted twice."""
    daemon = rig.full_server("test.hour=-1")
    sleep_until(daemon.started + 2 * SECOND + SECOND // 4)
    daemon.send(19)
    sleep_until(daemon.started + 2 * SECOND + SECOND // 2)
    daemon.send(18)
    sleep_until(daemon.started + 3 * SECOND + SECOND // 2)
    assert rig.status()["count"] == 3
    assert round((power_reads(rig)[-1] - daemon.started) / 1e6) == 3000


def test_a_test_leaves_its_times_in_order(rig):
    set_wall(A_TIME + 0.5)
    daemon = rig.full_server("test.hour=-1")
    assert not rig.result_file.exists()
    rig.client("-n", "--test.duration=5")
    daemon.wait_for_line("Test result: Battery is good", within=7)
    start, end = rig.saved_times()
    assert A_TIME <= start <= end <= start + 6


def test_settings_are_read_once(rig):
    daemon = rig.full_server("test.hour=-1", "test.shut.timeout=0")
    rig.configure("test.battery=false", "test.shut.timeout=500", "test.shut.cmd=poweroff")
    rig.board.battery(False)
    rig.board.ac(False)
    daemon.wait_for_line("Execute: reboot", within=22)


def test_the_program_is_one_process_with_one_thread(rig):
    daemon = rig.full_server("test.hour=-1")
    tasks = list(Path(f"/proc/{daemon.pid}/task").iterdir())
    assert [task.name for task in tasks] == [str(daemon.pid)]
    parent = f"PPid:\t{daemon.pid}\n"
    assert not [file for file in Path("/proc").glob("[0-9]*/status") if parent in file.read_text()]
    assert daemon.stderr == NO_RESULT_FILE
