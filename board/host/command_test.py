"""`board/board` as seen from the host; run by pytest there, not on the board."""

import math
import os
import pty
import re
import select
import signal
import subprocess
import time
from pathlib import Path

import pytest

BOARD = Path(__file__).parent.parent / "board"


@pytest.fixture(scope="module", autouse=True)
def seconds_of_a_run():
    """How long the shortest run takes, which on a busy machine is many times as long."""
    started = time.monotonic()
    tried = subprocess.run([BOARD, "run", "--", "true"], capture_output=True, text=True)
    if tried.returncode == 77:
        pytest.skip(tried.stderr)
    assert tried.returncode == 0, tried.stderr
    return time.monotonic() - started


@pytest.fixture
def scratch_place(tmp_path, monkeypatch):
    """Where the board makes its scratch folder; the name is an awkward one."""
    place = tmp_path / "a place"
    place.mkdir()
    monkeypatch.setenv("TMPDIR", str(place))
    return place


def run(*command, options=(), **more):
    argv = [BOARD, "run", *options, "--", *command]
    return subprocess.run(argv, capture_output=True, **more)


def processes_with(text):
    """The command lines of all processes that have this text in theirs."""
    found = []
    for entry in Path("/proc").glob("[0-9]*/cmdline"):
        try:
            line = entry.read_bytes()
        except OSError:
            continue
        if text.encode() in line:
            found.append(line)
    return found


def wait_until(condition):
    end = time.monotonic() + 30
    while not condition():
        assert time.monotonic() < end
        time.sleep(0.05)


def test_outputs_are_passed_on_apart_and_exactly():
    code = (
        "import os; every = bytes(range(256)); os.write(1, every * 4096); os.write(2, every[::-1])"
    )
    result = run("/usr/bin/python3", "-c", code)
    assert result.stdout == bytes(range(256)) * 4096
    assert result.stderr == bytes(range(256))[::-1]
    assert result.returncode == 0


def test_outputs_to_one_place_keep_their_order():
    script = "for n in 1 2 3; do echo out$n; echo err$n >/dev/stderr; done"
    argv = [BOARD, "run", "--", "sh", "-c", script]
    result = subprocess.run(argv, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    assert result.stdout.split() == ["out1", "err1", "out2", "err2", "out3", "err3"]


@pytest.mark.parametrize(
    "script, status",
    [("exit 3", 3), ("exit 134", 134), ("kill -TERM $$", 143), ("kill -9 $$", 137)],
)
def test_the_status_is_the_commands(script, status):
    result = run("sh", "-c", script)
    assert (result.returncode, result.stdout, result.stderr) == (status, b"", b"")


def test_a_command_that_cannot_be_run():
    result = run("/no/such/command")
    assert (result.returncode, result.stderr) == (
        127,
        b"board: /no/such/command: No such file or directory\n",
    )
    assert run("/etc/passwd").returncode == 126


def test_environment_folder_and_input(tmp_path):
    script = 'printf "%s|%s|%s|%s" "$GREETING" "$TZ" "$(pwd)" "$(id -u)"; cat'
    environment = {**os.environ, "GREETING": "hello  'there'", "TZ": "Asia/Tokyo"}
    result = run("sh", "-c", script, cwd=tmp_path, env=environment)
    assert result.stdout.decode() == f"hello  'there'|Asia/Tokyo|{tmp_path}|0"


@pytest.mark.parametrize("status", [0, 3])
def test_what_the_command_leaves_in_its_output_folder_is_kept(tmp_path, status):
    kept = tmp_path / "not" / "yet there"
    script = f'mkdir "$BOARD_OUTPUT/below"; echo text >"$BOARD_OUTPUT/below/file"; exit {status}'
    assert run("sh", "-c", script, options=["--output", kept]).returncode == status
    assert (kept / "below" / "file").read_text() == "text\n"


def test_output_that_cannot_be_kept_fails_the_run(tmp_path):
    (tmp_path / "file").touch()
    result = run("true", options=["--output", tmp_path / "file"])
    assert result.returncode == 125
    assert result.stderr.startswith(b"board: the output cannot be kept: ")


def test_what_the_command_leaves_running_is_ended_and_its_output_kept():
    result = run("sh", "-c", "(echo early; sleep 1000; echo late) & sleep 1; echo mine")
    assert result.stdout.split() == [b"early", b"mine"]


def test_two_runs_are_the_same_to_the_nanosecond():
    code = "import time; time.sleep(86400); print(time.monotonic_ns(), time.time_ns())"
    first, second = (run("/usr/bin/python3", "-c", code).stdout for _ in range(2))
    assert first == second
    assert int(first.split()[0]) > 86400 * 10**9


def test_real_time_passes_on_request():
    started = time.monotonic()
    assert run("sleep", "2", options=["--realtime"]).returncode == 0
    assert time.monotonic() - started > 2


def test_coupled_lines():
    code = (
        "import time\n"
        "from guest.board import found\n"
        "board = found()\n"
        "with board.at2.hold(output=0) as line:\n"
        "    for level in (1, 0):\n"
        "        line.write(level)\n"
        "        time.sleep(0.02)\n"
        "        print(board.pwr_in.level(), end='')\n"
    )
    assert run("/usr/bin/python3", "-c", code).stdout == b"00"
    assert run("/usr/bin/python3", "-c", code, options=["--coupled"]).stdout == b"10"


def test_a_run_that_spins_is_ended(scratch_place, seconds_of_a_run):
    bound = str(math.ceil(3 * seconds_of_a_run))
    result = run("sh", "-c", "echo begun; while :; do :; done", options=["--timeout", bound])
    assert result.returncode == 125
    assert result.stdout == b"begun\n"
    assert result.stderr.decode() == f"board: still running after {bound} seconds\n"
    assert list(scratch_place.iterdir()) == []
    assert processes_with(str(scratch_place)) == []


def test_a_run_that_waits_for_ever_is_ended():
    result = run("sleep", "infinity")
    assert result.returncode == 125
    assert result.stderr == b"board: still running after 34560000 seconds of the board's time\n"


def test_build_prints_the_kernel_unless_it_does_not_boot(tmp_path):
    built = subprocess.run([BOARD, "build"], capture_output=True, text=True)
    (path,) = map(Path, built.stdout.splitlines())
    assert (path.is_file(), built.stderr, built.returncode) == (True, "", 0)

    broken = tmp_path / "kelvo-board" / path.name
    broken.parent.mkdir()
    broken.write_text("#!/bin/sh\necho no more than this\n")
    broken.chmod(0o755)
    environment = {**os.environ, "XDG_CACHE_HOME": str(tmp_path)}
    tried = subprocess.run([BOARD, "build"], capture_output=True, text=True, env=environment)
    said = f"board: {broken} does not boot: ended without an outcome; the kernel said:\n"
    assert (tried.stdout, tried.returncode) == ("", 125)
    assert tried.stderr == said + "no more than this\n\n"


def test_a_board_that_is_switched_off_has_failed():
    result = run("/usr/bin/python3", "-c", "from guest.system_calls import power_off; power_off()")
    assert result.returncode == 125
    assert result.stderr.startswith(b"board: ended without an outcome; the kernel said:\n")
    assert b"Kernel command line" in result.stderr


def test_a_first_process_that_dies_is_told_as_that():
    """Its code is overwritten, so that it goes on into nothing when the command ends."""
    code = (
        "import re\n"
        "maps = open('/proc/1/maps').read()\n"
        "begin, end = re.search(r'(\\S+)-(\\S+) r-xp .*/libc\\.so', maps).groups()\n"
        "begin, end = int(begin, 16), int(end, 16)\n"
        "with open('/proc/1/mem', 'wb') as memory:\n"
        "    memory.seek(begin)\n"
        "    memory.write(bytes(end - begin))\n"
    )
    result = run("/usr/bin/python3", "-c", code)
    assert result.returncode == 125
    first, *messages = result.stderr.decode().splitlines()
    assert first == (
        "board: the first process was killed by signal 11 (Segmentation fault); the kernel said:"
    )
    assert any("Kernel panic" in message for message in messages)


@pytest.mark.parametrize("number", [signal.SIGKILL, signal.SIGTERM, signal.SIGINT])
@pytest.mark.parametrize("victim", ["first", "second"])
def test_nothing_outlives_the_board_command(scratch_place, number, victim):
    with subprocess.Popen(
        [BOARD, "run", "--", "sh", "-c", "while :; do :; done"], stderr=subprocess.DEVNULL
    ) as board:
        wait_until(lambda: processes_with(str(scratch_place)))
        children = Path(f"/proc/{board.pid}/task/{board.pid}/children").read_text().split()
        os.kill(board.pid if victim == "first" else int(children[0]), number)
        assert board.wait(30) != 0
    wait_until(lambda: not processes_with(str(scratch_place)))
    wait_until(lambda: not list(scratch_place.iterdir()))


def test_a_shell_on_a_terminal():
    child, terminal = pty.fork()
    if child == 0:
        os.execv(BOARD, [BOARD, "shell"])
    seen = ""

    def expect(pattern):
        nonlocal seen
        while not (match := re.search(pattern, seen)):
            ready, _, _ = select.select([terminal], [], [], 60)
            assert ready, f"no {pattern!r} in {seen!r}"
            seen += os.read(terminal, 4096).decode()
        seen = seen[match.end() :]

    expect("does not change PWR-IN by itself")
    expect("board:.*# ")
    os.write(terminal, b"lines\n")
    expect(r"PWR-IN  0  AC power present +free")
    expect(r"BAT-SW  1  battery connected +free")
    os.write(terminal, b"ac off; battery low; lines\n")
    expect(r"PWR-IN  1  AC power missing +free\r\nBAT-T1  0  battery low")
    os.write(terminal, b"poweroff\n")
    expect("poweroff: the system would go down now")
    # The key is for the command, so it has to be running.
    os.write(terminal, b"sh -c 'echo be''gun; sleep 1000'\n")
    expect("begun")
    os.write(terminal, b"\x03")
    expect("board:.*# ")
    os.write(terminal, b"exit 5\n")
    assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 5
