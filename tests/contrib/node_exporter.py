"""The real node exporter with nothing but its textfile collector."""

import os
import re
from pathlib import Path
from urllib.error import URLError
from urllib.request import urlopen

from guest.clock import wait_until
from guest.process import Program

_ROOT = Path(__file__).parent.parent.parent
_TOOLS = Path(os.environ["CONTRIB_TOOLS"])

# The native monitor does what the exporter does; a run is of the one or of the other.
MONITOR = os.environ.get("KELVO_PWR_MONITOR")
_EXPORTER = _ROOT / "contrib" / "prometheus" / "kelvo-pwr-exporter"
PROMTOOL = _TOOLS / "usr/bin/promtool"


def export_command(*words) -> list:
    """Writes the file that is the first of the words once; the second is the name of a board."""
    if MONITOR is None:
        return [_EXPORTER, *words]
    file, *board = words
    return [MONITOR, "--once", "--prometheus", file, *(f"--board={name}" for name in board)]


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
