"""Network UPS Tools with its simulated UPS, on the loopback address, polling each second."""

import getpass
import os
import subprocess
from contextlib import ExitStack
from pathlib import Path

from guest.clock import wait_until
from guest.process import Program

_LONGEST_START_SECONDS = 60
_FILES = {
    "simulated.dev": "ups.status: OL",
    "ups.conf": "pollinterval = 1\n[simulated]\n"
    "driver = dummy-ups\nport = {folder}/simulated.dev\nmode = dummy-once",
    "upsd.conf": "LISTEN 127.0.0.1 {port}",
    "upsd.users": "[monitor]\npassword = secret\nupsmon primary",
    "upsmon.conf": "MONITOR {ups} 1 monitor secret primary\nRUN_AS_USER {user}\n"
    "MINSUPPLIES 1\nSHUTDOWNCMD true\nPOLLFREQ 1\nPOLLFREQALERT 1",
}


class Nut(ExitStack):
    """Driver, server and monitor below `tools`, where Debian's packages were unpacked.

    A `with` statement ends what was started.
    """

    def __init__(self, tools: str, folder: Path, port: int = 3493):
        super().__init__()
        ups, self._tools, self._user = f"simulated@127.0.0.1:{port}", tools, getpass.getuser()
        names = ("NUT_CONFPATH", "NUT_STATEPATH", "NUT_ALTPIDPATH")
        self._environment = {**os.environ, **{name: str(folder) for name in names}}
        # Shows one value.
        self.status_client = [f"{tools}/bin/upsc", ups, "ups.status"]
        folder.mkdir(mode=0o700)
        for name, text in _FILES.items():
            (folder / name).touch(mode=0o600)
            text = text.format(folder=folder, port=port, ups=ups, user=self._user)
            (folder / name).write_text(text + "\n")

    def serve(self) -> list[int]:
        """Starts driver and server; returns when the first status has come."""
        started = [
            self._start("dummy-ups", "-u", self._user, "-a", "simulated", "-F"),
            self._start("upsd", "-u", self._user, "-F"),
        ]
        wait_until(self._answers, within=_LONGEST_START_SECONDS, step=0.05)
        return started

    def monitor(self) -> int:
        return self._start("upsmon", "-F")

    def _start(self, tool: str, *words: str) -> int:
        program = Program([f"{self._tools}/lib/nut/{tool}", *words], self._environment)
        return self.enter_context(program).pid

    def _answers(self) -> bool:
        done = subprocess.run(self.status_client, env=self._environment, capture_output=True)
        return done.returncode == 0
