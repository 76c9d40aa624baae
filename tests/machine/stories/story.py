"""What the stories on a machine begin with."""

import os
import subprocess
import time

from guest.process import Program

BOOT = int(os.environ["BOARD_BOOT"])
CLIENT = ["kelvo-pwr", "-c", "/etc/kelvo/kelvo-pwr.conf"]


def follow() -> Program:
    """What the service says in this boot, from its beginning."""
    words = ["--boot", "--follow", "--lines=all", "--output=cat"]
    return Program(["journalctl", *words, "--identifier=kelvo-pwr"])


def await_full_server(journal: Program) -> None:
    journal.wait_for_line("Full server", within=120)


def client(*words: str) -> str:
    done = subprocess.run([*CLIENT, *words], stdout=subprocess.PIPE, text=True)
    assert done.returncode == 0, done
    return done.stdout


def await_the_end() -> None:
    """Of the machine's power."""
    time.sleep(2000)
    raise SystemExit("still up")
