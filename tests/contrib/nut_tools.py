"""Programs of Network UPS Tools, unpacked by the script `tools`, with files of their own."""

import getpass
from contextlib import ExitStack
from pathlib import Path
from tempfile import TemporaryDirectory

from guest.process import Program

USER = getpass.getuser()


class NutTools(ExitStack):
    """A `with` statement ends what was started, and takes the files away."""

    def __init__(self, tools: str, ups: str):
        super().__init__()
        self.folder = Path(self.enter_context(TemporaryDirectory()))
        self._tools, self._ups = tools, ups
        names = ("NUT_CONFPATH", "NUT_STATEPATH", "NUT_ALTPIDPATH")
        self._environment = {name: str(self.folder) for name in names}

    def write(self, name: str, text: str) -> None:
        path = self.folder / name
        path.write_text(text + "\n")
        path.chmod(0o600)

    def command(self, tool: str, *words: str) -> list[str]:
        """The command line of driver, server or monitor."""
        return [f"{self._tools}/lib/nut/{tool}", *words, "-F"]

    def start(self, *argv: str) -> Program:
        return self.enter_context(Program(argv, self._environment))

    def upsc(self, *variable: str) -> list[str]:
        """The command line that shows this, or all."""
        return [f"{self._tools}/bin/upsc", self._ups, *variable]
