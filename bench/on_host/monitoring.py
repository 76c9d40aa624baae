"""What hands the status on, beside the daemon, on this machine's own kernel."""

import os
import subprocess
import time
from pathlib import Path

import psutil
from guest.process import Program
from on_host.loops import full_server
from processes import cpu_milliseconds, resident_kilobytes

_CONTRIB = Path(__file__).resolve().parent.parent.parent / "contrib"
_EXPORTER = _CONTRIB / "prometheus" / "kelvo-pwr-exporter"
_BRIDGE = _CONTRIB / "nut" / "kelvo-pwr-nut"
# In memory, as on a board.
_RUN = Path("/run")
# As the exporter's timer has it.
_EXPORTER_PERIOD_SECONDS = 15
_FIRST_LOOKS_SECONDS = 11


def beside_daemon(folder: Path, daemon: str, monitor: str, minutes: int) -> dict[str, list]:
    """CPU time in ms and wake-ups in a minute, and kB, of daemon, native monitor and scripts."""
    events = folder / "events.d"
    events.mkdir()
    words = [f"--prometheus={_RUN}/a.prom", f"--nut={_RUN}/ups", f"--events={events}"]
    words.append(f"--state={folder}/state")
    with full_server(daemon, folder / "daemon") as guard:
        with Program([monitor, *words]) as native:
            time.sleep(_FIRST_LOOKS_SECONDS)
            watched = {"daemon": guard.pid, "monitor": native.pid}
            before = {name: _taken(process) for name, process in watched.items()}
            begin = time.monotonic()
            scripts = _scripts(daemon, minutes)
            passed = (time.monotonic() - begin) / 60
            found = {
                name: [
                    *((now - then) / passed for now, then in zip(_taken(process), before[name])),
                    resident_kilobytes(process),
                ]
                for name, process in watched.items()
            }
    return {**found, "scripts": scripts}


def _scripts(client: str, minutes: int) -> list:
    """For as long as that; the bridge with all that it starts, and each run of the exporter."""
    environment = {**os.environ, "KELVO_PWR": client}
    begin = time.monotonic()
    bridge = subprocess.Popen([_BRIDGE, _RUN / "bridge"], env=environment)
    used = []
    try:
        for turn in range(60 * minutes // _EXPORTER_PERIOD_SECONDS):
            exporter = subprocess.Popen([_EXPORTER, _RUN / "b.prom"], env=environment)
            used.append(os.wait4(exporter.pid, 0)[2])
            memory = resident_kilobytes(bridge.pid)
            time.sleep(max(0, begin + (turn + 1) * _EXPORTER_PERIOD_SECONDS - time.monotonic()))
    finally:
        bridge.terminate()
        used.append(os.wait4(bridge.pid, 0)[2])
    cpu = 1000 * sum(one.ru_utime + one.ru_stime for one in used)
    return [cpu / minutes, sum(one.ru_nvcsw for one in used) / minutes, memory]


def _taken(process: int) -> tuple[float, int]:
    return cpu_milliseconds(process), psutil.Process(process).num_ctx_switches().voluntary
