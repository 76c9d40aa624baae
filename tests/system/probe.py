"""Tries what a sandbox may refuse; prints one JSON object with what came of each attempt."""

import ctypes
import json
import mmap
import os
import re
import socket
import sys
from pathlib import Path

libc = ctypes.CDLL(None, use_errno=True)

CLONE_NEWUTS = 0x04000000
PER_LINUX32 = 0x0008
SYS_REBOOT, SYS_INIT_MODULE = 169, 175


def checked(result: int) -> None:
    if result < 0:
        number = ctypes.get_errno()
        raise OSError(number, os.strerror(number))


def exists(path: str) -> None:
    os.stat(path)


def writable(path: str) -> None:
    os.close(os.open(path, os.O_RDWR | os.O_CREAT, 0o600))


def is_shared(namespace: str) -> None:
    """Whether this process is in the first process' namespace, which it is told."""
    if os.readlink(f"/proc/self/ns/{namespace}") != os.environ[f"INIT_{namespace.upper()}"]:
        raise OSError(0, "another namespace")


def status_is_zero(field: str) -> None:
    value = re.search(rf"^{field}:\t(\d+)$", Path("/proc/self/status").read_text(), re.MULTILINE)[1]
    if value != "0":
        raise OSError(0, value)


def send_datagram() -> None:
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
        sender.sendto(b"", ("127.0.0.1", 9))


def ask_systemd() -> None:
    with socket.socket(socket.AF_UNIX) as asker:
        asker.connect("/run/systemd/private")


def make_setuid() -> None:
    path = "/dev/shm/setuid"
    writable(path)
    try:
        os.chmod(path, 0o4700)
    finally:
        os.unlink(path)


def be_realtime() -> None:
    os.sched_setscheduler(0, os.SCHED_FIFO, os.sched_param(1))
    os.sched_setscheduler(0, os.SCHED_OTHER, os.sched_param(0))


def change_owner() -> None:
    path = "/dev/shm/owned"
    writable(path)
    try:
        os.chown(path, 1, 1)
    finally:
        os.unlink(path)


def have_default_oom_score() -> None:
    score = Path("/proc/self/oom_score_adj").read_text().strip()
    if score != "0":
        raise OSError(0, score)


ATTEMPTS = {
    "gpio": lambda: writable("/dev/gpiochip0"),
    "null device": lambda: writable("/dev/null"),
    "zero device": lambda: writable("/dev/zero"),
    "console": lambda: writable("/dev/tty0"),
    "kernel log": lambda: os.close(os.open("/dev/kmsg", os.O_RDONLY)),
    "lock": lambda: writable("/run/kelvo-pwr.lock"),
    "note": lambda: writable("/run/kelvo-pwr/probe"),
    "state": lambda: writable("/var/lib/kelvo-pwr/probe"),
    "shared memory": lambda: writable("/dev/shm/probe"),
    "configuration": lambda: exists("/etc/kelvo/kelvo-pwr.conf"),
    "write to /etc": lambda: writable("/etc/probe"),
    "write to /run": lambda: writable("/run/probe"),
    "write to /run/systemd": lambda: writable("/run/systemd/probe"),
    "home": lambda: exists("/root/marker"),
    "tmp": lambda: exists("/tmp/marker"),
    "first process": lambda: exists("/proc/1"),
    "other proc": lambda: exists("/proc/meminfo"),
    "control group": lambda: (os.mkdir("/sys/fs/cgroup/probe"), os.rmdir("/sys/fs/cgroup/probe")),
    "tunable": lambda: writable("/proc/sys/kernel/domainname"),
    "network": lambda: is_shared("net"),
    "ipc": lambda: is_shared("ipc"),
    "new privileges": lambda: status_is_zero("NoNewPrivs"),
    "filter": lambda: status_is_zero("Seccomp"),
    "out of memory": have_default_oom_score,
    "owner": change_owner,
    "setuid": make_setuid,
    "systemd": ask_systemd,
    "internet": lambda: socket.socket(socket.AF_INET).close(),
    "datagram": send_datagram,
    "hostname": lambda: socket.sethostname("board"),
    "realtime": be_realtime,
    "namespace": lambda: checked(libc.unshare(CLONE_NEWUTS)),
    "personality": lambda: (checked(libc.personality(PER_LINUX32)), libc.personality(0)),
    "executable memory": lambda: mmap.mmap(
        -1, 4096, prot=mmap.PROT_READ | mmap.PROT_WRITE | mmap.PROT_EXEC
    ).close(),
    # Both are invalid, and refused for that where nothing else refuses them.
    "module": lambda: checked(libc.syscall(SYS_INIT_MODULE, 0, 0, 0)),
    "reboot": lambda: checked(libc.syscall(SYS_REBOOT, 0, 0, 0, 0)),
}


def outcome(name: str) -> str:
    try:
        ATTEMPTS[name]()
    except OSError as error:
        return error.strerror
    return "done"


print(json.dumps({name: outcome(name) for name in sys.argv[1:] or ATTEMPTS}))
