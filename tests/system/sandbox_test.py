"""What the sandbox refuses and what it lets through: each setting of it by itself, and all.

Where a kernel lacks something systemd leaves the setting out without a word; so each is
seen to make a difference.
"""

import json
import os
import re
from pathlib import Path

import pytest

from exposure import PAGE, points_of, thoughts_of, told_points
from rig import DROP_INS, UNIT, Service, systemctl

from guest.process import run

PROBE = Path(__file__).parent / "probe.py"
NOTES = Path("/run/kelvo-pwr")
UNIT_FILE = Path("/usr/lib/systemd/system") / UNIT

NAMESPACES = "net", "ipc"

# Settings of the service that are no part of the sandbox.
OTHERS = {
    "Type",
    "ExecStartPre",
    "ExecStart",
    "ExecStopPost",
    "Restart",
    "RestartSec",
    "TimeoutStopSec",
    "Environment",
    "RuntimeDirectoryPreserve",
}

NOT_PERMITTED = "Operation not permitted"
READ_ONLY = "Read-only file system"
MISSING = "No such file or directory"
NO_CAPABILITY = {"CapabilityBoundingSet": [""]}

# What each setting by itself changes: the attempt, what then comes of it, and settings
# without which it would make no difference.
DIFFERENCES = {
    "CapabilityBoundingSet": ("owner", NOT_PERMITTED, {}),
    "DeviceAllow": ("console", NOT_PERMITTED, {}),
    "DevicePolicy": ("zero device", NOT_PERMITTED, {"DeviceAllow": ["/dev/null rw"]}),
    "IPAddressDeny": ("datagram", NOT_PERMITTED, {}),
    "LockPersonality": ("personality", NOT_PERMITTED, {}),
    "MemoryDenyWriteExecute": ("executable memory", NOT_PERMITTED, {}),
    "NoNewPrivileges": ("new privileges", "1", {}),
    "OOMScoreAdjust": ("out of memory", "-900", {}),
    "PrivateIPC": ("ipc", "another namespace", {}),
    "PrivateNetwork": ("network", "another namespace", {}),
    "PrivateTmp": ("tmp", MISSING, {}),
    "ProcSubset": ("other proc", MISSING, {}),
    "ProtectControlGroups": ("control group", READ_ONLY, {}),
    "ProtectHome": ("home", MISSING, {}),
    "ProtectHostname": ("hostname", NOT_PERMITTED, {}),
    "ProtectKernelLogs": ("kernel log", "No such device or address", {}),
    "ProtectKernelModules": ("module", NOT_PERMITTED, {}),
    "ProtectKernelTunables": ("tunable", READ_ONLY, {}),
    "ProtectProc": ("first process", MISSING, NO_CAPABILITY),
    "ProtectSystem": ("write to /etc", READ_ONLY, {}),
    "ReadOnlyPaths": ("write to /run", READ_ONLY, {}),
    "ReadWritePaths": ("lock", "done", {"ProtectSystem": ["strict"]}),
    "RestrictAddressFamilies": ("internet", "Address family not supported by protocol", {}),
    "RestrictNamespaces": ("namespace", NOT_PERMITTED, {}),
    "RestrictRealtime": ("realtime", NOT_PERMITTED, {}),
    "RestrictSUIDSGID": ("setuid", NOT_PERMITTED, {}),
    "RuntimeDirectory": ("note", "done", {"ReadOnlyPaths": ["/run"]}),
    "StateDirectory": ("state", "done", {"ProtectSystem": ["strict"]}),
    # The board's processor knows no other architecture: a filter is all that can be seen.
    "SystemCallArchitectures": ("filter", "2", {}),
    "SystemCallErrorNumber": ("reboot", NOT_PERMITTED, {"SystemCallFilter": ["~reboot"]}),
    "SystemCallFilter": ("reboot", NOT_PERMITTED, {"SystemCallErrorNumber": ["EPERM"]}),
}

# What the service needs, and all that it may do of what is tried.
DONE_IN_THE_SERVICE = {
    "gpio",
    "null device",
    "lock",
    "note",
    "state",
    "shared memory",
    "write to /run/systemd",
    "configuration",
    "systemd",
}


@pytest.fixture(scope="module", autouse=True)
def stopped():
    with Service():
        for marker in "/root/marker", "/tmp/marker":
            Path(marker).touch()
        NOTES.mkdir(exist_ok=True)
        yield


def settings():
    """The settings of the unit's service section, each with its values in their order."""
    found = {}
    section = UNIT_FILE.read_text().split("[Service]\n")[1].split("\n[")[0]
    for name, value in re.findall(r"^(\w+)=(.*)$", section, re.MULTILINE):
        found.setdefault(name, []).append(value)
    return {name: values for name, values in found.items() if name not in OTHERS}


def environment():
    """What the probe needs to know of the world outside."""
    own = {f"INIT_{name.upper()}": os.readlink(f"/proc/1/ns/{name}") for name in NAMESPACES}
    return [f"{name}={value}" for name, value in own.items()]


def probed(properties, *attempts):
    """What comes of the attempts in a unit with these properties only."""
    words = [f"-p{name}={value}" for name, values in properties.items() for value in values]
    words += [f"-E{variable}" for variable in environment()]
    command = ["/usr/bin/python3", str(PROBE), *attempts]
    result = run(["systemd-run", "--quiet", "--wait", "--pipe", "--collect", *words, *command])
    if result.status != 0:
        return dict.fromkeys(attempts, f"status {result.status}")
    return json.loads(result.stdout)


def test_each_setting_has_its_difference():
    assert set(settings()) == set(DIFFERENCES)


@pytest.fixture(scope="module")
def without():
    """What comes of everything without any setting."""
    return probed({})


def test_without_a_sandbox_nothing_is_refused(without):
    assert {name: what for name, what in without.items() if what != "done"} == {
        # They are tried with senseless arguments.
        "module": "Function not implemented",
        "reboot": "Invalid argument",
    }


@pytest.mark.parametrize("name", DIFFERENCES)
def test_the_setting_makes_its_difference(without, name):
    attempt, outcome, needed = DIFFERENCES[name]
    before = probed(needed, attempt) if needed else without
    assert before[attempt] != outcome
    assert probed({**needed, name: settings()[name]}, attempt) == {attempt: outcome}


def test_in_the_service_all_of_them_hold():
    variables = "\n".join(f"Environment={variable}" for variable in environment())
    DROP_INS.mkdir(parents=True)
    (DROP_INS / "probe.conf").write_text(
        f"[Service]\nType=oneshot\nRestart=no\n{variables}\n"
        f"ExecStart=\nExecStart=/usr/bin/python3 {PROBE}\nStandardOutput=file:/run/probed\n"
    )
    systemctl("daemon-reload")
    assert systemctl("start", UNIT).status == 0
    outcomes = json.loads(Path("/run/probed").read_text())
    assert {name for name, what in outcomes.items() if what == "done"} == DONE_IN_THE_SERVICE


def test_the_page_has_what_systemd_thinks_of_the_other_units():
    units = {f"kelvo-pwr-{name}.service" for name in ("test", "watch", "monitor")}
    # The rest of them is in mqtt_test.py.
    assert told_points().items() >= {unit: points_of(unit) for unit in units}.items()


def test_the_page_has_what_systemd_thinks_of_it():
    lines = thoughts_of(UNIT)
    rows = [re.fullmatch(r"✗ (\S+) +(\S.*?) +(\d\.\d)", line) for line in lines]
    found = {(row[1], row[2], row[3]) for row in rows if row}
    page = PAGE.read_text()
    told = re.findall(r"^\| `(\S+)` \| (.*?) \| (\d\.\d) \|", page, re.MULTILINE)
    assert set(told) == found
    assert f"**{points_of(UNIT)}**" in page
