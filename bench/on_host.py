"""A daemon, and what runs beside it, on this machine's own kernel: its lines are stand-ins."""

import os
import time
from contextlib import ExitStack, contextmanager
from functools import partial
from pathlib import Path
from typing import Iterator, Optional

import psutil
from guest.clock import now, sleep_until, wait_until
from guest.process import Program, run
from guest.segment import SEGMENT
from processes import resident_kilobytes, taken_per_minute
from programs.builds import PATHS, SEGMENT_TOOL, STAND_IN
from programs.daemon import FULL, daemon
from programs.names import BARE, BARE_CLOCK, DEFAULT, EMPTY, MINIMAL, MONITOR, MQTT, NUT, SMALL
from programs.names import TRUE, Round
from starts import in_turns, life_milliseconds
from status import fields

_LINES = {"LD_PRELOAD": str(STAND_IN)}
_SIMULATED_TIME = {"TIME_IS_SIMULATED": "1", "TZ": "UTC"}
_SECONDS_OF_A_YEAR = 31_557_600
_LONGEST_START_SECONDS, _LONGEST_YEAR_SECONDS = 10, 120
_FIRST_LOOKS_SECONDS = 11
# Not that of a broker that this machine may have.
_BROKER_PORT = "34931"
_MINUTE = 60 * 10**9
_VALGRIND = ["valgrind", "--quiet", "--tool=cachegrind", "--cache-sim=no"]
_VALGRIND += ["--cachegrind-out-file=/dev/stderr"]
# From one to the other there are ticks only; the start is in both.
_FEW_TICKS, _MANY_TICKS = 100, 1100
# A little before the stand-in's begin of time: no test is due.
_LAST_TEST = 1_717_400_000


def cpu(folder: Path, window: float) -> Round:
    """CPU time of daemon and bare loop while nothing happens."""
    with _side_by_side(folder) as processes, taken_per_minute(processes) as found:
        time.sleep(window)
    return {"own cpu": {name: milliseconds for name, (milliseconds, _) in found.items()}}


def instructions(folder: Path) -> dict[str, dict[str, list[float]]]:
    """Of a tick, outside the kernel, which no noise changes; valgrind counts them."""
    minimal, bare = daemon(PATHS[DEFAULT], folder, last_test=_LAST_TEST), [PATHS[BARE], "PWR-IN"]
    full, clock = [*minimal, f"--{FULL}"], [*bare, "clock"]
    found = {}
    for name, argv in {DEFAULT: full, MINIMAL: minimal, BARE: bare, BARE_CLOCK: clock}.items():
        few, many = (_counted(argv, ticks) for ticks in (_FEW_TICKS, _MANY_TICKS))
        found[name] = [(many - few) / (_MANY_TICKS - _FEW_TICKS)]
    return {"instructions": found}


def status(folder: Path, nut_client: list[str], starts: int) -> Round:
    """A status client from its start to its end."""
    run([SEGMENT_TOOL, "make", "status", "request"])
    programs = {name: [PATHS[name]] for name in (EMPTY, TRUE)}
    for name in (DEFAULT, SMALL):
        programs[name] = [*daemon(PATHS[name], folder, FULL), "--status"]
    programs[NUT] = nut_client
    measures = {name: partial(life_milliseconds, argv) for name, argv in programs.items()}
    return {"status": in_turns(measures, starts)}


def mappings(folder: Path) -> Iterator[list]:
    """Which file or purpose their memory belongs to."""
    with _side_by_side(folder) as processes:
        kilobytes = [_kilobytes_by_file(process) for process in processes.values()]
    yield ["Resident memory, kB", *processes]
    yield from ([name, *(of.get(name, 0) for of in kilobytes)] for name in kilobytes[0])
    yield ["together", *(sum(of.values()) for of in kilobytes)]


def years(folder: Path, years: int) -> Iterator[list]:
    """What a daemon holds at the end of each of so many simulated years."""
    yield ["Simulated years", "Battery tests", "Memory, kB", "Descriptors", "Segment, bytes"]
    # Never tested before.
    with _full_server(folder, last_test=0, **_SIMULATED_TIME) as process:
        for year in range(years + 1):
            begin = year * _SECONDS_OF_A_YEAR
            wait_until(lambda: _count() >= begin, _LONGEST_YEAR_SECONDS, step=0.1)
            yield [
                f"{_count() / _SECONDS_OF_A_YEAR:.2f}",
                process.stdout.splitlines().count("Test result: Battery is good"),
                resident_kilobytes(process.pid),
                psutil.Process(process.pid).num_fds(),
                SEGMENT.stat().st_size,
            ]


def clients(folder: Path, clients: int) -> Iterator[list]:
    """What a daemon takes in a minute without status clients, and with so many each second."""
    header = ["Status clients in a minute", "Added to count", "Wake-ups", "CPU time, ms"]
    yield [*header, "Memory, kB"]
    with _full_server(folder) as process:
        for number in (0, 60 * clients):
            # From half a second after a tick, so that neither edge of the window is in doubt.
            last = _count()
            wait_until(lambda: _count() != last, _LONGEST_START_SECONDS)
            time.sleep(0.5)
            before, begin = _count(), now()
            with taken_per_minute({DEFAULT: process.pid}) as found:
                for client in range(number):
                    sleep_until(begin + client * _MINUTE // number)
                    life_milliseconds([PATHS[DEFAULT], "--status"])
                sleep_until(begin + _MINUTE)
            ((cpu, sleeps),) = found.values()
            added, kilobytes = _count() - before, resident_kilobytes(process.pid)
            yield [number, added, round(sleeps), f"{cpu:.2f}", kilobytes]


def monitoring(folder: Path, minutes: int) -> Iterator[list]:
    """What hands the status on takes, beside the daemon; its files are in memory as on a board."""
    header = ["Program", "CPU time per minute, ms", f"Times that of {DEFAULT}"]
    yield [*header, "Wake-ups per minute", "Memory, kB"]
    events = folder / "events.d"
    events.mkdir()
    words = ["--prometheus=/run/a.prom", "--nut=/run/ups", f"--events={events}"]
    monitor = [PATHS[MONITOR], *words, f"--state={folder}/state"]
    tools, port = Path(os.environ["CONTRIB_TOOLS"], "usr"), ["-p", _BROKER_PORT]
    broker = [tools / "sbin/mosquitto", *port]
    state = [tools / "bin/mosquitto_sub", *port, *"-C 1 -W 1 -t kelvo-pwr/+/state".split()]
    mqtt = [PATHS[MQTT], "--host=localhost", f"--port={_BROKER_PORT}", f"--state={folder}/told"]
    with ExitStack() as started:
        guard = started.enter_context(_full_server(folder))
        beside = [started.enter_context(Program(argv)).pid for argv in (monitor, mqtt, broker)]
        wait_until(lambda: run(state).status == 0, _LONGEST_START_SECONDS)
        time.sleep(_FIRST_LOOKS_SECONDS)
        looking = f"{MONITOR}, every 5 s: both files, events", f"{MQTT}, every 5 s"
        processes = {DEFAULT: guard.pid, **dict(zip(looking, beside))}
        with taken_per_minute(processes) as found:
            time.sleep(60 * minutes)
        for name, (cpu, sleeps) in found.items():
            figures = f"{cpu:,.2f}", f"{cpu / found[DEFAULT][0]:.2f}", f"{sleeps:,.0f}"
            yield [name, *figures, f"{resident_kilobytes(processes[name]):,}"]


def _counted(argv: list[str], ticks: int) -> int:
    environment = {**_LINES, **_SIMULATED_TIME, "ENDS_AT_SLEEP": str(ticks)}
    # Their sum is the last word.
    return int(run([*_VALGRIND, *argv], environment, within=600).stderr.split()[-1])


def _kilobytes_by_file(process: int) -> dict[str, int]:
    """The most first, without the stand-in, which no program has on a board."""
    names = dict.fromkeys((PATHS[BARE], PATHS[DEFAULT]), "the program")
    names["[anon]"] = "without a name"
    return {
        names.get(mapping.path, Path(mapping.path).name): mapping.rss // 1024
        for mapping in sorted(psutil.Process(process).memory_maps(), key=lambda one: -one.rss)
        if mapping.rss > 0 and mapping.path != str(STAND_IN)
    }


@contextmanager
def _side_by_side(folder: Path) -> Iterator[dict[str, int]]:
    """The daemon and a bare loop, both in their loops."""
    with _full_server(folder) as ours, Program([PATHS[BARE], "PWR-IN"], _LINES) as bare:
        waits = Path(f"/proc/{bare.pid}/wchan")
        wait_until(lambda: "nanosleep" in waits.read_text(), _LONGEST_START_SECONDS)
        yield {DEFAULT: ours.pid, BARE: bare.pid}


@contextmanager
def _full_server(
    folder: Path, last_test: Optional[float] = None, **environment: str
) -> Iterator[Program]:
    """In its loop."""
    argv = daemon(PATHS[DEFAULT], folder, FULL, last_test=last_test)
    with Program(argv, {**_LINES, **environment}) as process:
        wait_until(lambda: _count() > 0, _LONGEST_START_SECONDS)
        yield process


def _count() -> int:
    """As the status has it; 0 before there is one."""
    printed = run([PATHS[DEFAULT], "--status"])
    return fields(printed)["count"] if printed.status == 0 else 0
