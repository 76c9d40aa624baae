#!/usr/bin/python3 -P
"""The first process of a board with a booted Debian: lays out its root, becomes systemd.

The root is a folder of the host, read-only, under a layer of memory; the host's own root
is at /host, read-only too. The board adds to the Debian its lines, a unit with the one
command, and what takes the journal out when everything has ended.
"""

import json
import os
import shutil
import subprocess
from pathlib import Path

from guest import board
from guest.debian_command import environment
from guest.first_process import be_first_process, write_to_kernel_messages
from guest.mounts import mount_own
from guest.system_calls import enter_root, mount, power_off, set_timer_slack

_LAYER = Path("/run")
_OWN = Path("/run/board")
_SCRATCH, _LIBRARY = _OWN / "scratch", _OWN / "library"
_FILES = _LIBRARY / "guest" / "debian"
_COMMAND = "board-command.service"
# They need a disk, or would start by themselves when a test sets the clock.
_MASKED = (
    "e2scrub_reap.service",
    "apt-daily.timer",
    "apt-daily-upgrade.timer",
    "dpkg-db-backup.timer",
    "e2scrub_all.timer",
    "fstrim.timer",
)


def main() -> None:
    scratch, library = os.environ["BOARD_SCRATCH"], os.environ["PYTHONPATH"]
    task = json.loads(Path(scratch, "task.json").read_text())
    enter_root(lay_over(task["root"]))
    mount_own()
    write_to_kernel_messages()
    for source, folder in ("/", Path("/host")), (library, _LIBRARY):
        folder.mkdir(parents=True)
        mount("none", str(folder), "hostfs", options=source, read_only=True)
    _SCRATCH.mkdir()
    mount("none", str(_SCRATCH), "hostfs", options=scratch)
    add_own_files(scratch)
    board.wire(natural_pulls=True)
    if task["prepare"]:
        prepare(task)
    if not task["realtime"]:
        # A sleep then ends when it should, not up to 50 microseconds later.
        set_timer_slack(1)
    os.execve("/sbin/init", ["/sbin/init"], {})


def lay_over(root: str) -> Path:
    """Mounts the folder under a layer of memory; returns where."""
    mount("tmpfs", str(_LAYER), "tmpfs", "mode=0755")
    upper, work, merged = folders = [_LAYER / name for name in ("upper", "work", "merged")]
    for folder in folders:
        folder.mkdir()
    options = f"lowerdir={root},upperdir={upper},workdir={work}"
    mount("overlay", str(merged), "overlay", options)
    return merged


def add_own_files(scratch: str) -> None:
    units = Path("/run/systemd/system")
    wanted = units / "multi-user.target.wants"
    wanted.mkdir(parents=True)
    for name in _MASKED:
        (units / name).symlink_to("/dev/null")
    shutil.copy(_FILES / _COMMAND, units)
    (wanted / _COMMAND).symlink_to(units / _COMMAND)
    journal = Path("/run/systemd/journald.conf.d")
    journal.mkdir()
    shutil.copy(_FILES / "journald.conf", journal)
    shutdown = Path("/usr/lib/systemd/system-shutdown")
    # The package has it no longer in Debian 13.
    shutdown.mkdir(exist_ok=True)
    shutil.copy(_FILES / "last-look", shutdown / "board")
    (_OWN / "scratch-on-host").write_text(scratch)
    Path("/etc/machine-id").write_text(f"{1:032x}\n")
    Path("/etc/hostname").write_text("board\n")
    Path("/etc/hosts").write_text("127.0.0.1 localhost\n127.0.1.1 board\n")


def prepare(task: dict) -> None:
    """Runs the piece of shell that makes this Debian what the command expects."""
    done = subprocess.run(
        ["/bin/sh", "-ec", task["prepare"]],
        cwd=f"/host{task['directory']}",
        env=environment(task),
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
    )
    if done.returncode != 0:
        outcome = {"failure": f"the preparation failed:\n{done.stdout}"}
        (_SCRATCH / "outcome").write_text(json.dumps(outcome))
        power_off()


if __name__ == "__main__":
    be_first_process(main)
