"""The page on MQTT, followed on the board: a broker that wants a password, and the button."""

import json
import os
import re
import shutil
from pathlib import Path

import pytest

from exposure import points_of, told_points
from owner import Owner
from pages import blocks
from rig import shown, systemctl

from guest.clock import wait_until
from guest.process import run

INSTALLING, PASSWORD, BUTTON = blocks("monitoring.md", "MQTT")
UNIT, SOCKET = "kelvo-pwr-mqtt", "kelvo-pwr-button.socket"
CONFIGURATION = Path("/etc/kelvo/mqtt.conf")
BROKER = "allow_anonymous false\npassword_file /etc/mosquitto/users\nlistener 1883 127.0.0.1\n"
WORDS = ["-u", "board", "-P", "secret", "-t"]
COMMAND = "kelvo-pwr/board/run-test-now"


def configure(*keys):
    """As the comments there propose."""
    text = CONFIGURATION.read_text().replace("#host=broker.example", "host=localhost")
    for key in keys:
        text = re.sub(f"^#{re.escape(key)}=", f"{key}=", text, flags=re.MULTILINE)
    CONFIGURATION.write_text(text)


@pytest.fixture
def owner(tmp_path, service):
    service.start()
    owner = Owner(tmp_path)
    owner.run("apt-get install --no-install-recommends mosquitto mosquitto-clients", tmp_path)
    Path("/etc/mosquitto/conf.d/own.conf").write_text(BROKER)
    owner.run("mosquitto_passwd -c -b /etc/mosquitto/users board secret", tmp_path)
    owner.run("chown mosquitto /etc/mosquitto/users; systemctl restart mosquitto", tmp_path)
    (deb,) = Path(f"/host{os.environ['PACKAGE_FOLDER']}").glob(f"{UNIT}_*.deb")
    shutil.copy(deb, tmp_path)
    yield owner
    systemctl("disable", "--now", UNIT, SOCKET)


def retained(topic):
    found = run(["mosquitto_sub", *WORDS, topic, "-C", "1", "-W", "2"]).stdout
    return found.strip()


def state():
    found = retained("kelvo-pwr/board/state")
    return json.loads(found) if found else {}


def answers():
    """What the button's clients, and systemd about them, have left in the journal."""
    return run(["journalctl", "--output=cat", "--unit=kelvo-pwr-button@*"]).stdout


def is_refused(user, path):
    connecting = "import socket, sys; socket.socket(socket.AF_UNIX).connect(sys.argv[1])"
    tried = run(["runuser", "-u", user, "--", "/usr/bin/python3", "-c", connecting, path])
    return tried.stderr.endswith("PermissionError: [Errno 13] Permission denied\n")


def test_a_password_and_a_button(service, owner, tmp_path):
    owner.give("editor", f"test $1 = {CONFIGURATION}")
    for command in INSTALLING:
        owner.run(command, tmp_path)
    # Not configured yet.
    wait_until(lambda: shown(UNIT, "Result") == "exit-code", within=10)
    assert shown(UNIT, "ExecMainStatus") == "2"

    configure("user", "password.file")
    owner.give("cat", "echo secret")
    for command in PASSWORD:
        owner.run(command, tmp_path)
    wait_until(lambda: state().get("daemon_alive"), within=30)
    assert Path("/etc/credstore/kelvo-pwr-mqtt.password").stat().st_mode & 0o777 == 0o600
    assert Path(f"/proc/{shown(UNIT, 'MainPID')}").stat().st_uid != 0

    # Nobody hears it yet.
    run(["mosquitto_pub", *WORDS, COMMAND, "-m", "PRESS"])
    configure("button")
    for command in BUTTON:
        owner.run(command, tmp_path)
    wait_until(lambda: retained("homeassistant/button/#"), within=30)
    assert is_refused("nobody", "/run/kelvo-pwr-button/socket")
    assert state()["testing"] is False
    assert answers() == ""

    run(["mosquitto_pub", *WORDS, COMMAND, "-m", "PRESS"])
    wait_until(lambda: "Got run test now" in service.journal.stdout, within=10)
    wait_until(lambda: state()["testing"], within=20)
    # The second time the client says why there is no other.
    run(["mosquitto_pub", *WORDS, COMMAND, "-m", "PRESS"])
    wait_until(lambda: "\nTest is already running.\n" in answers(), within=10)


def test_the_page_has_what_systemd_thinks_of_the_units(owner, tmp_path):
    owner.give("editor", ":")
    owner.run(INSTALLING[0], tmp_path)
    for unit in (f"{UNIT}.service", "kelvo-pwr-button@.service"):
        assert told_points()[unit] == points_of(unit.replace("@", "@x"))
