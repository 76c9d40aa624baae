"""What hands the status on, beside the daemon, on this machine's own kernel."""

import time
from pathlib import Path

import psutil
from guest.process import Program
from on_host.loops import full_server
from processes import cpu_milliseconds, resident_kilobytes

# In memory, as on a board.
_RUN = Path("/run")
_FIRST_LOOKS_SECONDS = 11


def beside_daemon(folder: Path, daemon: str, monitor: str, minutes: int) -> dict[str, list]:
    """CPU time in ms and wake-ups in a minute, and kB, of daemon and monitor."""
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
            time.sleep(60 * minutes)
            passed = (time.monotonic() - begin) / 60
            return {
                name: [
                    *((now - then) / passed for now, then in zip(_taken(process), before[name])),
                    resident_kilobytes(process),
                ]
                for name, process in watched.items()
            }


def _taken(process: int) -> tuple[float, int]:
    return cpu_milliseconds(process), psutil.Process(process).num_ctx_switches().voluntary
