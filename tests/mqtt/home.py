"""The program, and what it says."""

import os
import subprocess
from contextlib import contextmanager

from broker import HOST
from heart import wait_until

MQTT = os.environ["KELVO_PWR_MQTT"]
STATE, AVAILABILITY, COMMAND = (
    f"kelvo-pwr/attic/{name}" for name in ("state", "availability", "run-test-now")
)
CONNECTED = f"Connected to {HOST}\n"
ALIVE = "The daemon lives\n"


class Home:
    """Its files."""

    def __init__(self, folder):
        self.state = folder / "state"
        self.result = folder / "result"
        self._conf = folder / "conf"
        self._conf.write_text(f"sys.save.path={self.result}\n")

    def wait_for(self, remembered):
        wait_until(lambda: self.state.exists() and remembered in self.state.read_text())

    @contextmanager
    def mqtt(self, port, *words):
        command = [
            *(MQTT, f"--host={HOST}", f"--port={port}", "--board=attic", "--period=2"),
            *(f"--state={self.state}", f"--daemon.conf={self._conf}", *words),
        ]
        with subprocess.Popen(command, stderr=subprocess.PIPE, text=True) as mqtt:
            try:
                yield mqtt
            finally:
                mqtt.kill()
