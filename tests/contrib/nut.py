"""The real Network UPS Tools behind the monitor: driver, server, and machines that ask."""

import os
import socket
import time
from pathlib import Path
from typing import Optional

from nut_tools import USER, NutTools

from guest.clock import wait_until
from guest.process import Program, run

MONITOR = os.environ["KELVO_PWR_MONITOR"]
_SAMPLE = Path(__file__).parent.parent.parent / "contrib" / "nut" / "ups.conf"
_INSTALLED = "/run/kelvo-pwr-monitor/ups"

NOT_CONNECTED = "Error: Driver not connected"
DOWN = "the other machine goes down"

# What Debian's unit for a driver does: Restart=always, RestartSec=15.
_RESTARTED = 'while :; do "$@"; sleep 15; done'


class Nut(NutTools):
    """The driver, with the section of ups.conf that is shipped, and upsd.

    A `with` statement ends both. `file` is where the monitor is to write.
    """

    def __init__(self, file: Optional[Path] = None):
        super().__init__(os.environ["CONTRIB_TOOLS"], "kelvo-pwr@127.0.0.1")
        self.file = file or self.folder / "status"
        sample = _SAMPLE.read_text()
        assert sample.count(_INSTALLED) == 1
        self.write("ups.conf", sample.replace(_INSTALLED, str(self.file)))
        self.write("upsd.conf", "LISTEN 127.0.0.1")
        self.write("upsd.users", "[other]\npassword = secret\nupsmon secondary")
        driver = self.command("dummy-ups", "-u", USER, "-a", "kelvo-pwr")
        self.start("/bin/sh", "-c", _RESTARTED, "sh", *driver)
        self.start(*self.command("upsd", "-u", USER))
        wait_until(self._answers, within=10)

    def variables(self) -> dict[str, str]:
        """All that upsc shows but what the driver says of itself."""
        pairs = (line.split(": ", 1) for line in self._shown().splitlines())
        return {name: value for name, value in pairs if not name.startswith("driver.")}

    def wait_for(self, status: str, within: float) -> None:
        """Until upsc shows this as ups.status, or as its error."""
        try:
            wait_until(lambda: self._status() == status, within, step=0.5)
        except AssertionError:
            raise AssertionError(f"{self._status()!r} is not {status!r}") from None
        assert self._shown("ups.status") == status

    def assert_stays(self, status: str, seconds: int) -> None:
        for _ in range(seconds):
            assert self._status() == status
            time.sleep(1)

    def other_machine(self) -> Program:
        """An upsmon as one that is fed by the same supply has it; it prints DOWN."""
        self.write(
            "upsmon.conf",
            "MONITOR kelvo-pwr@127.0.0.1 1 other secret secondary\n"
            f'RUN_AS_USER {USER}\nMINSUPPLIES 1\nSHUTDOWNCMD "echo {DOWN}"',
        )
        return self.start(*self.command("upsmon"))

    def _answers(self) -> bool:
        try:
            return bool(self._status())
        except ConnectionRefusedError:
            return False

    def _status(self) -> str:
        """As upsc has it. Asking oneself is quicker than to start a program each time."""
        with socket.create_connection(("127.0.0.1", 3493)) as connection:
            connection.sendall(b"GET VAR kelvo-pwr ups.status\n")
            answer = connection.makefile().readline().rstrip("\n")
        if answer == "ERR DRIVER-NOT-CONNECTED":
            return NOT_CONNECTED
        return answer.removeprefix('VAR kelvo-pwr ups.status "').removesuffix('"')

    def _shown(self, *variable: str) -> str:
        answer = run(self.upsc(*variable))
        return (answer.stdout or answer.stderr.splitlines()[-1]).strip()
