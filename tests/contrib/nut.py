"""The real Network UPS Tools behind the monitor: driver, server, and machines that ask."""

import os
import socket
import time
from contextlib import ExitStack
from pathlib import Path
from guest.clock import wait_until
from guest.process import Program, run

_SAMPLE = Path(__file__).parent.parent.parent / "contrib" / "nut" / "ups.conf"
_TOOLS = Path(os.environ["CONTRIB_TOOLS"])
MONITOR = os.environ["KELVO_PWR_MONITOR"]
_INSTALLED = "/run/kelvo-pwr-monitor/ups"

NOT_CONNECTED = "Error: Driver not connected"
DOWN = "the other machine goes down"

# What Debian's unit for a driver does: Restart=always, RestartSec=15.
_RESTARTED = 'while :; do "$@"; sleep 15; done'

class Nut:
    """The driver, with the section of ups.conf that is shipped, and upsd.

    A `with` statement ends both. `file` is where the monitor is to write.
    """

    def __init__(self, folder: Path):
        self._folder = folder
        self.file = folder / "status"
        self._environment = {
            name: str(folder) for name in ("NUT_CONFPATH", "NUT_STATEPATH", "NUT_ALTPIDPATH")
        }
        self._open = ExitStack()

    def __enter__(self) -> "Nut":
        self._folder.mkdir(mode=0o700)
        sample = _SAMPLE.read_text()
        assert sample.count(_INSTALLED) == 1
        self._write("ups.conf", sample.replace(_INSTALLED, str(self.file)))
        self._write("upsd.conf", "LISTEN 127.0.0.1")
        self._write("upsd.users", "[other]\npassword = secret\nupsmon secondary")
        driver = [_TOOLS / "lib/nut/dummy-ups", "-u", "root", "-a", "kelvo-pwr", "-F"]
        self._start("/bin/sh", "-c", _RESTARTED, "sh", *driver)
        self._start(_TOOLS / "lib/nut/upsd", "-u", "root", "-F")
        wait_until(self._answers, within=10)
        return self

    def __exit__(self, *_) -> None:
        self._open.close()

    def variables(self) -> dict[str, str]:
        """All that upsc shows but what the driver says of itself."""
        pairs = (line.split(": ", 1) for line in self._upsc().splitlines())
        return {name: value for name, value in pairs if not name.startswith("driver.")}

    def wait_for(self, status: str, within: float) -> None:
        """Until upsc shows this as ups.status, or as its error."""
        try:
            wait_until(lambda: self._status() == status, within, step=0.5)
        except AssertionError:
            raise AssertionError(f"{self._status()!r} is not {status!r}") from None
        assert self._upsc("ups.status") == status

    def assert_stays(self, status: str, seconds: int) -> None:
        for _ in range(seconds):
            assert self._status() == status
            time.sleep(1)

    def other_machine(self) -> Program:
        """An upsmon as one that is fed by the same supply has it; it prints DOWN."""
        self._write(
            "upsmon.conf",
            "MONITOR kelvo-pwr@127.0.0.1 1 other secret secondary\n"
            f'RUN_AS_USER root\nMINSUPPLIES 1\nSHUTDOWNCMD "echo {DOWN}"',
        )
        return self._start(_TOOLS / "lib/nut/upsmon", "-F")

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

    def _upsc(self, *variable: str) -> str:
        answer = run([_TOOLS / "bin/upsc", "kelvo-pwr@127.0.0.1", *variable])
        return (answer.stdout or answer.stderr.splitlines()[-1]).strip()

    def _write(self, name: str, text: str) -> None:
        path = self._folder / name
        path.write_text(text + "\n")
        path.chmod(0o600)

    def _start(self, *argv) -> Program:
        return self._open.enter_context(Program([str(word) for word in argv], self._environment))
