"""The owner of a board, who does what the pages of docs say."""

import os
from pathlib import Path

from guest.process import run
from guest.seen import Result


class Owner:
    """Root, who agrees to whatever apt is about to do."""

    def __init__(self, folder: Path):
        self._tools = folder / "tools"
        self._tools.mkdir()
        self.give("sudo", 'exec "$@"')
        Path("/etc/apt/apt.conf.d/yes").write_text('APT::Get::Assume-Yes "true";\n')

    def give(self, name: str, script: str) -> None:
        """Has this piece of shell stand for a command that is not there."""
        tool = self._tools / name
        tool.write_text(f"#!/bin/sh\n{script}\n")
        tool.chmod(0o755)

    def run(self, command: str, folder: Path) -> Result:
        environment = {
            "PATH": f"{self._tools}:{os.environ['PATH']}",
            "DEBIAN_FRONTEND": "noninteractive",
        }
        done = run(["sh", "-euc", command], environment, str(folder))
        print(f"$ {command}\n{done.stdout}{done.stderr}", end="")
        assert done.status == 0, done
        return done
