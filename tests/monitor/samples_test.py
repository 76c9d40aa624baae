"""The samples: executables for events, with a stand-in for msmtp, and for updates."""

import os
import subprocess
from pathlib import Path

import pytest

CONTRIB = Path(__file__).parents[2] / "contrib"
SAMPLES = CONTRIB / "monitor/events.d"
BOARD = os.uname().nodename
AT = "2024-06-03 12:00:00"


@pytest.fixture
def call(tmp_path):
    """Runs a sample for an event and returns what it prints, and its mail if there is one."""
    mail = tmp_path / "mail"
    msmtp = tmp_path / "msmtp"
    msmtp.write_text(f'#!/bin/sh\n{{ echo "$*"; cat; }} >{mail}\n')
    msmtp.chmod(0o755)

    def run(sample, event):
        environment = {
            "PATH": f"{tmp_path}:{os.environ['PATH']}",
            "TZ": "UTC",
            **{"KELVO_EVENT": event, "KELVO_EVENT_NUMBER": "7", "KELVO_EVENT_TIME": "1717416000"},
            **{"MSMTPRC": "/own/msmtprc", "MAIL_TO": "owner@example.com"},
        }
        done = subprocess.run([SAMPLES / sample, event], env=environment, capture_output=True)
        assert (done.stderr, done.returncode) == (b"", 0)
        return done.stdout.decode(), mail.read_text() if mail.exists() else None

    return run


def test_a_line_in_the_journal(call):
    assert call("10-log", "power-lost") == (f"power-lost, event 7 at {AT}\n", None)


def test_a_mail(call):
    what = "The battery has failed its test; replace it"
    mail = (
        "--file=/own/msmtprc owner@example.com\n"
        f"To: owner@example.com\nSubject: {BOARD}: {what}\n\n{what}.\nNoticed at {AT} UTC.\n"
    )
    assert call("50-mail", "test-bad") == ("", mail)


@pytest.mark.parametrize("event", ["test-begun", "test-good", "test-ended"])
def test_no_mail_where_nothing_is_wrong(call, event):
    assert call("50-mail", event) == ("", None)


@pytest.mark.parametrize(
    "event",
    ["power-lost", "power-back", "battery-empty", "test-interrupted", "daemon-gone", "daemon-back"],
)
def test_a_mail_for_all_else(call, event):
    _, mail = call("50-mail", event)
    assert mail.startswith("--file=/own/msmtprc owner@example.com\nTo: ")


@pytest.mark.parametrize(
    "script, statuses",
    [
        ("on_ac_power", [0, 1, 255]),
        ("rauc-pre-install", [0, 1, 0]),
        ("Download_Enter_00_kelvo-pwr", [0, 21, 0]),
    ],
)
def test_what_an_updater_is_told(tmp_path, script, statuses):
    """Of a good moment, a bad one, and one that is not known."""
    monitor = tmp_path / "kelvo-pwr-monitor"
    monitor.write_text('#!/bin/sh\n[ "$*" = --gate ] && echo said && exit $MOMENT\n')
    monitor.chmod(0o755)

    def status(moment):
        environment = {"PATH": f"{tmp_path}:{os.environ['PATH']}", "MOMENT": str(moment)}
        return subprocess.run([CONTRIB / "updates" / script], env=environment).returncode

    assert [status(moment) for moment in (0, 1, 255)] == statuses
