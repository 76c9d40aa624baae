"""A freshly wired board with the program on it: what every scenario starts from."""

import os
import re
import subprocess
from contextlib import ExitStack
from pathlib import Path
from unittest import SkipTest

from status import fields

from guest.board import wire
from guest.clock import now, set_wall, wall
from guest.lines import remove_chips
from guest.process import Program, run
from guest.seen import Result
from guest.segment import SEGMENT
from guest.stand_in import StandIns
from guest.system_calls import mount
from guest.trace import Trace

PROGRAM = os.environ["KELVO_PWR"]
SEGMENT_TOOL = os.environ["SEGMENT_TOOL"]

# Where the default result file is; the host's own is hidden.
SYSTEM_CONFIGURATION = Path("/usr/local/etc")
LOCK = Path("/run/kelvo-pwr.lock")

# In front of a command line: run it as a user who owns nothing.
AS_NOBODY = ("setpriv", "--reuid=65534", "--regid=65534", "--clear-groups")

NO_RESULT_FILE = "Cant read timestamp conf\n"
# At each second of a test, and first when the test is on its way in all that can be seen.
PROGRESS = re.compile(r"MS: (\d+)")

SECOND = 10**9  # in nanoseconds, the unit of all times
MILLISECOND = 10**6

# What the calendar showed when the board was switched on.
BOOT = wall() - now() / SECOND


class Rig:
    """Wired lines, a trace of them, stand-ins for the shutdown commands, a configuration.

    Every daemon started through it is ended at the end. Daemon and client are the same
    program unless a test chooses another for one of them.
    """

    daemon_program = client_program = PROGRAM

    def __init__(self, folder: Path):
        self.folder = folder
        self.result_file = folder / "result.dat"
        self.conf = folder / "kelvo-pwr.conf"
        self.configure()
        self._open = ExitStack()

    def __enter__(self) -> "Rig":
        if not SYSTEM_CONFIGURATION.is_mount():
            mount("tmpfs", str(SYSTEM_CONFIGURATION), "tmpfs")
        set_wall(BOOT + now() / SECOND)
        remove_chips()
        for left_by_another in (SEGMENT, LOCK):
            left_by_another.unlink(missing_ok=True)
        self.board = wire()
        self.trace = self._open.enter_context(Trace())
        self.commands = self._open.enter_context(StandIns())
        return self

    def __exit__(self, *_) -> None:
        self._open.close()

    def configure(self, *lines: str) -> None:
        """Rewrites the configuration file that `daemon` and `client` are given."""
        own = f"sys.save.path={self.result_file}"
        self.conf.write_text("".join(f"{line}\n" for line in (own, *lines)))

    def let_everybody_in(self) -> None:
        """Lets every user read the configuration file.

        Libraries of the program's own may lie where others may not look, as in root's home.
        """
        tried = run([*AS_NOBODY, self.daemon_program, "--help"])
        if "error while loading shared libraries" in tried.stderr:
            raise SkipTest("another user cannot start the program here")
        self.folder.chmod(0o755)
        for parent in self.folder.parents:
            if parent.is_relative_to("/run") and parent.owner() == "root":
                parent.chmod(0o755)

    def daemon(self, *words: str, before: tuple = (), env=None) -> Program:
        """Starts the program without waiting; `before` goes in front of its command line."""
        argv = [*before, self.daemon_program, "-c", str(self.conf), *words]
        daemon = self._open.enter_context(Program(argv, env))
        # A daemon that is killed writes no counts of what it ran.
        self._open.callback(daemon.end, within=1)
        return daemon

    def full_server(self, *settings: str, env=None) -> Program:
        """Starts a daemon that has reached its loop with these settings on top."""
        self.configure("test.battery=true", *settings)
        daemon = self.daemon(env=env)
        daemon.wait_for_line("Full server", within=1)
        return daemon

    def minimal_server(self) -> Program:
        daemon = self.daemon()
        daemon.wait_for_line("Minimal server", within=1)
        return daemon

    def client(self, *words: str, env=None) -> Result:
        return run([self.client_program, "-c", str(self.conf), *words], env)

    def client_of_nobody(self, *words: str) -> Result:
        """Runs a client as a user who owns nothing."""
        self.let_everybody_in()
        return run([*AS_NOBODY, self.client_program, "-c", str(self.conf), *words])

    def save_times(self, start: int, end: int) -> None:
        """Leaves a result file as an earlier daemon would."""
        self.result_file.write_text(f"result.start={start}\nresult.end={end}\n")

    def saved_times(self) -> tuple[int, int]:
        """The two times in the result file, which must be exactly as the daemon writes it."""
        text = self.result_file.read_text()
        start, end = (line.split("=")[1] for line in text.splitlines())
        assert text == f"result.start={int(start)}\nresult.end={int(end)}\n"
        return int(start), int(end)

    def status(self) -> dict[str, int]:
        """All eight fields, as the status client prints them."""
        return fields(self.client("--status"))

    def set_fields(self, **fields: int) -> None:
        """Writes to the shared records as another process can."""
        words = [f"{name}={value}" for name, value in fields.items()]
        subprocess.run([SEGMENT_TOOL, "set", *words], check=True)
