"""Network UPS Tools with its simulated UPS, on the loopback address, polling each second."""

import os
import pwd
import signal
import subprocess
import time
from pathlib import Path
from typing import Sequence

from processes import family

_LONGEST_START_SECONDS = 60


class Nut:
    """Driver, server and monitor below `tools`, where Debian's packages were unpacked.

    Configuration and state are in `folder`; a `with` statement ends what was started, and raises
    if a part of it has ended before.
    """

    def __init__(self, tools: Path, folder: Path, port: int):
        self._tools, self._folder = tools, folder
        self._ups = f"simulated@127.0.0.1:{port}"
        names = ("NUT_CONFPATH", "NUT_STATEPATH", "NUT_ALTPIDPATH")
        self._environment = {**os.environ, **{name: str(folder) for name in names}}
        self.processes: list[subprocess.Popen] = []
        user = pwd.getpwuid(os.getuid()).pw_name
        folder.mkdir(mode=0o700)
        files = {
            "simulated.dev": "ups.status: OL",
            "ups.conf": "pollinterval = 1\n[simulated]\n"
            f"driver = dummy-ups\nport = {folder}/simulated.dev\nmode = dummy-once",
            "upsd.conf": f"LISTEN 127.0.0.1 {port}",
            "upsd.users": "[monitor]\npassword = secret\nupsmon primary",
            "upsmon.conf": f"MONITOR {self._ups} 1 monitor secret primary\nRUN_AS_USER {user}\n"
            "MINSUPPLIES 1\nSHUTDOWNCMD true\nPOLLFREQ 1\nPOLLFREQALERT 1",
        }
        for name, text in files.items():
            (folder / name).write_text(text + "\n")
            (folder / name).chmod(0o600)
        self._user = user

    def __enter__(self) -> "Nut":
        return self

    def __exit__(self, *_) -> None:
        ended = [process.args for process in self.processes if process.poll() is not None]
        # The monitor's child goes on when the monitor ends; it is left to who adopts it.
        for pid in sorted(set().union(*(family(process.pid) for process in self.processes))):
            os.kill(pid, signal.SIGTERM)
        for process in self.processes:
            process.wait()
        self.processes.clear()
        if ended:
            raise RuntimeError(f"ended by themselves: {ended}")

    def serve(self) -> None:
        """Starts driver and server; returns when the first status has come."""
        self._start("lib/nut/dummy-ups", "-u", self._user, "-a", "simulated", "-F")
        self._start("lib/nut/upsd", "-u", self._user, "-F")
        end = time.monotonic() + _LONGEST_START_SECONDS
        while subprocess.run(self.status_client(), **self._quiet()).returncode != 0:
            if time.monotonic() > end:
                raise RuntimeError(f"no status from upsd in {_LONGEST_START_SECONDS} seconds")
            time.sleep(0.05)

    def monitor(self) -> None:
        self._start("lib/nut/upsmon", "-F")

    def status_client(self) -> Sequence[str]:
        """The command line that shows one value."""
        return [str(self._tools / "bin/upsc"), self._ups, "ups.status"]

    def _start(self, tool: str, *words: str) -> None:
        argv = [str(self._tools / tool), *words]
        self.processes.append(subprocess.Popen(argv, **self._quiet()))

    def _quiet(self) -> dict:
        return {
            "stdin": subprocess.DEVNULL,
            "stdout": subprocess.DEVNULL,
            "stderr": subprocess.DEVNULL,
            "env": self._environment,
        }
