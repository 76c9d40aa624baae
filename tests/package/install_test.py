"""Installed, upgraded, removed and purged by dpkg, in a system of its own."""

import fcntl
import os
import re
import shutil
from contextlib import contextmanager

import pytest

from packages import calls, dpkg, install, installed_files, with_later_version

CONFIGURATION = "etc/kelvo/kelvo-pwr.conf"
RESULT_FILE = "var/lib/kelvo-pwr/kelvo-pwr.dat"
SEGMENT = "dev/shm/kelvo-pwr-shm"
LOCK = "run/kelvo-pwr.lock"
ENABLED = "etc/systemd/system/multi-user.target.wants/kelvo-pwr.service"
TIMER_ENABLED = "etc/systemd/system/timers.target.wants/kelvo-pwr-test.timer"

ENABLE = [
    f"--root=/ --system --preset-mode=enable-only preset {unit}"
    for unit in ("kelvo-pwr.service", "kelvo-pwr-watch.timer")
]
STOP = [
    "stop kelvo-pwr-watch.timer kelvo-pwr-watch.service "
    "kelvo-pwr-test.timer kelvo-pwr-test.service kelvo-pwr.service",
    "stop kelvo-pwr-watch.timer",
]
WATCH = "restart kelvo-pwr-watch.timer"
RESTART = "try-restart kelvo-pwr.service"
KINDS = "service", "timer"


def daemon_s_files(root):
    """What a daemon leaves; without GPIO lines it gets as far as its segment."""
    daemon = root.run("kelvo-pwr", "-c", f"/{CONFIGURATION}")
    assert daemon.stdout == "Start\n"
    assert daemon.returncode == 1
    (root.path / RESULT_FILE).write_text("result.start=1\nresult.end=2\n")
    assert all((root.path / name).exists() for name in (LOCK, SEGMENT))


@pytest.fixture
def newer(deb, tmp_path):
    """The same package with a later version, and another configuration if one is given."""

    def make(configuration=None):
        def change(unpacked):
            if configuration:
                (unpacked / CONFIGURATION).write_text(configuration)

        return with_later_version(deb, tmp_path, change)

    return make


@pytest.fixture
def running(system, deb):
    """An installed system whose daemon systemd takes for running, and its segment's tool."""
    install(system, deb)
    with (system.path / CONFIGURATION).open("a") as configuration:
        configuration.write("test.battery=true\n")
    (system.path / "run/active").touch()
    shutil.copy(os.environ["SEGMENT_TOOL"], system.path / "run/segment_tool")

    def fields(*assignments):
        assert system.run("/run/segment_tool", "make", "status", "request").returncode == 0
        assert system.run("/run/segment_tool", "set", *assignments).returncode == 0

    (system.path / "run/calls").unlink()
    return system, fields


def test_it_is_enabled_but_not_started(system, deb):
    install(system, deb)
    assert calls(system) == ENABLE


def test_it_is_enabled_where_there_is_no_systemctl(root, deb):
    install(root, deb)
    assert (root.path / ENABLED).is_symlink()
    assert not (root.path / TIMER_ENABLED).is_symlink()


def test_systemd_finds_its_units(root, deb):
    install(root, deb)
    units = {path.name for path in (root.path / "usr/lib/systemd/system").glob("kelvo-pwr*")}
    others = {f"kelvo-pwr-{name}.{kind}" for name in ("test", "watch") for kind in KINDS}
    assert units - {"kelvo-pwr.service.d"} == {"kelvo-pwr.service", *others}


def test_it_runs_with_its_configuration(root, deb):
    install(root, deb)
    listing = root.run("kelvo-pwr", "-v", "-s", "-c", f"/{CONFIGURATION}")
    # All but the one are the defaults.
    defaults = root.run("kelvo-pwr", "-v", "-s", "--test.shut.cutoff=300")
    assert listing.stdout == defaults.stdout
    assert listing.stderr == "Cant read timestamp conf\nNo such file or directory\n"
    (root.path / RESULT_FILE).write_text("result.start=1\nresult.end=2\n")
    listing = root.run("kelvo-pwr", "-v", "-s", "-c", f"/{CONFIGURATION}").stdout
    assert listing.endswith(f"startTimestamp{' ' * 11}: 1\nendTimestamp{' ' * 13}: 2\n")


def test_its_pages_find_each_other(root, deb):
    install(root, deb)
    folder = root.path / "usr/share/doc/kelvo-pwr"
    # Those of docs; the README is for the checkout.
    pages = [page for page in folder.glob("*.md") if page.name != "README.md"]
    texts = "".join(page.read_text() for page in pages)
    named = set(re.findall(r"\]\(([\w-]+[.]\w+)", texts))
    assert {"wiring.md", "cost.svg"} <= named
    assert [name for name in named if not (folder / name).exists()] == []


def test_purging_leaves_nothing(system, deb):
    before = installed_files(system)
    install(system, deb)
    assert installed_files(system) != before
    daemon_s_files(system)
    dpkg(system, "--purge", "kelvo-pwr")
    assert installed_files(system) == before


def test_purging_without_systemd_leaves_nothing(root, deb):
    before = installed_files(root)
    install(root, deb)
    daemon_s_files(root)
    dpkg(root, "--purge", "kelvo-pwr")
    assert installed_files(root) == before


def test_removing_stops_it_and_keeps_configuration_and_times(system, deb):
    install(system, deb)
    daemon_s_files(system)
    (system.path / CONFIGURATION).write_text("test.battery=true\n")
    dpkg(system, "--remove", "kelvo-pwr")
    assert calls(system) == [*ENABLE, *STOP]
    assert not (system.path / "usr/sbin/kelvo-pwr").exists()
    install(system, deb)
    assert (system.path / CONFIGURATION).read_text() == "test.battery=true\n"
    assert (system.path / RESULT_FILE).read_text() == "result.start=1\nresult.end=2\n"


def test_the_owner_s_files_stay(root, deb):
    own = [root.path / "etc/kelvo/own.conf", root.path / "usr/local/etc/kelvo/kelvo-pwr.dat"]
    for path in own:
        path.parent.mkdir(parents=True)
        path.write_text("own\n")
    install(root, deb)
    dpkg(root, "--purge", "kelvo-pwr")
    assert [path.read_text() for path in own] == ["own\n", "own\n"]
    assert not (root.path / CONFIGURATION).exists()


@contextmanager
def held(path):
    path.touch()
    with path.open() as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield


def test_purging_leaves_the_files_of_another_daemon(root, deb):
    install(root, deb)
    daemon_s_files(root)
    with held(root.path / LOCK):
        dpkg(root, "--purge", "kelvo-pwr")
    assert (root.path / LOCK).exists()
    assert (root.path / SEGMENT).exists()
    assert not (root.path / "var/lib/kelvo-pwr").exists()


def test_an_upgrade_keeps_an_edited_configuration(root, deb, newer):
    install(root, deb)
    (root.path / CONFIGURATION).write_text("test.battery=true\n")
    install(root, newer())
    assert (root.path / CONFIGURATION).read_text() == "test.battery=true\n"


def test_an_upgrade_puts_its_configuration_beside_an_edited_one(root, deb, newer):
    install(root, deb)
    (root.path / CONFIGURATION).write_text("test.battery=true\n")
    install(root, newer("# new\n"), "--force-confdef", "--force-confold")
    assert (root.path / CONFIGURATION).read_text() == "test.battery=true\n"
    assert (root.path / f"{CONFIGURATION}.dpkg-dist").read_text() == "# new\n"


def test_an_upgrade_replaces_a_configuration_nobody_edited(root, deb, newer):
    install(root, deb)
    install(root, newer("# new\n"))
    assert (root.path / CONFIGURATION).read_text() == "# new\n"


def test_an_upgrade_keeps_the_times_and_a_disabled_service_disabled(root, deb, newer):
    install(root, deb)
    (root.path / RESULT_FILE).write_text("result.start=1\nresult.end=2\n")
    (root.path / ENABLED).unlink()
    install(root, newer())
    assert (root.path / RESULT_FILE).read_text() == "result.start=1\nresult.end=2\n"
    assert not (root.path / ENABLED).is_symlink()


@pytest.mark.parametrize(
    "fields",
    [
        ["testing=0"],
        ["batteryBad=1", "count=1", "runTest=1", "runTestNow=1", "duration=1"],
        ["testing=255", "batteryEmpty=255", "batteryBad=255"],
    ],
)
def test_an_upgrade_restarts_the_daemon(running, newer, fields):
    system, set_fields = running
    set_fields(*fields)
    assert "not restarted" not in install(system, newer())
    assert calls(system) == [WATCH, RESTART]


@pytest.mark.parametrize(
    "fields, reason",
    [
        (["testing=1"], "a battery test is running"),
        (["missingPower=1"], "the board runs on its battery"),
        (["batteryEmpty=1", "missingPower=1"], "it is shutting the system down"),
        (["batteryEmpty=1", "missingPower=0"], "it is shutting the system down"),
    ],
)
def test_an_upgrade_leaves_an_occupied_daemon_alone(running, newer, fields, reason):
    system, set_fields = running
    set_fields(*fields)
    printed = install(system, newer())
    assert (
        f"kelvo-pwr: the daemon was not restarted, for {reason}. Later:\n"
        "  systemctl restart kelvo-pwr.service\n"
    ) in printed
    assert calls(system) == [WATCH]


def test_an_upgrade_leaves_a_daemon_alone_that_would_not_start_again(running, newer):
    system, set_fields = running
    set_fields("testing=0")
    (system.path / CONFIGURATION).write_text("test.duration=long\n")
    printed = install(system, newer())
    assert "the daemon was not restarted, for its status cannot be read. Later:\n" in printed
    assert calls(system) == [WATCH]


def test_an_upgrade_takes_no_full_server_down_to_a_minimal_one(running, newer):
    system, set_fields = running
    set_fields("testing=0")
    (system.path / CONFIGURATION).write_text("# test.battery=true\n")
    printed = install(system, newer())
    assert (
        "kelvo-pwr: the daemon was not restarted, for it guards the board, and with "
        "test.battery=false would only watch. Later:\n"
    ) in printed
    assert calls(system) == [WATCH]


@pytest.mark.parametrize("systemd", [False, True])
def test_a_misspelt_key_is_told(root, deb, newer, systemd):
    if systemd:
        (root.path / "run/systemd/system").mkdir(parents=True)
    told = f"kelvo-pwr: Unknown option in /{CONFIGURATION}: test.batery\n"
    assert told not in install(root, deb)
    (root.path / CONFIGURATION).write_text("test.batery=true\n")
    assert told in install(root, newer())


def test_a_segment_of_another_user_does_not_become_root_s(root, deb):
    segment = root.path / SEGMENT
    segment.parent.mkdir(parents=True, exist_ok=True)
    segment.write_text("forged")
    os.chown(segment, 65534, 65534)
    install(root, deb)
    assert not segment.exists() or segment.read_text() == "x"


def test_an_upgrade_does_not_start_a_stopped_daemon(running, newer):
    system, set_fields = running
    set_fields("testing=1")
    (system.path / "run/active").unlink()
    assert "kelvo-pwr: " not in install(system, newer())
    assert calls(system) == []
