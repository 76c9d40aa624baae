"""A system call fails once while the program starts: settings, lock, segment, lines."""

import re

import pytest

from faults import (
    BOOST_1_83,
    LIBGPIOD_2,
    LINE_REQUEST,
    failing,
    has_failed,
    nth_call,
    text_of,
)
from rig import NO_RESULT_FILE, SECOND, SEGMENT

from guest.clock import sleep_until

pytestmark = pytest.mark.kernel

# The records that a daemon leaves that ends before its loop.
ZEROS = [0] * 8
A_CHIP = r"ioctl\(.*GPIO_GET_CHIPINFO_IOCTL"
A_LINE = r"ioctl\(.*GPIO_(V2_)?GET_LINEINFO_IOCTL, {(line_)?offset="
A_REQUEST = rf"ioctl\(.*{LINE_REQUEST}"
# How the library finds out whether a file is a chip's.
A_CHECK = r"readlink\(.*/subsystem" if LIBGPIOD_2 else r"openat\(.*/sys/bus/gpio"
CHIPS, SEARCH, REQUEST = (
    f"error {action}: "
    for action in (
        "creating GPIO chip iterator",
        "looking up GPIO line by name",
        "requesting GPIO lines",
    )
)
# Version 2 looks at a chip not when it opens it but in each search and before each request.
CHIP = SEARCH if LIBGPIOD_2 else CHIPS
# With the newer Boost this changes nothing.
TRUNCATE_INTERRUPTED = (r"ftruncate\(", "EINTR")


@pytest.fixture
def start(rig, start_calls):
    """Starts a full server of which one call fails, and lets it come to its first tick."""

    def start(pattern, error, occurrence=1):
        rig.configure("test.battery=true")
        name, number = nth_call(start_calls, pattern, occurrence)
        log = rig.folder / "log"
        daemon = rig.daemon(before=failing(log, f"{name}:error={error}:when={number}"))
        sleep_until(daemon.started + SECOND + SECOND // 2)
        (call,) = has_failed(log)
        assert re.match(f"{name}\\(.* {error} ", call)
        return daemon

    return start


def assert_guards(rig, daemon):
    assert daemon.returncode is None
    assert (rig.board.at2.level(), rig.board.bat_sw.level()) == (0, 1)
    assert [line.holder() for line in rig.board.chip.lines] == ["kelvo-pwr"] * 4
    assert rig.status()["count"] == 1


def assert_ended(rig, daemon, stdout, stderr, driven=()):
    """`driven` has what was written to an output before the end."""
    assert (daemon.stdout, daemon.stderr, daemon.returncode) == (stdout, stderr, 1)
    writes = [(line, rig.trace.writes(line)) for line in ("BAT-T2", "BAT-SW")]
    assert [(line, level) for line, levels in writes for _, level in levels] == list(driven)
    assert [line.holder() for line in rig.board.chip.lines] == [None] * 4


@pytest.mark.parametrize("error", ["EACCES", "EINTR", "EMFILE", "EIO"])
def test_a_configuration_that_cannot_be_opened_ends_the_start(rig, start, error):
    daemon = start(r"openat\(.*kelvo-pwr.conf", error)
    assert_ended(rig, daemon, "", f"Cant read conf: {rig.conf}\n")
    assert not SEGMENT.exists()


def test_a_configuration_that_cannot_be_read_counts_as_empty(rig, start):
    """The stream library keeps the error to itself, and the defaults do not guard."""
    daemon = start(r"read\(.*sys.save.path", "EIO")
    assert (daemon.stdout, daemon.stderr) == ("Start\nMinimal server\n", NO_RESULT_FILE)
    assert rig.status()["testing"] == 255


@pytest.mark.parametrize(
    "pattern, error",
    [
        (r"read\(.*sys.save.path", "EINTR"),
        (r"openat\(.*result.dat", "EACCES"),
        (r"openat\(.*result.dat", "EINTR"),
        (r"openat\(.*result.dat", "EMFILE"),
        # Without the lock nothing keeps a second daemon out, and that is silent too.
        (r"openat\(.*kelvo-pwr.lock", "EACCES"),
        (r"openat\(.*kelvo-pwr.lock", "EINTR"),
        (r"openat\(.*kelvo-pwr.lock", "EROFS"),
        (r"openat\(.*kelvo-pwr.lock", "ENFILE"),
        (r"flock\(", "EINTR"),
        (r"flock\(", "ENOLCK"),
        # Nothing was there to be removed.
        (r"unlink\(", "EACCES"),
        (r"fchmod\(", "EPERM"),
        (r"close\(4", "EIO"),
        (r"close\(4", "EINTR"),
        *([TRUNCATE_INTERRUPTED] if BOOST_1_83 else []),
    ],
)
def test_faults_that_change_nothing(rig, start, pattern, error):
    daemon = start(pattern, error)
    assert (daemon.stdout, daemon.stderr) == ("Start\nFull server\n", NO_RESULT_FILE)
    assert_guards(rig, daemon)


def test_a_lock_that_another_process_has_ends_the_start(rig, start):
    """EAGAIN is how strace spells EWOULDBLOCK."""
    daemon = start(r"flock\(", "EAGAIN")
    assert_ended(rig, daemon, "", NO_RESULT_FILE + "Another instance is running\n")
    assert not SEGMENT.exists()


@pytest.mark.parametrize("error", ["EACCES", "EINTR", "EMFILE", "ENFILE", "ENOSPC", "EROFS"])
def test_a_segment_that_cannot_be_opened_ends_the_start(rig, start, error):
    daemon = start(r"openat\(.*/dev/shm/kelvo-pwr-shm", error)
    assert_ended(rig, daemon, "Start\n", NO_RESULT_FILE + text_of(error) + "\n")
    assert not SEGMENT.exists()


@pytest.mark.parametrize(
    "pattern, error",
    [
        (r"ftruncate\(", "ENOSPC"),
        *([] if BOOST_1_83 else [TRUNCATE_INTERRUPTED]),
        (r"(fstat|newfstatat)\(.*st_size=1024", "EIO"),
        (r"mmap\(NULL, 1024,", "ENOMEM"),
        (r"mmap\(NULL, 1024,", "EACCES"),
    ],
)
def test_a_segment_that_cannot_be_made_is_left_marked_as_such(rig, start, pattern, error):
    daemon = start(pattern, error)
    assert_ended(rig, daemon, "Start\n", NO_RESULT_FILE + text_of(error) + "\n")
    assert SEGMENT.read_bytes() == b"\0"
    for word in ("--status", "--run-test-now"):
        stderr = NO_RESULT_FILE + "boost::interprocess_exception::library_error\n"
        assert rig.client(word) == ("", stderr, 1)


def test_an_old_segment_that_cannot_be_removed_ends_the_start(rig, start):
    rig.full_server().kill()
    old = SEGMENT.stat().st_ino
    rig.trace.clear()
    daemon = start(r"unlink\(", "EACCES")
    assert_ended(rig, daemon, "Start\n", NO_RESULT_FILE + "File exists\n")
    assert SEGMENT.stat().st_ino == old


AFTER = '}.*consumer="kelvo-pwr"'
POWER_LINE_FAULTS = [
    (CHIPS, r'openat\(AT_FDCWD, "/dev", ', "EMFILE", 1),
    (CHIPS, r"getdents64\(", "EIO", 1),
    (CHIPS, r"openat\(.*/dev/gpiochip0", "EACCES", 1),
    (CHIPS, r"openat\(.*/dev/gpiochip0", "EINTR", 1),
    (CHIPS, A_CHECK, "EMFILE", 1),
    (CHIP, A_CHIP, "EIO", 1),
    (CHIP, A_CHIP, "EINTR", 1),
    (SEARCH, A_LINE, "EIO", 1),
    (SEARCH, A_LINE, "EINTR", 2),
    (REQUEST, A_REQUEST, "EINTR", 1),
    (REQUEST, A_CHIP, "EIO", 2) if LIBGPIOD_2 else (REQUEST, A_LINE + "0" + AFTER, "EIO", 1),
]


@pytest.mark.parametrize("what, pattern, error, occurrence", POWER_LINE_FAULTS)
def test_a_fault_at_the_power_line_ends_the_start(rig, start, what, pattern, error, occurrence):
    daemon = start(pattern, error, occurrence)
    assert_ended(rig, daemon, "Start\n", NO_RESULT_FILE + what + text_of(error) + "\n")
    assert list(rig.status().values()) == ZEROS


# The second search is that for BAT-T1, the third that for BAT-T2, the fourth that for BAT-SW.
SEARCH_FAULTS = [
    (CHIPS, r'openat\(AT_FDCWD, "/dev", ', "EMFILE", 2),
    (CHIPS, r"getdents64\(", "EIO", 3),
    (CHIPS, r"openat\(.*/dev/gpiochip0", "EACCES", 2),
    (CHIPS, r"openat\(.*/dev/gpiochip0", "EINTR", 3),
    (CHIPS, A_CHECK, "EMFILE", 4),
    (CHIP, A_CHIP, "EIO", 3),
    (CHIP, A_CHIP, "EINTR", 4),
    (SEARCH, A_LINE + "1}", "EIO", 2),
    (SEARCH, A_LINE + "2}", "EINTR", 3),
    (SEARCH, A_LINE + "3}", "EIO", 2 if LIBGPIOD_2 else 4),
]


@pytest.mark.parametrize("what, pattern, error, occurrence", SEARCH_FAULTS)
def test_a_fault_at_a_battery_line_leaves_the_minimal_server(
    rig, start, what, pattern, error, occurrence
):
    """A fault of a moment, and the daemon does not guard until its next start."""
    daemon = start(pattern, error, occurrence)
    assert daemon.returncode is None
    assert daemon.stdout == "Start\nMinimal server\n"
    assert daemon.stderr == NO_RESULT_FILE + what + text_of(error) + "\n"
    assert [line.holder() for line in rig.board.chip.lines] == ["kelvo-pwr", None, None, None]
    assert rig.trace.writes("BAT-T2") == rig.trace.writes("BAT-SW") == []
    assert (rig.status()["count"], rig.status()["testing"]) == (1, 255)


CONNECTED = [("BAT-T2", 0), ("BAT-SW", 1)]
REQUEST_FAULTS = [
    (A_REQUEST + r".*offsets=\[1\]", "EBUSY", 1, []),
    (A_REQUEST + r".*offsets=\[2\]", "EIO", 1, []),
    (A_REQUEST + r".*offsets=\[2\]", "EINTR", 1, []),
    (A_REQUEST + r".*offsets=\[3\]", "EIO", 1, CONNECTED[:1]),
    (A_REQUEST + r".*offsets=\[3\]", "EINTR", 1, CONNECTED[:1]),
]
if LIBGPIOD_2:
    # After four searches and the request of the power line.
    REQUEST_FAULTS += [
        (A_CHIP, "EIO", 6, []),
        (A_CHIP, "EIO", 7, []),
        (A_CHIP, "EIO", 8, CONNECTED[:1]),
    ]
else:
    # The library looks at each line again once it has it.
    REQUEST_FAULTS += [
        (A_LINE + "1" + AFTER, "EIO", 1, []),
        (A_LINE + "2" + AFTER, "EIO", 1, CONNECTED[:1]),
        (A_LINE + "3" + AFTER, "EIO", 1, CONNECTED),
    ]


@pytest.mark.parametrize("pattern, error, occurrence, driven", REQUEST_FAULTS)
def test_a_failing_request_ends_the_start(rig, start, pattern, error, occurrence, driven):
    """Neither output was ever driven to where it disconnects something."""
    daemon = start(pattern, error, occurrence)
    assert_ended(rig, daemon, "Start\n", NO_RESULT_FILE + REQUEST + text_of(error) + "\n", driven)
    assert list(rig.status().values()) == ZEROS
