"""The daemon is killed in the middle of a battery test; with a word the battery fails then, too."""

import subprocess
import sys
import time

from story import BOOT, await_full_server, await_the_end, client, follow

from guest.board import found
from guest.clock import wait_until

board = found()


def tell(stage: str) -> None:
    power = "missing" if board.pwr_in.level() else "present"
    print(f"{stage} {board.at2.holder()} {board.at2.level()}, AC power {power}")


with follow() as journal:
    await_full_server(journal)
    if BOOT == 1:
        client("--run-test-now", "--test.duration=60")
        wait_until(lambda: board.at2.level() == 1, within=5)
        time.sleep(5)
        subprocess.run(["systemctl", "kill", "--signal=KILL", "kelvo-pwr"], check=True)
        # Systemd lets ten seconds pass.
        time.sleep(5)
        tell("killed")
        if sys.argv[1:]:
            board.plan(1, exhausted=True)
            await_the_end()
        await_full_server(journal)
    tell("started again")
    print(client("--status"), end="")
