"""docs/installation.md, followed on the board."""

import os
import re
import shutil
from pathlib import Path

import pytest

from owner import Owner
from pages import PROJECT, blocks
from rig import CONFIGURATION, DESCRIPTION, NO_RESULT_FILE, UNIT, UNITS, shown, systemctl
from status import ZERO_STATUS, fields

from guest.clock import wait_until
from guest.process import run
from guest.system_calls import mount

PAGE = "installation.md"
PACKAGE, (INSTALL, EDIT, START, LOG, STATUS) = blocks(PAGE, "Debian")
BUILD, CONFIGURE, REMOVE = blocks(PAGE, "From source")
(TIMER,) = re.findall("`(sudo systemctl .*timer)`", (PROJECT / "docs" / PAGE).read_text())
(SETTINGS,) = re.findall(f"^sudo editor {CONFIGURATION} +# (.*)$", EDIT)

# Where the host has it: what was built there knows its folder.
CHECKOUT = Path("/", PROJECT.relative_to("/host"))
# CMake is on the host alone, with its own libraries.
CMAKE = """
export CMAKE_ROOT=$(echo /host/usr/share/cmake-*)
exec /host/lib64/ld-linux-*.so.2 --library-path "$(echo /host/usr/lib/*-linux-gnu)" \\
  /host/usr/bin/cmake "$@"
"""


@pytest.fixture
def owner(tmp_path):
    # Nothing in the log yet.
    run(["journalctl", "--rotate", "--vacuum-size=1"])
    owner = Owner(tmp_path)
    # As one takes away the "#" and changes the value.
    edits = (f"-e 's/^#{one.split('=')[0]}=.*/{one}/'" for one in SETTINGS.split(", "))
    owner.give("editor", f'sed -i {" ".join(edits)} "$1"')
    return owner


def assert_it_guards(owner, folder):
    """After the commands that both ways have in common."""
    owner.run(EDIT, folder)
    edited = CONFIGURATION.read_text().splitlines()
    assert [one for one in SETTINGS.split(", ") if one not in edited] == []
    owner.run(START, folder)
    wait_until(lambda: "Full server" in run(["journalctl", "--unit", UNIT]).stdout, within=5)
    assert [line.split("]: ")[1] for line in owner.run(LOG, folder).stdout.splitlines()] == [
        f"Starting {DESCRIPTION}...",
        f"Started {DESCRIPTION}.",
        NO_RESULT_FILE,
        "Start",
        "Full server",
    ]
    assert {**fields(owner.run(STATUS, folder)), "count": 0} == ZERO_STATUS
    assert shown(UNIT, "UnitFileState") == "enabled"
    owner.run(TIMER, folder)
    assert systemctl("is-active", "kelvo-pwr-test.timer").stdout == "active\n"
    # Which reaches the daemon.
    assert systemctl("start", "kelvo-pwr-test.service").status == 0


def test_an_ordinary_user_can_type_them():
    """Who has no /usr/sbin in the PATH, and sees no journal of the system."""
    on_the_board = (INSTALL, EDIT, START, LOG, STATUS)
    assert [command for command in on_the_board if not command.startswith("sudo ")] == []


def test_debian_s_package(owner, tmp_path):
    # Done on the host; its package is what the next command takes.
    assert PACKAGE == ["scripts/deps package", "scripts/package"]
    (deb,) = Path(f"/host{os.environ['PACKAGE_FOLDER']}").glob("kelvo-pwr_*.deb")
    shutil.copy(deb, tmp_path)
    owner.run(INSTALL, tmp_path)
    assert shown(UNIT, "ActiveState") == "inactive"
    assert_it_guards(owner, tmp_path)
    owner.run("apt purge kelvo-pwr", tmp_path)


@pytest.fixture
def checkout(tmp_path):
    """The checkout with what was built there, as one may write to it."""
    mount("tmpfs", str(tmp_path), "tmpfs")
    upper, work = tmp_path / "upper", tmp_path / "work"
    for folder in (upper, work, CHECKOUT):
        folder.mkdir(parents=True, exist_ok=True)
    layers = f"lowerdir={PROJECT},upperdir={upper},workdir={work}"
    mount("overlay", str(CHECKOUT), "overlay", layers)
    return CHECKOUT


def files():
    """What there is of it on the system."""
    places = ("/etc", "/usr/local", "/usr/lib/systemd", "/var/lib", "/run/kelvo-pwr.lock", "/dev/shm")
    found = run(["find", *places, "-path", "*kelvo*", "-not", "-type", "d"])
    return set(found.stdout.splitlines())


def test_from_source(checkout, owner):
    before = files()
    *building, install = BUILD
    # Done on the host.
    assert building == [
        "scripts/deps",
        "cmake --preset release -DBUILD_TESTING=OFF",
        "cmake --build --preset release",
    ]
    owner.give("cmake", CMAKE)
    for command in (install, *CONFIGURE):
        owner.run(command, checkout)
    assert_it_guards(owner, checkout)
    program = os.readlink(f"/proc/{shown(UNIT, 'MainPID')}/exe")
    assert program == "/usr/local/sbin/kelvo-pwr"
    assert files() > before
    # As for the growing pause, or by "systemctl edit".
    drop_in = Path(f"/etc/systemd/system/{UNIT}.d/own.conf")
    drop_in.parent.mkdir()
    drop_in.write_text("[Service]\nRestartSec=20\n")
    for command in REMOVE:
        owner.run(command, checkout)
    assert files() == before
    assert [shown(unit, "LoadState") for unit in UNITS] == ["not-found"] * 5
