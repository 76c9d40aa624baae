"""What handing the status on costs, beside the daemon."""

from part import on_host
from programs.names import DEFAULT, MONITOR
from report.tables import Rows

_MINUTES = 5
_NAMES = {
    "daemon": DEFAULT,
    "monitor": f"{MONITOR}, every 5 s: both files, events",
}


def monitoring(paths: dict) -> dict[str, Rows]:
    programs = {"daemon": paths[DEFAULT], "monitor": paths[MONITOR]}
    found = on_host("monitoring.beside_daemon", **programs, minutes=_MINUTES)
    own, _, _ = found["daemon"]
    header = ["Program", "CPU time per minute, ms", f"Times that of {DEFAULT}"]
    rows = [[*header, "Wake-ups per minute", "Memory, kB"]]
    for key, name in _NAMES.items():
        cpu, wake_ups, memory = found[key]
        figures = f"{cpu:,.2f}", f"{cpu / own:.2f}", f"{wake_ups:,.0f}", f"{memory:,}"
        rows.append([name, *figures])
    return {"cost_monitoring": rows}
