"""The real node exporter with nothing but its textfile collector."""

import os
import re
from pathlib import Path
from urllib.error import URLError
from urllib.request import urlopen

from guest.clock import wait_until
from guest.process import Program

_TOOLS = Path(os.environ["CONTRIB_TOOLS"])
_MONITOR = os.environ["KELVO_PWR_MONITOR"]
PROMTOOL = _TOOLS / "usr/bin/promtool"


def export_command(file, *board) -> list:
    """Writes the file once, with the name of a board if one is given."""
    return [_MONITOR, "--once", "--prometheus", file, *(f"--board={name}" for name in board)]


class NodeExporter:
    """Serves the files of a folder; a `with` statement ends it."""

    # The board has its network for itself.
    _ADDRESS = "127.0.0.1:9100"

    def __init__(self, folder: Path):
        self._program = Program(
            [
                _TOOLS / "usr/bin/prometheus-node-exporter",
                "--collector.disable-defaults",
                "--collector.textfile",
                f"--collector.textfile.directory={folder}",
                f"--web.listen-address={self._ADDRESS}",
            ]
        )

    def __enter__(self) -> "NodeExporter":
        wait_until(self._answers, within=60)
        return self

    def __exit__(self, *_) -> None:
        self._program.kill()

    def scrape(self, name: str) -> list[str]:
        """All lines about metrics that begin with this name, sorted."""
        about = re.compile(rf"(# \w+ )?{name}")
        return sorted(line for line in self._page().splitlines() if about.match(line))

    def _page(self) -> str:
        with urlopen(f"http://{self._ADDRESS}/metrics") as page:
            return page.read().decode()

    def _answers(self) -> bool:
        try:
            return bool(self._page())
        except URLError:
            return False
