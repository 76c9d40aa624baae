"""That somebody is on guard: after stray signals, failures, a spoilt file, a daemon that hangs."""

import re
from pathlib import Path

import pytest

from rig import CONFIGURATION, DESCRIPTION, LOOK, RESULT_FILE, SECOND, UNIT, shown, systemctl

from guest.clock import now, sleep_until, wait_until
from guest.process import run

SHARED_MEMORY = Path("/dev/shm")
ZEROS = bytes(46)  # what a power cut in the middle of a write has left
STANDS_STILL = "The count has stood still for a minute; the daemon is started again"
WAY_DOWN_STANDS = "The count stands still on the way down; the shutdown command may hold it"
# Two looks, which are a minute apart and may take one.
SEEN = 3 * 60


def is_system_running():
    return systemctl("is-system-running").stdout


@pytest.mark.parametrize("signal", ["TERM", "INT", "HUP"])
def test_a_stray_signal_does_not_end_the_guard(service, signal):
    service.start()
    systemctl("kill", f"--signal={signal}", UNIT)
    service.journal.wait_for_line("Full server", within=12)
    assert service.state() == ("active", "success")


def test_it_stays_down_when_it_is_stopped(service):
    service.start()
    systemctl("stop", UNIT)
    sleep_until(now() + SEEN * SECOND)
    assert service.state() == ("inactive", "success")
    assert is_system_running() == "running\n"


@pytest.fixture
def full_shared_memory():
    """Without room for a segment, until the test makes some."""
    filler = SHARED_MEMORY / "filler"
    run(["mount", "-o", "remount,size=64k", str(SHARED_MEMORY)])
    assert run(["dd", "if=/dev/zero", f"of={filler}", "bs=4k"]).status == 1
    yield filler
    filler.unlink(missing_ok=True)
    run(["mount", "-o", "remount,size=50%", str(SHARED_MEMORY)])


def test_a_daemon_that_dies_at_each_start_is_never_given_up(service, full_shared_memory):
    systemctl("start", UNIT)
    # Long after it has started for the fifth time.
    sleep_until(now() + 3 * 60 * SECOND)
    assert is_system_running() == "degraded\n"
    assert shown(LOOK, "ActiveState") == "failed"
    full_shared_memory.unlink()
    service.journal.wait_for_line("Full server", within=62)
    wait_until(lambda: is_system_running() == "running\n", within=SEEN)


def test_a_spoilt_file_of_times_is_set_aside(service):
    RESULT_FILE.write_bytes(ZEROS)
    service.start()
    spoilt = RESULT_FILE.with_name("kelvo-pwr.dat.spoilt")
    assert spoilt.read_bytes() == ZEROS
    assert not RESULT_FILE.exists()
    (said,) = [line for line in service.journal.stdout.splitlines() if "spoilt" in line]
    assert said == f"{RESULT_FILE} was spoilt and is now {spoilt}; the times of the last test are lost"
    # Nothing more is amiss, for clients either.
    assert service.client("--status").status == 0


@pytest.mark.parametrize(
    "place",
    [
        "  sys.save.path = {path}  # here",
        "[sys]\nsave.path={path}",
        "[sys.save]\n\npath = {path}",
        "#sys.save.path=/other\nother.path=/other\nsys.save.path={path}",
    ],
)
def test_the_file_is_the_one_that_the_configuration_names(service, place, tmp_path):
    file = RESULT_FILE.with_name("of my own")
    file.write_bytes(ZEROS)
    RESULT_FILE.write_bytes(ZEROS)
    configuration = tmp_path / "configuration"
    configuration.write_text(place.format(path=file) + "\n")
    run(["/usr/libexec/kelvo-pwr/set-aside-spoilt-times", str(configuration)])
    assert not file.exists()
    assert RESULT_FILE.read_bytes() == ZEROS


@pytest.mark.parametrize("times", ["result.start=1\nresult.end=2\n", "", "result.start=17"])
@pytest.mark.parametrize("setting", ["", "test.duration=long", "nonsense"])
def test_good_times_stay_where_they_are(service, times, setting):
    """Also beside a configuration that is refused."""
    RESULT_FILE.write_text(times)
    service.configure(setting)
    systemctl("start", UNIT)
    sleep_until(now() + 5 * SECOND)
    assert RESULT_FILE.read_text() == times
    assert sorted(path.name for path in RESULT_FILE.parent.iterdir()) == [RESULT_FILE.name]


def test_a_daemon_that_hangs_is_started_again(service):
    service.start()
    look = service.follow(LOOK)
    systemctl("kill", "--signal=STOP", UNIT)
    begin = now()
    again = service.journal.wait_for_line(f"Started {DESCRIPTION}.", within=SEEN)
    assert again.time - begin > 59 * SECOND
    service.journal.wait_for_line("Full server", within=1)
    look.wait_for_line(STANDS_STILL, within=1)
    # Among what the daemon says.
    assert STANDS_STILL in service.journal.stdout.splitlines()
    assert systemctl("start", LOOK).status == 0


def test_one_that_hangs_in_a_battery_test_is_started_again_with_power(service):
    service.start()
    service.client("--run-test-now")
    service.journal.wait_for_line("Got run test now", within=2)
    systemctl("kill", "--signal=STOP", UNIT)
    assert service.board.at2.level() == 1
    service.journal.wait_for_line("Full server", within=SEEN)
    assert service.board.at2.level() == 0
    assert service.status()["testing"] == 0


def test_a_battery_test_that_runs_is_left_alone(service):
    # Longer than three looks are apart.
    service.configure("test.duration=200")
    service.start()
    before = shown(UNIT, "MainPID")
    service.client("--run-test-now")
    service.journal.wait_for_line("Test result: Battery is good", within=205)
    assert shown(UNIT, "MainPID") == before
    assert is_system_running() == "running\n"


def test_the_way_down_is_left_alone(service, tmp_path):
    """Where the shutdown command does not end, and holds the count."""
    service.configure("test.shut.timeout=0")
    command = tmp_path / "reboot"
    command.write_text("#!/bin/sh\nexec sleep 1000\n")
    command.chmod(0o755)
    service.drop_in(f"[Service]\nPrivateTmp=no\nEnvironment=PATH={tmp_path}:/usr/sbin:/usr/bin\n")
    service.start()
    before = shown(UNIT, "MainPID")
    service.board.ac(False)
    service.board.battery(False)
    service.journal.wait_for_line("Execute: reboot", within=25)
    count = service.status()["count"]
    look = service.follow(LOOK)
    look.wait_for_line(WAY_DOWN_STANDS, within=SEEN)
    sleep_until(now() + SEEN * SECOND)
    assert service.status()["count"] == count
    assert shown(UNIT, "MainPID") == before
    assert is_system_running() == "degraded\n"


def test_a_request_by_a_client_that_hangs_is_ended(service, tmp_path):
    service.start()
    client = tmp_path / "client"
    client.write_text("#!/bin/sh\nexec sleep infinity\n")
    client.chmod(0o755)
    drop_in = Path("/run/systemd/system/kelvo-pwr-test.service.d/hangs.conf")
    drop_in.parent.mkdir()
    drop_in.write_text(f"[Service]\nPrivateTmp=no\nExecStart=\nExecStart={client}\n")
    systemctl("daemon-reload")
    try:
        systemctl("start", "--no-block", "kelvo-pwr-test.service")
        sleep_until(now() + 60 * SECOND)
        assert shown("kelvo-pwr-test.service", "Result") == "timeout"
    finally:
        systemctl("stop", "kelvo-pwr-test.service")
        drop_in.unlink()
        drop_in.parent.rmdir()
        systemctl("daemon-reload")


def test_a_daemon_that_only_watches_despite_its_configuration_is_seen(service):
    service.configure("gpio.at1=NO-SUCH-LINE")
    systemctl("start", UNIT)
    wait_until(lambda: is_system_running() == "degraded\n", within=5)
    said = "The daemon only watches, despite test.battery=true; journalctl --unit=kelvo-pwr tells why"
    assert said in systemctl("status", UNIT).stdout


def test_one_that_is_to_watch_only_is_as_it_should_be(service):
    CONFIGURATION.write_text(f"sys.save.path={RESULT_FILE}\n")
    systemctl("start", UNIT)
    service.journal.wait_for_line("Minimal server", within=1)
    assert systemctl("start", LOOK).status == 0
    assert is_system_running() == "running\n"


@pytest.mark.parametrize("key", ["test.batery", "gpio.at3"])
def test_a_misspelt_key_is_seen(service, key):
    service.configure(f"{key}=true")
    systemctl("start", UNIT)
    wait_until(lambda: is_system_running() == "degraded\n", within=5)
    said = f"Unknown option in /etc/kelvo/kelvo-pwr.conf: {key}"
    sources = re.findall(rf"(\S+)\[\d+\]: {said}$", systemctl("status", UNIT).stdout, re.MULTILINE)
    assert sources == ["kelvo-pwr", "look-at-guard"]


@pytest.fixture
def way_down_settings():
    file = Path("/etc/kelvo/way-down.conf")
    yield file
    file.unlink()


def test_a_setting_of_the_way_down_without_effect_is_seen(service, way_down_settings):
    way_down_settings.write_text("cut-battery=off\n")
    service.start()
    wait_until(lambda: is_system_running() == "degraded\n", within=5)
    said = f'{way_down_settings}: "cut-battery=off" has no effect; the settings are'
    assert said in systemctl("status", UNIT).stdout
    way_down_settings.write_text("cut-battery=no\n")
    assert systemctl("start", LOOK).status == 0
