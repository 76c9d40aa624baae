"""On this machine's own kernel: a status client, from its start to its end.

status_client.py TASK: paths of the programs, the command line of NUT's client if its server runs,
number of rounds, starts of each program in a round, as JSON. Prints the result. Needs a /dev/shm
of its own.
"""

import json
import subprocess
import sys
import tempfile
from pathlib import Path
from statistics import median

from builds import SEGMENT_TOOL
from goals import STATUS
from processes import life_milliseconds, unwind_at_end
from programs import DEFAULT, EMPTY, NUT, SMALL, TRUE


def main() -> None:
    unwind_at_end()
    task = json.loads(sys.argv[1])
    paths = task["paths"]
    subprocess.run([SEGMENT_TOOL, "make", "status", "request"], check=True)
    with tempfile.TemporaryDirectory() as scratch:
        folder = Path(scratch)
        (folder / "result").write_text("result.start=1717416000\nresult.end=1717416600\n")
        (folder / "conf").write_text(f"test.battery=true\nsys.save.path={folder}/result\n")
        clients = {name: [paths[name]] for name in (EMPTY, TRUE)}
        for name in (DEFAULT, SMALL):
            clients[name] = [paths[name], "-c", str(folder / "conf"), "--status"]
        if task["nut_client"]:
            clients[NUT] = task["nut_client"]
        # Once for nothing, so that every round finds the same files in memory.
        for argv in clients.values():
            life_milliseconds(argv)
        rounds = []
        for _ in range(task["rounds"]):
            times = {name: [] for name in clients}
            for _ in range(task["starts"]):
                for name, argv in clients.items():
                    times[name].append(life_milliseconds(argv))
            rounds.append({STATUS: {name: median(values) for name, values in times.items()}})
    print(json.dumps(rounds))


main()
