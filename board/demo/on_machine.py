"""The story on a whole machine: to the cut of its power, and the boot after that."""

import os
import subprocess
import time

from chapters import SECOND, tell

from guest.board import found
from guest.clock import now, sleep_until
from guest.outside import ask
from guest.process import Program

_CONFIGURATION = "/etc/kelvo/kelvo-pwr.conf"
_TIMES = "/var/lib/kelvo-pwr/kelvo-pwr.dat"
# Until AC power is there again, from the empty battery on.
_AWAY_SECONDS = 240


class Stage:
    """What is done on it is noted outside, where its lines are watched, too."""

    def __init__(self):
        self._board = found()

    def chapter(self, title: str) -> None:
        ask(note=["chapter", title])

    def client(self, word: str) -> None:
        self.command("kelvo-pwr", "--conf", _CONFIGURATION, word)

    def command(self, *words: str) -> None:
        self._did(f"$ {' '.join(words)}")
        done = subprocess.run(words, capture_output=True, text=True)
        for line in (done.stdout + done.stderr).splitlines():
            ask(note=["client", line])

    def ac_lost(self) -> None:
        self._did("AC power is lost.")
        self._board.ac(False)

    def battery(self, good: bool) -> None:
        self._did("The battery is charged again." if good else "The battery voltage falls.")
        self._board.battery(good)

    def plan_the_return_of_power(self) -> None:
        self._board.plan(_AWAY_SECONDS, ac=True, good=True)

    def _did(self, what: str) -> None:
        ask(note=["did", what])


def main() -> None:
    stage = Stage()
    words = ["--boot", "--follow", "--lines=all", "--output=cat", "--identifier=kelvo-pwr"]
    with Program(["journalctl", *words]) as daemon:
        daemon.wait_for_line("Start", within=60)
        if os.environ["BOARD_BOOT"] == "1":
            tell(stage, daemon, now())
            stage.plan_the_return_of_power()
            # The machine's power is cut meanwhile.
            time.sleep(2 * _AWAY_SECONDS)
        daemon.wait_for_line("Full server", within=5)
        sleep_until(now() + 5 * SECOND)
        stage.client("--status")
        stage.command("cat", _TIMES)


if __name__ == "__main__":
    main()
