"""The real unattended-upgrades asks the monitor, by the sample in the place of on_ac_power."""

import os
import shutil
import threading

import pytest

from debian_root import Root, base_system
from packages import install

SAMPLE = "usr/share/doc/kelvo-pwr-monitor/examples/updates/on_ac_power"
STOPPED = "System is on battery power, stopping\n"


@pytest.fixture(scope="module")
def updating(mounts, libraries, deb, monitor_deb, tmp_path_factory):
    base = base_system("updates-root", [*libraries, "powermgmt-base", "unattended-upgrades"])
    with Root(base, tmp_path_factory.mktemp("root")) as root:
        for package in (deb, monitor_deb):
            install(root, package)
        shutil.copy(os.environ["SEGMENT_TOOL"], root.path / "run/segment_tool")
        # What there is to upgrade is no matter of this.
        (root.path / "etc/apt/sources.list").write_text("")
        yield root


def run(root, *argv):
    """As a service finds programs."""
    return root.run("env", "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin", *argv)


def asked(root):
    """What it says, with the status by which it ends."""
    done = run(root, "unattended-upgrade", "--dry-run", "--verbose")
    return done.stdout + done.stderr, done.returncode


@pytest.fixture
def daemon(updating):
    """A function that has one seem alive, with these fields."""
    over = threading.Event()

    def fields(*assignments):
        assert updating.run("/run/segment_tool", "set", *assignments).returncode == 0

    def live():
        count = 100
        while not over.wait(0.3):
            count += 1
            fields(f"count={count}")

    assert updating.run("/run/segment_tool", "make", "status", "request").returncode == 0
    thread = threading.Thread(target=live)
    thread.start()
    yield fields
    over.set()
    thread.join()
    (updating.path / "dev/shm/kelvo-pwr-shm").unlink()


def test_without_the_sample_it_goes_on_through_an_outage(updating, daemon):
    daemon("missingPower=1")
    assert run(updating, "on_ac_power").returncode == 255
    said, status = asked(updating)
    assert (STOPPED in said, status) == (False, 0)


@pytest.fixture
def sample(updating):
    shutil.copy(updating.path / SAMPLE, updating.path / "usr/local/sbin/on_ac_power")


@pytest.mark.parametrize("bad", ["missingPower=1", "testing=1", "batteryEmpty=1"])
def test_in_a_bad_moment_it_stops(updating, sample, daemon, bad):
    daemon(bad)
    said, status = asked(updating)
    assert (STOPPED in said, status) == (True, 1)


def test_in_a_good_one_and_without_a_daemon_it_goes_on(updating, sample, request):
    assert asked(updating)[1] == 0
    request.getfixturevalue("daemon")
    assert run(updating, "on_ac_power").returncode == 0
    assert asked(updating)[1] == 0
