"""Network UPS Tools with its simulated UPS, on the loopback address, polling each second."""

import os

from guest.clock import wait_until
from guest.process import run
from nut_tools import USER, NutTools

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


class Nut(NutTools):
    def __init__(self, port: int = 3493):
        ups = f"simulated@127.0.0.1:{port}"
        super().__init__(os.environ["CONTRIB_TOOLS"], ups)
        for name, text in _FILES.items():
            self.write(name, text.format(folder=self.folder, port=port, ups=ups, user=USER))
        self.status_client = self.upsc("ups.status")

    def serve(self) -> list[int]:
        """Starts driver and server; returns when the first status has come."""
        commands = [("dummy-ups", "-u", USER, "-a", "simulated"), ("upsd", "-u", USER)]
        started = [self.start(*self.command(*words)).pid for words in commands]
        wait_until(lambda: run(self.status_client).status == 0, _LONGEST_START_SECONDS, step=0.05)
        return started

    def monitor(self) -> int:
        return self.start(*self.command("upsmon")).pid
