"""A daemon, and what runs beside it, on this machine's own kernel: its lines are stand-ins."""

import re
import time
from contextlib import contextmanager
from functools import partial
from pathlib import Path
from typing import Iterator

import psutil
from guest.clock import wait_until
from guest.process import Program, run
from guest.segment import SEGMENT
from processes import resident_kilobytes, taken_per_minute
from programs.builds import SEGMENT_TOOL, STAND_IN
from programs.daemon import FULL, daemon
from programs.names import BARE, BARE_CLOCK, DEFAULT, EMPTY, MINIMAL, MONITOR, NUT, SMALL, TRUE
from programs.names import Round
from starts import in_turns, life_milliseconds
from status import fields

_LINES = {"LD_PRELOAD": str(STAND_IN)}
_SIMULATED_TIME = {"TIME_IS_SIMULATED": "1", "TZ": "UTC"}
_SECONDS_OF_A_YEAR = 31_557_600
_LONGEST_START_SECONDS, _LONGEST_YEAR_SECONDS = 10, 120
_FIRST_LOOKS_SECONDS = 11

_VALGRIND = ["valgrind", "--tool=cachegrind", "--cache-sim=no", "--cachegrind-out-file=/dev/null"]
_COUNTED = re.compile(r"I\s+refs:\s+([\d,]+)")
# From one to the other there are ticks only; the start is in both.
_FEW_TICKS, _MANY_TICKS = 100, 1100
# A little before the stand-in's begin of time: no test is due.
_LAST_TEST = 1_717_400_000


def cpu(folder: Path, paths: dict, window: float) -> Round:
    """CPU time of daemon and bare loop while nothing happens."""
    with _bare_loop(paths[BARE]) as bare, _full_server(paths[DEFAULT], folder) as ours:
        with taken_per_minute({BARE: bare.pid, DEFAULT: ours.pid}) as found:
            time.sleep(window)
    return {"own cpu": {name: milliseconds for name, (milliseconds, _) in found.items()}}


def instructions(folder: Path, paths: dict) -> dict[str, dict[str, list[float]]]:
    """Of a tick, outside the kernel, which no noise changes; valgrind counts them."""
    minimal, bare = daemon(paths[DEFAULT], folder, last_test=_LAST_TEST), [paths[BARE], "PWR-IN"]
    programs = {
        DEFAULT: [*minimal, f"--{FULL}"],
        MINIMAL: minimal,
        BARE: bare,
        BARE_CLOCK: [*bare, "clock"],
    }
    found = {}
    for name, argv in programs.items():
        few, many = (_counted(argv, ticks) for ticks in (_FEW_TICKS, _MANY_TICKS))
        found[name] = [(many - few) / (_MANY_TICKS - _FEW_TICKS)]
    return {"instructions": found}


def status(folder: Path, paths: dict, nut_client: list[str], starts: int) -> Round:
    """A status client from its start to its end; NUT's if there is a command line for it."""
    run([SEGMENT_TOOL, "make", "status", "request"])
    programs = {name: [paths[name]] for name in (EMPTY, TRUE)}
    for name in (DEFAULT, SMALL):
        programs[name] = [*daemon(paths[name], folder, FULL), "--status"]
    if nut_client:
        programs[NUT] = nut_client
    measures = {name: partial(life_milliseconds, argv) for name, argv in programs.items()}
    return {"status": in_turns(measures, starts)}


def mappings(folder: Path, paths: dict) -> list[list[str]]:
    """Which file or purpose their memory belongs to."""
    with _full_server(paths[DEFAULT], folder) as process:
        ours = _kilobytes_by_file(process.pid, paths[DEFAULT])
    with _bare_loop(paths[BARE]) as process:
        bare = _kilobytes_by_file(process.pid, paths[BARE])
    rows = [[name, str(ours[name]), str(bare.get(name, 0))] for name in ours]
    total = ["together", str(sum(ours.values())), str(sum(bare.values()))]
    return [["Resident memory, kB", DEFAULT, BARE], *rows, total]


def years(folder: Path, program: str, years: int) -> list[list[str]]:
    """What a daemon holds at the end of each of so many simulated years."""
    rows = [["Simulated years", "Battery tests", "Memory, kB", "Descriptors", "Segment, bytes"]]
    with _full_server(program, folder, is_simulated=True) as process:
        for year in range(years + 1):
            begin = year * _SECONDS_OF_A_YEAR
            wait_until(lambda: _count(program) >= begin, _LONGEST_YEAR_SECONDS, step=0.1)
            held = (
                process.stdout.splitlines().count("Test result: Battery is good"),
                resident_kilobytes(process.pid),
                psutil.Process(process.pid).num_fds(),
                SEGMENT.stat().st_size,
            )
            rows.append([f"{_count(program) / _SECONDS_OF_A_YEAR:.2f}", *map(str, held)])
    return rows


def clients(folder: Path, program: str, clients: int) -> list[list[str]]:
    """What a daemon takes in a minute without status clients, and with so many each second."""
    header = ["Status clients in a minute", "Added to count", "Wake-ups", "CPU time, ms"]
    rows = [[*header, "Memory, kB"]]
    with _full_server(program, folder) as process:
        for each_second in (0, clients):
            # From half a second after a tick, so that neither edge of the window is in doubt.
            last = _count(program)
            wait_until(lambda: _count(program) != last, _LONGEST_START_SECONDS)
            time.sleep(0.5)
            before, started, end = _count(program), 0, time.monotonic() + 60
            with taken_per_minute({program: process.pid}) as found:
                while (left := end - time.monotonic()) > 0:
                    if started < (60 - left) * each_second:
                        life_milliseconds([program, "--status"])
                        started += 1
                    else:
                        time.sleep(0.001)
            cpu, sleeps = found[program]
            figures = started, _count(program) - before, round(sleeps), f"{cpu:.2f}"
            rows.append([*map(str, figures), str(resident_kilobytes(process.pid))])
    return rows


def monitoring(folder: Path, paths: dict, minutes: int) -> list[list[str]]:
    """What hands the status on takes, beside the daemon; its files are in memory as on a board."""
    header = ["Program", "CPU time per minute, ms", f"Times that of {DEFAULT}"]
    rows = [[*header, "Wake-ups per minute", "Memory, kB"]]
    events = folder / "events.d"
    events.mkdir()
    words = ["--prometheus=/run/a.prom", "--nut=/run/ups", f"--events={events}"]
    monitor = [paths[MONITOR], *words, f"--state={folder}/state"]
    with _full_server(paths[DEFAULT], folder) as guard, Program(monitor) as native:
        time.sleep(_FIRST_LOOKS_SECONDS)
        processes = {DEFAULT: guard.pid, f"{MONITOR}, every 5 s: both files, events": native.pid}
        with taken_per_minute(processes) as found:
            time.sleep(60 * minutes)
        for name, (cpu, sleeps) in found.items():
            figures = f"{cpu:,.2f}", f"{cpu / found[DEFAULT][0]:.2f}", f"{sleeps:,.0f}"
            rows.append([name, *figures, f"{resident_kilobytes(processes[name]):,}"])
    return rows


def _counted(argv: list[str], ticks: int) -> int:
    environment = {**_LINES, **_SIMULATED_TIME, "ENDS_AT_SLEEP": str(ticks)}
    done = run([*_VALGRIND, *argv], environment, within=600)
    return int(_COUNTED.search(done.stderr)[1].replace(",", ""))


def _kilobytes_by_file(process: int, program: str) -> dict[str, int]:
    """The most first, without the stand-in, which no program has on a board."""
    names = {program: "the program", "[anon]": "without a name"}
    return {
        names.get(mapping.path, Path(mapping.path).name): mapping.rss // 1024
        for mapping in sorted(psutil.Process(process).memory_maps(), key=lambda one: -one.rss)
        if mapping.rss > 0 and mapping.path != str(STAND_IN)
    }


@contextmanager
def _bare_loop(program: str) -> Iterator[Program]:
    with Program([program, "PWR-IN"], _LINES) as process:
        waits = Path(f"/proc/{process.pid}/wchan")
        wait_until(lambda: "nanosleep" in waits.read_text(), _LONGEST_START_SECONDS)
        yield process


@contextmanager
def _full_server(program: str, folder: Path, is_simulated: bool = False) -> Iterator[Program]:
    """In its loop; never tested before where its time is simulated."""
    argv = daemon(program, folder, FULL, last_test=0 if is_simulated else None)
    with Program(argv, {**_LINES, **(_SIMULATED_TIME if is_simulated else {})}) as process:
        wait_until(lambda: _count(program) > 0, _LONGEST_START_SECONDS)
        yield process


def _count(program: str) -> int:
    """As the status has it; 0 before there is one."""
    printed = run([program, "--status"])
    return fields(printed)["count"] if printed.status == 0 else 0
