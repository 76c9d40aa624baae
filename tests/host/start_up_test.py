"""Start-up and the client modes without a board, where every sanitizer works.

Runs with a /dev/shm and a /run of its own: a daemon on this machine is not disturbed.
"""

import os
import subprocess
from pathlib import Path

import pytest

PROGRAM = os.environ["KELVO_PWR"]
SEGMENT_TOOL = os.environ["SEGMENT_TOOL"]

# Not the host's, whatever stands in that.
NO_RESULT_FILE = "Cant read timestamp conf\n"


@pytest.fixture
def client(tmp_path):
    """Runs the program with a result file that does not exist."""
    conf = tmp_path / "kelvo-pwr.conf"
    conf.write_text(f"sys.save.path={tmp_path}/result\n")

    def run(*words):
        done = subprocess.run(
            [PROGRAM, "-c", conf, *words], capture_output=True, text=True, timeout=60
        )
        return done.stdout, done.stderr, done.returncode

    return run


@pytest.fixture
def segment():
    """A new segment, as a daemon would leave it; returns what sets its fields."""
    subprocess.run([SEGMENT_TOOL, "make", "status", "request"], check=True)

    def set_fields(*assignments):
        subprocess.run([SEGMENT_TOOL, "set", *assignments], check=True)

    yield set_fields
    Path("/dev/shm/kelvo-pwr-shm").unlink()


def status_lines(client):
    stdout, stderr, status = client("--status")
    assert (stderr, status) == (NO_RESULT_FILE, 0)
    return [line.split(" : ")[1] for line in stdout.splitlines()]


def test_help_ends_the_start(client):
    stdout, stderr, status = client("--help")
    assert stdout.startswith("Options:\n\n  -h [ --help ] ")
    assert (stderr, status) == (NO_RESULT_FILE, 0)


@pytest.mark.parametrize(
    "words, error",
    [
        (["--nonsense"], "unrecognised option '--nonsense'\n"),
        (["--test.hour=x"], "the argument ('x') for option '--test.hour' is invalid\n"),
        (["--test.hour=%value%"], "the argument ('%value%') for option '--test.hour' is invalid\n"),
        (["-c", "/no/file"], "Cant read conf: /no/file\n"),
    ],
)
def test_refused_words(client, words, error):
    assert client(*words) == ("", error, 1)


@pytest.mark.parametrize(
    "content, error",
    [
        ("result.start=x\n", "the argument ('x') for option 'result.start' is invalid\n"),
        (
            "result.start\n",
            "the options configuration file contains an invalid line 'result.start'\n",
        ),
    ],
)
def test_a_malformed_result_file_ends_the_start(client, tmp_path, content, error):
    (tmp_path / "result").write_text(content)
    assert client("--status") == ("", error, 1)


@pytest.mark.parametrize("word", ["--status", "--run-test", "--run-test-now"])
def test_without_a_segment_a_client_says_so(client, word):
    error = NO_RESULT_FILE + "No such file or directory\n"
    assert client(word) == ("", error, 1)


def test_the_status_and_the_settings(client, segment):
    segment("count=7", "missingPower=1", "batteryEmpty=255", "duration=65535")
    assert status_lines(client) == ["7", "1", "255", "0", "0", "0", "0", "65535"]
    stdout, stderr, status = client("--status", "--verbose")
    assert (stdout.count("\n"), stderr, status) == (17 + 8, NO_RESULT_FILE, 0)


@pytest.mark.parametrize(
    "word, posted", [("--run-test", ["1", "0", "60"]), ("--run-test-now", ["0", "1", "60"])]
)
def test_a_request_is_posted(client, segment, word, posted):
    words = ("--test.duration=60", "--test.init.disable=0")
    assert client(word, *words) == ("", NO_RESULT_FILE, 0)
    assert status_lines(client)[5:] == posted


@pytest.mark.parametrize(
    "field, answer",
    [
        ("testing=1", "Test is already running.\n"),
        ("testing=255", "Testing is disabled, exiting.\n"),
        ("missingPower=1", "We are running on batteries.\nBattery is good\n"),
    ],
)
def test_a_request_is_refused(client, segment, field, answer):
    segment(field)
    assert client("--run-test-now") == (answer, NO_RESULT_FILE, 0)
    assert status_lines(client)[5:] == ["0", "0", "0"]


def test_a_segment_without_records_ends_a_client(client, segment):
    subprocess.run([SEGMENT_TOOL, "make"], check=True)
    assert client("--status") == ("", NO_RESULT_FILE, 1)
