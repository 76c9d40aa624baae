"""The places that the daemon and its clients share: no other user can take one of them."""

import os
import re
from pathlib import Path

import pytest

from pages import PROJECT
from rig import LOCK, PROGRAM, SECOND, SEGMENT, STATE, UNIT, shown, systemctl

from guest.clock import now, sleep_until, wait_until
from guest.process import Program, run

UPDATE_LOCK = Path("/run/kelvo-pwr-update.lock")
DPKG_LOCK = "/var/lib/dpkg/lock-frontend"
MONITOR = "/usr/sbin/kelvo-pwr-monitor"
LIBRARY_ERROR = "Cant read timestamp conf\nboost::interprocess_exception::library_error\n"


def as_nobody(*words):
    return run(["runuser", "-u", "nobody", "--", *map(str, words)])


def make_places():
    """As at boot."""
    assert run(["systemd-tmpfiles", "--create", "kelvo-pwr.conf"]) == ("", "", 0)


@pytest.fixture
def fresh(service):
    """As after a boot at which no daemon has run."""
    LOCK.unlink()
    make_places()
    return service


def owner_and_mode(path):
    status = path.stat()
    return status.st_uid, oct(status.st_mode & 0o7777)


def test_before_the_first_daemon_every_name_is_root_s(fresh):
    assert [owner_and_mode(path) for path in (LOCK, UPDATE_LOCK, SEGMENT, STATE)] == [
        (0, "0o600"),
        (0, "0o600"),
        (0, "0o644"),
        (0, "0o755"),
    ]
    taken = as_nobody("mkdir", SEGMENT)
    assert taken.stderr == f"mkdir: cannot create directory ‘{SEGMENT}’: File exists\n"
    assert as_nobody("rm", "-f", SEGMENT).status == 1
    assert as_nobody("sh", "-c", f": >{SEGMENT}").status != 0


def test_without_systemd_the_lines_for_inittab_do_it(service):
    """As BusyBox's init runs them."""
    page = (PROJECT / "docs/installation.md").read_text()
    lines = re.findall(r"^    ::(\w+):(.*)$", page, re.MULTILINE)
    LOCK.unlink()
    for command in (command for action, command in lines if action == "sysinit"):
        run(["sh", "-c", f"exec {command}"])
    (command,) = (command for action, command in lines if action == "respawn")
    with Program(["sh", "-c", f"exec {command}"]):
        log = Path("/var/log/kelvo-pwr.log")
        wait_until(lambda: log.exists() and "Full server" in log.read_text(), within=2)
        assert owner_and_mode(LOCK) == (0, "0o600")
    log.unlink()


@pytest.mark.parametrize("word", ["--status", "--run-test", "--run-test-now"])
def test_a_client_does_not_wait_for_a_daemon(fresh, word):
    client = run(["timeout", "10", PROGRAM, word])
    assert (client.stdout, client.stderr, client.status) == ("", LIBRARY_ERROR, 1)


def test_the_daemon_replaces_it(fresh):
    fresh.start()
    assert fresh.status()["testing"] == 0


def test_the_segment_of_a_daemon_that_runs_stays(service):
    service.start()
    sleep_until(now() + 5 * SECOND)
    before = SEGMENT.stat().st_ino
    make_places()
    assert SEGMENT.stat().st_ino == before
    assert service.status()["count"] >= 5


@pytest.mark.parametrize(
    "made_by",
    [
        f"mkdir -p {SEGMENT}/deep/down",
        f"echo forged >{SEGMENT}",
        f"ln -s /etc/hostname {SEGMENT}",
    ],
)
def test_a_name_that_was_taken_all_the_same_keeps_nobody_from_guard(service, made_by):
    assert as_nobody("sh", "-c", made_by).status == 0
    service.start()
    assert owner_and_mode(SEGMENT) == (0, "0o644")
    assert Path("/etc/hostname").read_text() == "board\n"


@pytest.fixture
def forged(service):
    """A status of another user, who made it from the daemon's; it can move on as if one lived."""
    service.start()
    sleep_until(now() + 2 * SECOND)
    earlier = SEGMENT.read_bytes()
    sleep_until(now() + 2 * SECOND)
    systemctl("stop", UNIT)
    content = bytearray(SEGMENT.read_bytes())
    (place,) = [at for at, byte in enumerate(earlier) if byte != content[at]]

    def move_on():
        content[place] += 1
        SEGMENT.write_bytes(content)

    SEGMENT.unlink()
    move_on()
    os.chown(SEGMENT, 65534, 65534)
    assert run([PROGRAM, "--status"]).status == 0
    return move_on


def test_the_monitor_takes_no_status_of_another_user(forged, tmp_path):
    metrics, ups, events = (tmp_path / name for name in ("kelvo_pwr.prom", "ups", "events.d"))
    events.mkdir()
    called = events / "10-called"
    called.write_text(f"#!/bin/sh\ntouch {tmp_path}/$1\n")
    called.chmod(0o755)
    words = [f"--prometheus={metrics}", f"--nut={ups}", f"--events={events}"]
    with Program([MONITOR, *words]) as monitor:
        for _ in range(10):
            sleep_until(now() + 3 * SECOND)
            forged()
            assert not ups.exists()
        assert monitor.stderr == f"{SEGMENT} is not root's\n"
    assert [line for line in metrics.read_text().splitlines() if line[0] != "#"] == [
        "kelvo_pwr_up 0"
    ]
    assert {path.name for path in tmp_path.iterdir()} == {metrics.name, events.name, "daemon-gone"}


def test_a_request_reaches_the_daemon_out_of_its_sandbox(service):
    service.configure("test.external-scheduling=true", "test.init.disable=0")
    service.start()
    assert systemctl("start", "kelvo-pwr-test.service").status == 0
    wait_until(lambda: service.status()["testing"] == 1, within=2)
    assert shown("kelvo-pwr-test.service", "CapabilityBoundingSet") == ""


# As apt holds it.
DPKG_HOLDS = f"import fcntl,time; f=open({DPKG_LOCK!r},'w'); fcntl.lockf(f,2); time.sleep(60)"


@pytest.mark.parametrize(
    "path, update",
    [
        (UPDATE_LOCK, ["flock", str(UPDATE_LOCK), "sleep", "60"]),
        (DPKG_LOCK, ["/usr/bin/python3", "-c", DPKG_HOLDS]),
    ],
)
def test_a_request_is_put_off_while_an_update_runs(service, path, update):
    service.configure("test.external-scheduling=true", "test.init.disable=0")
    service.start()
    journal = service.follow("kelvo-pwr-test.service")
    inode = f":{os.stat(path).st_ino} "
    with Program(update):
        wait_until(lambda: inode in Path("/proc/locks").read_text(), within=10)
        assert systemctl("start", "kelvo-pwr-test.service").status == 0
        journal.wait_for_line(f"No battery test is asked for: an update holds {path}", within=2)
        sleep_until(now() + 3 * SECOND)
        status = service.status()
        assert (status["testing"], status["runTest"]) == (0, 0)
