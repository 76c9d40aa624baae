"""The simulator itself: that time, lines, calls and signals are as it says, in each build."""

import errno
import os
import signal

import pytest
from guest.board import wire
from guest.clock import now, set_wall, sleep_until, wall
from guest.lines import BAT_SW, PWR_IN, chips, make_chip, remove_chips
from guest.process import Program, run
from guest.record import Record, watch
from guest.segment import SEGMENT, Records
from guest.stand_in import StandIns
from guest.trace import Trace
from simulator import simulator

PROGRAM = os.environ["KELVO_PWR"]
SECOND = 10**9
NOON = 1_717_416_000  # a whole hour of a day in 2024, by UTC


@pytest.fixture
def board(monkeypatch):
    monkeypatch.setenv("TZ", "UTC")
    SEGMENT.unlink(missing_ok=True)
    remove_chips()
    yield wire()
    simulator().forget_triggers()


@pytest.fixture
def daemon(board, tmp_path):
    """Starts one with these settings, which has reached its first sleep then."""
    started = []

    def start(*settings, expected="Full server"):
        conf = tmp_path / "conf"
        own = [f"sys.save.path={tmp_path}/result", "test.battery=true"]
        if not any("test.hour" in setting for setting in settings):
            own.append("test.hour=-1")
        conf.write_text("\n".join([*own, *settings]))
        started.append(Program([PROGRAM, "-c", conf]))
        started[-1].wait_for_line(expected, within=0)
        return started[-1]

    yield start
    for program in started:
        program.kill()


@pytest.fixture
def records(board):
    records = Records()
    watch(records)
    return records


def texts(program):
    return [line.text for line in program.lines if line.stream == "stdout"]


def test_no_time_passes_while_a_process_runs(daemon, board):
    begin = now()
    with Trace() as trace:
        program = daemon()
        assert now() == begin
        assert [event.time for event in trace.events()] == [begin] * 7
    assert [line.time for line in program.lines] == [begin] * 3


def test_a_sleep_ends_at_its_nanosecond(daemon):
    begin = now()
    daemon()
    with Trace() as trace:
        sleep_until(begin + 3 * SECOND - 1)
        assert [event.time - begin for event in trace.events()] == [SECOND, 2 * SECOND]
        sleep_until(begin + 3 * SECOND)
        assert trace.events()[-1].time == begin + 3 * SECOND


def test_what_is_due_at_an_instant_comes_behind_or_before(daemon, board):
    begin = now()
    with Trace() as trace:
        daemon()
        simulator().go(begin + SECOND, before=True)
        board.pwr_in.pull(1)
        assert now() == begin + SECOND
        sleep_until(begin + SECOND)
        board.pwr_in.pull(0)
        sleep_until(begin + 2 * SECOND)
        reads = [event for event in trace.events() if event.kind == "read"]
    assert [(event.line, event.level) for event in reads] == [
        ("PWR-IN", 0),
        ("PWR-IN", 1),
        ("BAT-T1", 1),
        ("PWR-IN", 0),
    ]


def test_time_stops_where_a_line_is_printed(daemon, board):
    begin = now()
    program = daemon()
    board.battery(False)
    board.ac(False)
    assert program.wait_for_line("Battery empty", within=100).time == begin + SECOND == now()
    line = program.wait_for_line("Not ready for shutdown after 15 seconds", within=100)
    assert line.time == begin + 16 * SECOND == now()


def test_a_line_that_does_not_come_is_waited_for_no_longer(daemon):
    program = daemon()
    end = now() + 5 * SECOND
    with pytest.raises(AssertionError, match="waited 5 seconds for a line 'Never'"):
        program.wait_for_line("Never", within=5)
    assert now() == end


def test_the_calendar_is_set_and_goes_on(daemon):
    set_wall(NOON - 1.5)
    program = daemon("test.hour=12", "test.period=0", "test.init.disable=0", "test.duration=1")
    begin = now()
    program.wait_for_line("Test result: Battery is good", within=10)
    assert texts(program)[2] == f"MS: {(begin + 2 * SECOND) // 10**6}"
    assert wall() == NOON + 1.5


def test_days_are_over_soon(daemon, records):
    daemon()
    sleep_until(now() + 259_200 * SECOND)
    assert records.fields()["count"] == 259_200


def test_each_change_of_a_field_has_its_time(daemon, records, board):
    begin = now()
    with Record("field") as fields:
        program = daemon("test.duration=2")
        records.set({"runTestNow": 1})
        program.wait_for_line("Test result: Battery is good", within=10)
        changes = [(event.time - begin, event.subject, event.value) for event in fields.events()]
    assert changes == [
        (SECOND, "count", 1),
        (SECOND, "runTestNow", 0),
        (SECOND, "testing", 1),
        (SECOND, "duration", 2),
        (2 * SECOND, "count", 2),
        (3 * SECOND, "count", 3),
        (3 * SECOND, "testing", 0),
    ]


def test_a_client_meets_the_daemon_and_its_changes_are_its_own(daemon, records):
    program = daemon()
    with Record("field") as fields:
        client = Program([PROGRAM, "--run-test-now", "--test.duration=7"])
        assert (client.returncode, client.stdout) == (0, "")
        assert {(event.subject, event.value, event.process) for event in fields.events()} == {
            ("runTestNow", 1, client.pid),
            ("duration", 7, client.pid),
        }
        sleep_until(now() + SECOND)
    assert texts(program)[2] == "Got run test now"


def test_signals_are_handled_in_the_middle_of_a_sleep(daemon, records):
    program = daemon("test.duration=5")
    records.set({"runTestNow": 1})
    program.wait_for_line("Got run test now", within=2)
    sleep_until(now() + 1_234_567_890)
    with Trace() as trace:
        program.send(signal.SIGTERM)
        assert trace.writes("BAT-T2") == [(now(), 0)]
    assert program.returncode == 0
    assert texts(program)[-2:] == ["Interrupted while doing battery test", "Power restored"]
    assert {line.time for line in program.lines[-3:]} == {now()}


def test_a_stopped_process_goes_on_where_it_was(daemon):
    program = daemon()
    begin = now()
    program.send(signal.SIGSTOP)
    program.send(signal.SIGTERM)
    with Trace() as trace:
        sleep_until(begin + 3 * SECOND // 2)
        assert trace.events() == [] and program.returncode is None
        program.send(signal.SIGCONT)
    assert program.returncode == 0
    assert texts(program)[-1] == "Interrupted with signal: 15"


def test_a_stopped_process_does_not_lose_its_second(daemon):
    program = daemon()
    begin = now()
    program.send(signal.SIGSTOP)
    sleep_until(begin + SECOND // 2)
    program.send(signal.SIGCONT)
    with Trace() as trace:
        sleep_until(begin + 2 * SECOND)
        assert [event.time - begin for event in trace.events()] == [SECOND, 2 * SECOND]


def test_a_stopped_process_can_be_killed(daemon):
    program = daemon()
    program.send(signal.SIGSTOP)
    program.kill()
    assert program.returncode == -signal.SIGKILL


def test_what_starts_the_program_is_of_another_build(board):
    """It may not have the libraries that the simulator's object needs."""
    script = 'echo "preloaded: $LD_PRELOAD"; exec "$@"'
    with Program(["/bin/sh", "-c", script, "sh", PROGRAM]) as program:
        program.wait_for_line("preloaded: ", within=0)
        program.wait_for_line("Minimal server", within=0)


def test_signals_have_their_defaults_whatever_is_ignored_around(board):
    script = "trap '' HUP INT QUIT; exec \"$@\""
    for number in signal.SIGHUP, signal.SIGQUIT:
        with Program(["/bin/sh", "-c", script, "sh", PROGRAM]) as program:
            program.send(number)
            assert program.returncode == -number


def test_an_ended_process_has_no_lines(daemon, board):
    program = daemon()
    assert board.bat_sw.holder() == "kelvo-pwr" and board.bat_sw.level() == 1
    program.send(signal.SIGKILL)
    assert program.returncode == -signal.SIGKILL
    assert board.bat_sw.holder() is None and board.bat_sw.level() == 0


def test_commands_take_their_time_and_keep_the_lock(daemon, board):
    with StandIns(then="sleep 30; exit 1") as commands:
        program = daemon("test.shut.timeout=20", "test.shut.cutoff=15")
        board.battery(False)
        board.ac(False)
        begin = program.wait_for_line("Execute: reboot", within=100).time
        assert [(call.name, call.time) for call in commands.calls()] == [("reboot", begin)]
        program.send(signal.SIGINT)  # Ignored for the time being.
        assert run([PROGRAM, "--run-test"]).status == 0  # Another process's end changes nothing.
        sleep_until(begin + 10 * SECOND)
        program.send(signal.SIGTERM)
        assert texts(program)[-1] == "Interrupted with signal: 15"
        for _ in range(2):  # Nor that of one that had nothing to do with the command.
            refused = run([PROGRAM])
            assert refused.stderr.endswith("Another instance is running\n") and refused.status == 1
        sleep_until(begin + 30 * SECOND)
        next_one = daemon()
    assert next_one.returncode is None


def test_a_line_that_another_has_is_in_use(board, daemon):
    with board.bat_sw.hold():
        program = daemon(expected="Minimal server")
    assert program.stderr.endswith("Line 'BAT-SW' is already in use\n")


def test_the_first_chip_with_a_name_counts(board):
    second = make_chip([PWR_IN, BAT_SW])
    with Program([PROGRAM]) as program:
        program.wait_for_line("Minimal server", within=0)
        assert [chip.line(PWR_IN).holder() for chip in chips()] == ["kelvo-pwr", None]
    board.chip.remove()
    with Program([PROGRAM]) as program:
        program.wait_for_line("Minimal server", within=0)
        assert second.line(PWR_IN).holder() == "kelvo-pwr"


def test_a_chip_that_vanishes_takes_its_lines(board, daemon):
    program = daemon()
    board.chip.remove()
    assert program.wait_for_exit(within=2) == -signal.SIGABRT
    assert "error reading GPIO line values: No such device" in program.stderr


def test_a_line_follows_another(board, daemon, records):
    board.pwr_in.follow(board.at2)
    program = daemon("test.duration=3")
    records.set({"runTestNow": 1})
    program.wait_for_line("Got run test now", within=2)
    assert board.pwr_in.level() == 1
    program.wait_for_line("Test result: Battery is good", within=5)
    assert board.pwr_in.level() == 0


def test_the_nth_call_fails(daemon):
    program = daemon()
    simulator().trigger("get_value", nth=3, error=errno.EIO)
    begin = now()
    assert program.wait_for_exit(within=10) == -signal.SIGABRT
    assert now() == begin + 3 * SECOND
    assert "error reading GPIO line values: Input/output error" in program.stderr


def test_an_interrupted_sleep_is_slept_to_its_end(daemon):
    daemon()
    simulator().trigger("nanosleep", error=errno.EINTR, times=3, slept=SECOND // 4)
    begin = now()
    with Trace() as trace:
        sleep_until(begin + 3 * SECOND)
        assert [event.time - begin for event in trace.events()] == [
            SECOND,
            2 * SECOND,
            3 * SECOND,
        ]
    assert simulator().shared.trigger[0].times == 0


def test_a_signal_comes_between_two_calls(daemon, records):
    """At the first look of a test, with AC power disconnected already."""
    program = daemon("test.duration=3")
    records.set({"runTestNow": 1})
    simulator().trigger("set_value", number=signal.SIGINT, after=True)
    with Trace() as trace:
        assert program.wait_for_exit(within=2) == 0
        assert trace.writes("BAT-T2") == [(now(), 1), (now(), 0)]
    assert texts(program)[-1] == "Power restored"


def test_a_level_changes_between_two_calls(daemon, board, records):
    """Behind the first sample of a test, which follows a look at PWR-IN and two at BAT-T1."""
    program = daemon("test.duration=3")
    records.set({"runTestNow": 1})
    simulator().trigger("get_value", nth=4, line=board.at1.number, level=0, after=True)
    begin = now() + SECOND
    line = program.wait_for_line("Test result: Battery is bad", within=2)
    assert line.time == begin + SECOND // 10


def test_more_events_than_there_is_room_for(daemon):
    daemon()
    with Record("read") as reads:
        begin = now()
        sleep_until(begin + 200_000 * SECOND)
        assert [event.time - begin for event in reads.events()] == [
            second * SECOND for second in range(1, 200_001)
        ]
