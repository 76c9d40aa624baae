"""The program itself, over a segment that is made here, with a real broker.

Runs with a /dev/shm of its own.
"""

import json
import os
import re
import signal
import socket
import subprocess
import sys
from contextlib import ExitStack
from pathlib import Path

import pytest

from broker import HOST, Broker
from heart import LONG, SEGMENT, Heart, set_fields, wait_until
from home import ALIVE, AVAILABILITY, COMMAND, CONNECTED, MQTT, STATE

SAMPLE = Path(__file__).parents[2] / "contrib/mqtt/mqtt.conf"
REFUSED = f"{HOST}: Connection refused\n"
ENTITIES = 9
GOOD = {
    "daemon_alive": True,
    "power_missing": False,
    "battery_empty": False,
    "battery_bad": None,
    "testing": False,
    "last_test_start": None,
    "last_test_end": None,
    "last_test_seconds": None,
}


def retained_state(broker):
    ((_, text),) = broker.retained(STATE)
    return json.loads(text)


def next_state(messages):
    topic, text = messages.get(timeout=LONG)
    assert topic == STATE
    return json.loads(text)


def test_the_state_is_kept_by_the_broker(heart, home, broker):
    with home.mqtt(broker.port) as mqtt:
        assert [mqtt.stderr.readline() for _ in range(2)] == [ALIVE, CONNECTED]
        assert broker.retained(AVAILABILITY) == [(AVAILABILITY, "online")]
        assert retained_state(broker) == GOOD


def test_a_change_is_published_and_nothing_else(heart, home, broker):
    with broker.subscriber(STATE) as messages, home.mqtt(broker.port):
        assert next_state(messages) == GOOD
        for start, missing in (1, True), (2, False):
            # A look that finds nothing to publish.
            home.result.write_text(f"result.start={start}\nresult.end=0\n")
            home.wait_for(f"times.start={start}\n")
            set_fields(f"missingPower={int(missing)}")
            assert next_state(messages) == GOOD | {"power_missing": missing}


def test_what_a_daemon_that_is_gone_has_said_is_not_known(home, broker):
    with broker.subscriber(STATE) as messages, home.mqtt(broker.port):
        gone = dict.fromkeys(GOOD) | {"daemon_alive": False}
        assert next_state(messages) == gone
        with Heart():
            assert next_state(messages) == dict.fromkeys(GOOD)
            assert next_state(messages) == GOOD
        assert next_state(messages) == gone
    SEGMENT.unlink()


def test_the_last_test_is_remembered(heart, home, broker):
    home.state.write_text(
        "battery-empty=0\ntimes.start=0\ntimes.end=0\ntesting=0\ntest.start=1717416000\n"
        "test.end=1717416600\ntest.good=0\nevents=0\ndone=\n"
    )
    with home.mqtt(broker.port) as mqtt:
        assert [mqtt.stderr.readline() for _ in range(2)] == [ALIVE, CONNECTED]
        assert retained_state(broker) == GOOD | {
            "battery_bad": True,
            "last_test_start": "2024-06-03T12:00:00Z",
            "last_test_end": "2024-06-03T12:10:00Z",
            "last_test_seconds": 600,
        }


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGKILL])
def test_the_broker_tells_the_end(heart, home, broker, number):
    with broker.subscriber(AVAILABILITY) as messages, home.mqtt(broker.port) as mqtt:
        assert messages.get(timeout=LONG) == (AVAILABILITY, "online")
        mqtt.send_signal(number)
        assert mqtt.wait(LONG) == -number
        assert messages.get(timeout=LONG) == (AVAILABILITY, "offline")
    assert broker.retained(AVAILABILITY) == [(AVAILABILITY, "offline")]


def test_a_broker_that_starts_again_is_told_all_again(heart, home, broker):
    with home.mqtt(broker.port, "--discovery=homeassistant") as mqtt:
        assert [mqtt.stderr.readline() for _ in range(2)] == [ALIVE, CONNECTED]
        assert retained_state(broker) == GOOD
        broker.stop()
        assert mqtt.stderr.readline() == f"{HOST}: The connection was lost.\n"
        assert mqtt.stderr.readline() == REFUSED
        set_fields("missingPower=1")
        home.wait_for("power-missing=1\n")
        broker.start()
        assert mqtt.stderr.readline() == CONNECTED
        assert retained_state(broker) == GOOD | {"power_missing": True}
        assert broker.retained(AVAILABILITY) == [(AVAILABILITY, "online")]
        # No button is announced.
        assert len(broker.retained("homeassistant/#", ENTITIES - 1)) == ENTITIES - 1


def test_without_a_broker_looks_go_on_and_it_ends_at_once(heart, home, broker):
    broker.stop()
    with home.mqtt(broker.port) as mqtt:
        assert [mqtt.stderr.readline() for _ in range(2)] == [ALIVE, REFUSED]
        set_fields("missingPower=1")
        home.wait_for("power-missing=1\n")
        mqtt.terminate()
        assert mqtt.wait(LONG) == -signal.SIGTERM
        # It is told once, however often it is tried.
        assert mqtt.stderr.read() == ""


def assert_nothing_is_held_up(home, port, *words):
    home.state.unlink(missing_ok=True)
    with home.mqtt(port, *words) as mqtt:
        # It connects at its second look.
        for missing in (1, 0):
            set_fields(f"missingPower={missing}")
            home.wait_for(f"power-missing={missing}\n")
        mqtt.terminate()
        assert mqtt.wait(LONG) == -signal.SIGTERM


@pytest.mark.parametrize("has_tls", [False, True])
def test_a_broker_that_hangs_holds_nothing_up(heart, home, broker, authority, has_tls):
    words = [f"--tls.ca={authority / 'ca.pem'}"] * has_tls
    with broker.hanging():
        assert_nothing_is_held_up(home, broker.port, *words)


def test_a_broker_that_hangs_later_is_told_when_it_goes_on(heart, home, broker):
    with home.mqtt(broker.port) as mqtt:
        assert [mqtt.stderr.readline() for _ in range(2)] == [ALIVE, CONNECTED]
        with broker.hanging():
            set_fields("missingPower=1")
            home.wait_for("power-missing=1\n")
        wait_until(lambda: retained_state(broker) == GOOD | {"power_missing": True})


@pytest.fixture
def silent_port():
    """Where nobody takes a connection on, nor refuses one."""
    with ExitStack() as all_open:
        listener = all_open.enter_context(socket.socket())
        listener.bind(("127.0.0.1", 0))
        listener.listen(0)
        for _ in range(4):
            waiting = all_open.enter_context(socket.socket())
            waiting.setblocking(False)
            waiting.connect_ex(listener.getsockname())
        yield listener.getsockname()[1]


def test_a_host_that_does_not_answer_holds_nothing_up(heart, home, silent_port):
    assert_nothing_is_held_up(home, silent_port)


def openssl(folder, *words):
    subprocess.run(["openssl", *words], cwd=folder, check=True, capture_output=True)


@pytest.fixture
def authority(tmp_path):
    """A folder with an authority, and a certificate of it for the broker."""
    folder = tmp_path / "tls"
    folder.mkdir()
    key = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes"]
    for name in ("ca", "other"):
        own = ["req", "-x509", *key, "-keyout", f"{name}.key", "-out", f"{name}.pem"]
        openssl(folder, *own, "-subj", f"/CN={name}", "-days", "36500")
    request = ["req", *key, "-keyout", "broker.key", "-out", "broker.csr", "-subj", f"/CN={HOST}"]
    openssl(folder, *request)
    (folder / "names").write_text(f"subjectAltName=DNS:{HOST}\n")
    sign = ["x509", "-req", "-in", "broker.csr", "-CA", "ca.pem", "-CAkey", "ca.key"]
    sign += ["-CAcreateserial", "-extfile", "names", "-out", "broker.pem", "-days", "36500"]
    openssl(folder, *sign)
    return folder


@pytest.fixture
def password(tmp_path):
    file = tmp_path / "password"
    file.touch(mode=0o600)
    file.write_text("secret\n")
    return file


@pytest.fixture
def guarded(tmp_path, authority, password):
    """A broker with TLS, for one user alone."""
    users = tmp_path / "users"
    tool = f"{os.environ['CONTRIB_TOOLS']}/usr/bin/mosquitto_passwd"
    subprocess.run([tool, "-c", "-b", users, "board", "secret"], check=True)
    settings = [
        f"{word}file {authority}/{name}"
        for word, name in (("cert", "broker.pem"), ("key", "broker.key"))
    ]
    settings += ["allow_anonymous false", f"password_file {users}"]
    words = ["--cafile", authority / "ca.pem", "-u", "board", "-P", "secret"]
    with Broker(tmp_path, *settings, client_words=words) as broker:
        yield broker


def words_for(authority, password):
    return [f"--tls.ca={authority}/ca.pem", "--user=board", f"--password.file={password}"]


def test_tls_with_a_password(heart, home, guarded, authority, password):
    with home.mqtt(guarded.port, *words_for(authority, password)) as mqtt:
        assert [mqtt.stderr.readline() for _ in range(2)] == [ALIVE, CONNECTED]
        assert retained_state(guarded) == GOOD
        guarded.stop()
        assert mqtt.stderr.readline().startswith(f"{HOST}: ")
        guarded.start()
        while (line := mqtt.stderr.readline()) != CONNECTED:
            assert line.startswith(f"{HOST}: ")
        assert retained_state(guarded) == GOOD


def test_a_broker_of_another_authority_is_told_nothing(heart, home, guarded, authority, password):
    words = [*words_for(authority, password), f"--tls.ca={authority}/other.pem"][1:]
    with home.mqtt(guarded.port, *words) as mqtt:
        assert [mqtt.stderr.readline() for _ in range(2)] == [
            ALIVE,
            f"{HOST}: A TLS error occurred.\n",
        ]


def test_a_wrong_password(heart, home, guarded, authority, password):
    password.write_text("wrong\n")
    with home.mqtt(guarded.port, *words_for(authority, password)) as mqtt:
        assert [mqtt.stderr.readline() for _ in range(2)] == [
            ALIVE,
            "Connection Refused: not authorised.\n",
        ]


@pytest.fixture
def button(tmp_path):
    """What listens in the place of systemd."""
    with socket.socket(socket.AF_UNIX) as listener:
        listener.bind(str(tmp_path / "button"))
        listener.listen()
        listener.settimeout(LONG)
        yield listener


def assert_not_pressed(button):
    button.setblocking(False)
    with pytest.raises(BlockingIOError):
        button.accept()


def asked(command, why):
    return f"A message on {command} is ignored: {why}\n"


def test_the_button_is_pressed_by_its_one_message(heart, home, broker, button):
    # The broker keeps one from a time before.
    broker.publish(COMMAND, "PRESS", "-r")
    with home.mqtt(broker.port, f"--button={button.getsockname()}") as mqtt:
        lines = [mqtt.stderr.readline() for _ in range(3)]
        assert lines == [ALIVE, CONNECTED, asked(COMMAND, "it was retained")]
        for text in ("press", "PRESS ", "PRESSED"):
            broker.publish(COMMAND, text)
            assert mqtt.stderr.readline() == asked(COMMAND, "it is not PRESS")
        broker.publish(COMMAND, "")
        assert mqtt.stderr.readline() == asked(COMMAND, "it is not PRESS")
        assert_not_pressed(button)
        broker.publish(COMMAND, "PRESS")
        assert mqtt.stderr.readline() == "A battery test is asked for\n"
        button.setblocking(True)
        connection, _ = button.accept()
        connection.settimeout(LONG)
        # It says nothing.
        assert connection.recv(1) == b""
        assert_not_pressed(button)


def test_a_button_with_nobody_behind_it(heart, home, broker):
    with home.mqtt(broker.port, "--button=/nowhere") as mqtt:
        assert [mqtt.stderr.readline() for _ in range(2)] == [ALIVE, CONNECTED]
        assert broker.retained(AVAILABILITY) == [(AVAILABILITY, "online")]
        broker.publish(COMMAND, "PRESS")
        assert mqtt.stderr.readline() == "A battery test is asked for\n"
        assert mqtt.stderr.readline() == "/nowhere: No such file or directory\n"
        set_fields("missingPower=1")
        wait_until(lambda: retained_state(broker)["power_missing"])


def test_a_button_that_is_taken_away_is_taken_from_home_assistant(heart, home, broker):
    end = ("homeassistant/end", "")
    for words, count in (["--button=/nowhere"], 1), ([], 0):
        with home.mqtt(broker.port, "--discovery=homeassistant", *words):
            # Published last.
            wait_until(lambda: (AVAILABILITY, "online") in broker.retained(AVAILABILITY))
            with broker.subscriber("homeassistant/#") as messages:
                broker.publish(*end)
                kept = list(iter(lambda: messages.get(timeout=LONG), end))
        assert len(kept) == ENTITIES - 1 + count
        assert sum("/button/" in topic for topic, _ in kept) == count
        wait_until(lambda: (AVAILABILITY, "offline") in broker.retained(AVAILABILITY))


def run_once(*words):
    done = subprocess.run([MQTT, *words], capture_output=True, text=True, timeout=LONG)
    return done.stdout, done.stderr, done.returncode


def test_without_a_broker_in_the_sample_it_ends(tmp_path):
    assert run_once("-c", SAMPLE) == ("", "kelvo-pwr-mqtt: no broker is given\n", 2)
    # All that is proposed there.
    (tmp_path / "conf").write_text(re.sub(r"^#(\S+=)", r"\1", SAMPLE.read_text(), flags=re.M))
    told = "kelvo-pwr-mqtt: cannot read /run/credentials/kelvo-pwr-mqtt.service/password\n"
    assert run_once("--tls.ca=/dev/null", "-c", tmp_path / "conf") == ("", told, 2)


def test_a_password_that_others_can_read_is_refused(password):
    password.chmod(0o644)
    words = ["--host=localhost", "--user=board", f"--password.file={password}"]
    told = f"kelvo-pwr-mqtt: {password} can be read by others\n"
    assert run_once(*words) == ("", told, 2)


@pytest.mark.parametrize("host, board", [("at tic.example", "at tic"), (".example", "")])
def test_a_board_has_its_hosts_name_without_the_domain(host, board):
    # Names that are refused tell which it would be.
    code = (
        f"import os, socket; socket.sethostname({host!r}); os.execl({MQTT!r}, 'mqtt', '--host=a')"
    )
    command = ["unshare", "--uts", sys.executable, "-c", code]
    done = subprocess.run(command, capture_output=True, text=True, timeout=LONG)
    told = f"kelvo-pwr-mqtt: bad name of a board: '{board}'\n"
    assert (done.stdout, done.stderr, done.returncode) == ("", told, 2)


def test_help():
    stdout, stderr, status = run_once("--help")
    assert stdout.startswith("Publishes the status of kelvo-pwr by MQTT.\n\nOptions:\n")
    assert (stderr, status) == ("", 0)
