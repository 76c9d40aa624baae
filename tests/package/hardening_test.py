"""The executables of all packages are hardened, and tell that they are the packages'."""

import platform
import subprocess

import pytest

from hardening import EVERY_FILE, Executable

PROGRAM = "usr/sbin/kelvo-pwr"
MONITOR = "usr/sbin/kelvo-pwr-monitor"
MQTT = "usr/sbin/kelvo-pwr-mqtt"
HELPER = "usr/lib/systemd/system-shutdown/kelvo-pwr-end"


@pytest.fixture(scope="module")
def unpacked(deb, monitor_deb, mqtt_deb, tmp_path_factory):
    folder = tmp_path_factory.mktemp("unpacked")
    for package in (deb, monitor_deb, mqtt_deb):
        subprocess.run(["dpkg-deb", "--extract", package, folder], check=True)
    return folder


@pytest.mark.parametrize(
    "path, expected",
    [
        (PROGRAM, EVERY_FILE | {"buffers checked"}),
        (MONITOR, EVERY_FILE | {"buffers checked"}),
        (MQTT, EVERY_FILE | {"buffers checked"}),
        # What tells of it there is a name within the file, and these are stripped.
        (HELPER, EVERY_FILE - {"containers checked"}),
    ],
)
def test_the_executables_are_hardened(unpacked, path, expected):
    executable = Executable(unpacked / path)
    assert executable.hardening() >= expected
    landings = executable.landings()
    assert landings is None or landings > 100


@pytest.mark.parametrize("path", [PROGRAM, MONITOR, MQTT, HELPER])
def test_the_executables_tell_of_their_package(unpacked, deb, path):
    words = ["dpkg-deb", "--showformat=${Version} ${Architecture}", "--show", deb]
    version, architecture = subprocess.check_output(words, text=True).split()
    assert Executable(unpacked / path).package_note() == {
        "type": "deb",
        "os": "debian",
        "osVersion": platform.freedesktop_os_release()["VERSION_ID"],
        "name": "kelvo-pwr",
        "version": version,
        "architecture": architecture,
    }
