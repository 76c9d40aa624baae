"""The service as installed on a booted Debian: what every test in there starts from."""

import shutil
from contextlib import ExitStack
from pathlib import Path

from status import fields

from guest.board import wire
from guest.lines import remove_chips
from guest.process import Program, run
from guest.seen import Result

UNIT = "kelvo-pwr.service"
LOOK = "kelvo-pwr-watch.service"
UNITS = (
    UNIT,
    "kelvo-pwr-test.service",
    "kelvo-pwr-test.timer",
    LOOK,
    "kelvo-pwr-watch.timer",
)
PROGRAM = "/usr/sbin/kelvo-pwr"
CONFIGURATION = Path("/etc/kelvo/kelvo-pwr.conf")
STATE = Path("/var/lib/kelvo-pwr")
RESULT_FILE = STATE / "kelvo-pwr.dat"
LOCK = Path("/run/kelvo-pwr.lock")
SEGMENT = Path("/dev/shm/kelvo-pwr-shm")
DROP_INS = Path(f"/run/systemd/system/{UNIT}.d")

DESCRIPTION = "kelvo-pwr.service - AC power and backup battery supervision"
NO_RESULT_FILE = "Cant read timestamp conf"

SECOND = 10**9  # in nanoseconds, the unit of all times


def systemctl(*words: str) -> Result:
    return run(["systemctl", "--no-ask-password", *words])


def shown(unit: str, name: str) -> str:
    """A property of a unit."""
    return systemctl("show", "--value", f"--property={name}", unit).stdout.strip()


def here() -> str:
    """The place that the journal has come to."""
    run(["journalctl", "--sync"])
    shown = run(["journalctl", "--lines=0", "--show-cursor"]).stdout
    return shown.splitlines()[-1].removeprefix("-- cursor: ")


def systemd_version() -> int:
    return int(run(["systemctl", "--version"]).stdout.split()[1])


class Service:
    """A wired board, a configuration, no result file; the service is not running."""

    def __init__(self):
        self._open = ExitStack()

    def __enter__(self) -> "Service":
        self._clean()
        self.board = wire(natural_pulls=True)
        self.configure()
        self.journal = self.follow(UNIT)
        return self

    def __exit__(self, *_) -> None:
        # The next one cleans up; after the last the board is gone.
        self._open.close()

    def _clean(self) -> None:
        systemctl("stop", UNIT, LOOK, "kelvo-pwr-test.timer")
        if DROP_INS.exists():
            shutil.rmtree(DROP_INS)
            systemctl("daemon-reload")
        systemctl("reset-failed")
        remove_chips()
        for file in STATE.glob("*"):
            file.unlink()
        SEGMENT.unlink(missing_ok=True)

    def configure(self, *lines: str) -> None:
        """Rewrites the configuration of the service: a full server, and these settings."""
        usual = (f"sys.save.path={RESULT_FILE}", "test.battery=true", "test.hour=-1")
        CONFIGURATION.write_text("".join(f"{line}\n" for line in (*usual, *lines)))

    def drop_in(self, text: str) -> None:
        DROP_INS.mkdir(parents=True)
        (DROP_INS / "test.conf").write_text(text)
        systemctl("daemon-reload")

    def follow(self, unit: str) -> Program:
        """The unit's journal from now on, systemd's own messages about it included."""
        words = ("--follow", "--no-tail", f"--after-cursor={here()}", "--output=cat")
        return self._open.enter_context(Program(["journalctl", *words, "--unit", unit]))

    def start(self) -> None:
        """Starts the service; returns when it is a full server."""
        started = systemctl("start", UNIT)
        assert started.status == 0, started
        self.journal.wait_for_line("Full server", within=1)

    def client(self, *words: str) -> Result:
        return run([PROGRAM, "-c", str(CONFIGURATION), *words])

    def status(self) -> dict[str, int]:
        """All eight fields, as the status client prints them."""
        return fields(self.client("--status"))

    def state(self) -> tuple[str, str]:
        return shown(UNIT, "ActiveState"), shown(UNIT, "Result")
