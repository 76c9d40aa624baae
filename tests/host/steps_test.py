"""The steps of the entry point, in their order: what it prints and what it asks of the system."""

import errno
import fcntl
import os
import signal
import subprocess
from pathlib import Path

import pytest
from guest.board import wire
from guest.lines import name_of, remove_chips
from guest.process import Program
from guest.record import Record
from simulator import simulator

PROGRAM = os.environ["KELVO_PWR"]
SEGMENT_TOOL = os.environ["SEGMENT_TOOL"]

LOADED = [
    "= signal 2",
    "= signal 15",
    "= setlinebuf",
    "= fopen kelvo-pwr.conf",
    "= fopen result",
    "Cant read timestamp conf",
]
LOCKED = ["= open kelvo-pwr.lock", "= flock"]
CREATED = ["Start", "= shm_unlink kelvo-pwr-shm", "= create kelvo-pwr-shm"]
POWER_LINE = ["= find PWR-IN", "= input PWR-IN"]


@pytest.fixture
def start(tmp_path):
    """Starts the program with these words."""
    conf = tmp_path / "kelvo-pwr.conf"
    conf.write_text(f"sys.save.path={tmp_path}/result\n")
    remove_chips()
    wire()
    simulator().shared.has_calls = 1
    yield lambda *words: Program([PROGRAM, "-c", conf, *words])
    simulator().shared.has_calls = 0
    simulator().forget_triggers()
    Path("/run/kelvo-pwr.lock").unlink(missing_ok=True)


@pytest.fixture
def steps(start):
    """What a run comes to, a daemon's until its first wait, and its status."""

    def run(*words):
        with Record("call", "input", "output", "printed") as record:
            program = start(*words)
            lines, status = told(program, record), program.returncode
            program.kill()
        return lines, status

    return run


def told(program, record):
    """Calls begin with "= "; both of its streams are among them."""
    lines, begins = [], {"stdout": 0, "stderr": 0}
    for event in record.events():
        if event.kind == "printed":
            text = program.text(event.subject, begins[event.subject], event.value)
            begins[event.subject] = event.value
            # A line comes in pieces where the stream has no buffer.
            *_, unfinished = lines[-1:] or [""]
            if not unfinished.startswith("= ") and not unfinished.endswith("\n") and lines:
                text = lines.pop() + text
            lines += text.splitlines(keepends=True)
        elif event.kind == "call":
            lines.append(f"= {event.value}\n")
        else:
            level = f" {event.value}" if event.kind == "output" else ""
            lines.append(f"= {event.kind} {name_of(event.subject)}{level}\n")
    return [line.rstrip("\n") for line in lines]


@pytest.fixture
def segment():
    subprocess.run([SEGMENT_TOOL, "make", "status", "request"], check=True)
    yield
    Path("/dev/shm/kelvo-pwr-shm").unlink()


def test_a_full_server(steps):
    battery_lines = [
        "= find BAT-T1",
        "= find BAT-T2",
        "= find BAT-SW",
        "= input BAT-T1",
        "= output BAT-T2 0",
        "= output BAT-SW 1",
    ]
    assert steps("--test.battery=true", "--test.hour=-1") == (
        [*LOADED, *LOCKED, *CREATED, *POWER_LINE, *battery_lines, "Full server", "= sleep"],
        None,
    )


def test_a_minimal_server(steps):
    assert steps() == (
        [*LOADED, *LOCKED, *CREATED, *POWER_LINE, "Minimal server", "= sleep"],
        None,
    )


def test_a_missing_battery_line_ends_the_search(steps):
    assert steps("--test.battery=true", "--gpio.at2=NONE") == (
        [*LOADED, *LOCKED, *CREATED, *POWER_LINE]
        + ["= find BAT-T1", "= find NONE", "Failed to get line 'NONE'", "Minimal server", "= sleep"],
        None,
    )


def test_a_missing_power_line_ends_the_start(steps):
    assert steps("--gpio.pwr-in=NONE") == (
        [*LOADED, *LOCKED, *CREATED, "= find NONE", "Failed to get line 'NONE'"],
        1,
    )


def test_a_segment_that_cannot_be_made_ends_the_start_before_a_line_is_looked_for(steps):
    simulator().trigger("shm_open", error=errno.EACCES)
    assert steps() == ([*LOADED, *LOCKED, *CREATED, "Permission denied"], 1)


def test_a_second_daemon_creates_nothing(steps):
    with open("/run/kelvo-pwr.lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        assert steps() == ([*LOADED, *LOCKED, "Another instance is running"], 1)


@pytest.mark.parametrize(
    "word, calls",
    [
        ("--status", "= read kelvo-pwr-shm"),
        ("--run-test", "= open kelvo-pwr-shm"),
        ("--run-test-now", "= open kelvo-pwr-shm"),
    ],
)
def test_a_client_touches_neither_lock_nor_lines(steps, segment, word, calls):
    lines, status = steps(word)
    printed = 8 if word == "--status" else 0
    assert (lines[: len(lines) - printed], status) == ([*LOADED, calls], 0)


def test_help_touches_nothing(steps):
    lines, status = steps("--help")
    assert (lines[: len(LOADED) + 1], status) == ([*LOADED, "Options:"], 0)
    assert [line for line in lines if line.startswith("= ")] == LOADED[:-1]


@pytest.mark.parametrize(
    "second, answer",
    [
        # The same signal waits until its handler is over, which never is.
        (signal.SIGTERM, []),
        (signal.SIGINT, ["Interrupted with signal: 2"]),
    ],
)
def test_a_second_signal_finds_its_handler(start, second, answer):
    """It comes when the first line is given back."""
    daemon = start("--test.battery=true", "--test.hour=-1")
    simulator().trigger("release_line", number=second)
    daemon.send(signal.SIGTERM)
    said = daemon.stdout.splitlines()[2:]
    assert (said, daemon.returncode) == (["Interrupted with signal: 15", *answer], 0)
