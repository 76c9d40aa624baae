"""The daemon's output is its log: each line is there when it is written."""

import os
import subprocess

from rig import PROGRAM, SECOND

from guest.clock import now, sleep_until, wait_until


def test_lines_reach_a_pipe_at_once(rig):
    daemon = rig.daemon()
    started = daemon.wait_for_line("Start", within=1)
    minimal = daemon.wait_for_line("Minimal server", within=1)
    assert started.time - daemon.started < SECOND
    assert minimal.time - daemon.started < SECOND


def test_lines_reach_a_file_at_once(rig):
    rig.configure("test.battery=true", "test.duration=3")
    log = rig.folder / "log"
    rig.daemon(before=("/bin/sh", "-c", f'exec "$@" >"{log}"', "sh"))
    wait_until(lambda: log.exists() and log.read_text() == "Start\nFull server\n", within=1)
    rig.client("-n")
    wait_until(lambda: "MS: " in log.read_text(), within=2)
    begun = now()
    first = log.read_text()
    assert first.startswith("Start\nFull server\nGot run test now\nMS: ")
    assert first.count("\n") == 4
    sleep_until(begun + SECOND + SECOND // 2)
    assert log.read_text().count("MS: ") == 2
    wait_until(lambda: log.read_text().endswith("Test result: Battery is good\n"), within=3)


def test_a_reader_that_went_away_ends_the_program(rig):
    """The signal for a broken pipe keeps its default."""
    script = f'trap - PIPE; "{PROGRAM}" -c "{rig.conf}"; echo $? >"{rig.folder}/status"'
    reading, writing = os.pipe()
    os.close(reading)
    # Python ignores SIGPIPE and would pass that on.
    shell = subprocess.run(
        ["/bin/sh", "-c", script], stdout=writing, restore_signals=True, timeout=10
    )
    os.close(writing)
    assert shell.returncode == 0
    assert (rig.folder / "status").read_text() == "141\n"
