"""A daemon, and a bare loop, on this machine's own kernel: their lines are stand-ins."""

import subprocess
import time
from contextlib import contextmanager
from pathlib import Path
from typing import Iterator

import psutil
from guest.clock import wait_until
from guest.process import Program
from processes import cpu_milliseconds, life_milliseconds, resident_kilobytes
from programs.builds import STAND_IN
from programs.daemon import FULL, daemon
from programs.names import BARE, DEFAULT

LINES = {"LD_PRELOAD": str(STAND_IN)}
SIMULATED_TIME = {"TIME_IS_SIMULATED": "1", "TZ": "UTC"}

_SEGMENT = Path("/dev/shm/kelvo-pwr-shm")
_SECONDS_OF_A_YEAR = 31_557_600
_LONGEST_START_SECONDS, _LONGEST_YEAR_SECONDS, _LONGEST_TICK_SECONDS = 10, 120, 10


def cpu(folder: Path, paths: dict, rounds: int, window: float) -> Iterator[dict]:
    """CPU time of both while nothing happens, as this kernel keeps it."""
    for _ in range(rounds):
        yield {"own cpu": _cpu_per_minute(folder, paths, window)}


def mappings(folder: Path, paths: dict) -> list[list[str]]:
    """Which file or purpose their memory belongs to."""
    with full_server(paths[DEFAULT], folder) as process:
        ours = _kilobytes_by_file(process.pid, paths[DEFAULT])
    with _bare_loop(paths[BARE]) as process:
        bare = _kilobytes_by_file(process.pid, paths[BARE])
    rows = [[name, str(ours[name]), str(bare.get(name, 0))] for name in ours]
    total = ["together", str(sum(ours.values())), str(sum(bare.values()))]
    return [["Resident memory, kB", DEFAULT, BARE], *rows, total]


def years(folder: Path, program: str, years: int) -> list[list[str]]:
    """What a daemon holds at the end of each of so many simulated years."""
    rows = [["Simulated years", "Battery tests", "Memory, kB", "Descriptors", "Segment, bytes"]]
    with full_server(program, folder, simulated_time=True) as process:
        for year in range(years + 1):
            begin = year * _SECONDS_OF_A_YEAR
            wait_until(lambda: _count(program) >= begin, _LONGEST_YEAR_SECONDS, step=0.1)
            held = (
                process.stdout.splitlines().count("Test result: Battery is good"),
                resident_kilobytes(process.pid),
                psutil.Process(process.pid).num_fds(),
                _SEGMENT.stat().st_size,
            )
            rows.append([f"{_count(program) / _SECONDS_OF_A_YEAR:.2f}", *map(str, held)])
    return rows


def clients(folder: Path, program: str, clients: int, seconds: float) -> list[list[str]]:
    """What a daemon takes without status clients, and with so many each second."""
    header = ["Status clients in a minute", "Added to count", "Wake-ups", "CPU time, ms"]
    rows = [[*header, "Memory, kB"]]
    with full_server(program, folder) as process:
        for each_second in (0, clients):
            # From half a second after a tick, so that neither edge of the window is in doubt.
            last = _count(program)
            wait_until(lambda: _count(program) != last, _LONGEST_TICK_SECONDS)
            time.sleep(0.5)
            before = _taken(program, process.pid)
            started = _start_clients(program, each_second, seconds)
            after = _taken(program, process.pid)
            counted, wake_ups, cpu = (now - then for now, then in zip(after, before, strict=True))
            memory = resident_kilobytes(process.pid)
            rows.append([*map(str, (started, counted, wake_ups)), f"{cpu:.2f}", str(memory)])
    return rows


def _cpu_per_minute(folder: Path, paths: dict, seconds: float) -> dict[str, float]:
    with _bare_loop(paths[BARE]) as bare, full_server(paths[DEFAULT], folder) as ours:
        processes = {BARE: bare.pid, DEFAULT: ours.pid}
        before = {name: cpu_milliseconds(process) for name, process in processes.items()}
        begin = time.monotonic()
        time.sleep(seconds)
        minutes = (time.monotonic() - begin) / 60
        return {
            name: (cpu_milliseconds(process) - before[name]) / minutes
            for name, process in processes.items()
        }


def _kilobytes_by_file(process: int, program: str) -> dict[str, int]:
    """The most first, without the stand-in, which no program has on a board."""
    names = {program: "the program", "[anon]": "without a name"}
    return {
        names.get(mapping.path, Path(mapping.path).name): mapping.rss // 1024
        for mapping in sorted(psutil.Process(process).memory_maps(), key=lambda one: -one.rss)
        if mapping.rss > 0 and mapping.path != str(STAND_IN)
    }


def _start_clients(program: str, each_second: int, seconds: float) -> int:
    """One after the other; returns how many there were."""
    begin = time.monotonic()
    started = 0
    while (passed := time.monotonic() - begin) < seconds:
        if started < passed * each_second:
            life_milliseconds([program, "--status"])
            started += 1
        else:
            time.sleep(0.001)
    return started


def _taken(program: str, process: int) -> tuple[int, int, float]:
    """Seconds counted, sleeps, milliseconds of CPU time."""
    sleeps = psutil.Process(process).num_ctx_switches().voluntary
    return _count(program), sleeps, cpu_milliseconds(process)


@contextmanager
def _bare_loop(program: str) -> Iterator[Program]:
    with Program([program, "PWR-IN"], LINES) as process:
        waits = Path(f"/proc/{process.pid}/wchan")
        wait_until(lambda: "nanosleep" in waits.read_text(), _LONGEST_START_SECONDS)
        yield process


@contextmanager
def full_server(program: str, folder: Path, simulated_time: bool = False) -> Iterator[Program]:
    """In its loop; its last test was now unless time is simulated."""
    environment = {**LINES, **(SIMULATED_TIME if simulated_time else {})}
    argv = daemon(program, folder, FULL, last_test=0 if simulated_time else time.time())
    with Program(argv, environment) as process:
        wait_until(lambda: _SEGMENT.exists() and _count(program) > 0, _LONGEST_START_SECONDS)
        yield process


def _count(program: str) -> int:
    """As the status has it; 0 before there is one."""
    client = subprocess.run([program, "--status"], capture_output=True, text=True)
    first = client.stdout.partition("\n")[0]
    return int(first.split(":")[1]) if client.returncode == 0 else 0
