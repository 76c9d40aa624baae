"""A month of a daemon on the board, as the plan has it: what everybody was told.

Prints it as JSON for the script `month`, which compares. KELVO_PWR_MQTT, KELVO_PWR_MONITOR and
CONTRIB_TOOLS are the programs. Broker and Network UPS Tools run only while they are asked: they
wake up several times a second.
"""

import json
import os
import sys
from contextlib import ExitStack
from pathlib import Path
from tempfile import TemporaryDirectory
from threading import Thread

HERE = Path(__file__).parent
sys.path[:0] = [str(HERE), str(HERE.parent / "board")]

from month_plan import BEGIN, END, MINUTE, SCRAPE, SETTINGS, STEPS  # noqa: E402
from nut import MONITOR, Nut  # noqa: E402
from rig import SECOND, Rig  # noqa: E402

from guest.clock import now, set_wall, sleep_until, wait_until  # noqa: E402
from guest.process import Program, run  # noqa: E402

# From a change until everybody knows of it.
KNOWN_SECONDS = 40
TOOLS = Path(os.environ["CONTRIB_TOOLS"])


class Month:
    """Seconds are those since its begin."""

    def __init__(self, rig: Rig, folder: Path, open_until_its_end: ExitStack):
        self._rig, self._folder, self._open = rig, folder, open_until_its_end
        self._metrics, self._notes = folder / "kelvo_pwr.prom", folder / "notes"
        self._nut_file = folder / "ups"
        events = folder / "events.d"
        events.mkdir()
        script = events / "note"
        script.write_text(f'#!/bin/sh\necho "$KELVO_EVENT_TIME $1" >>{self._notes}\n')
        script.chmod(0o755)
        self._begin = now()
        self.series: dict[str, list] = {}  # of each metric its values, None where it is not there
        self.answers: list[dict] = []
        self._start_all()
        self.scraper = Thread(target=self._scrape, daemon=True)
        self.scraper.start()

    def _start_all(self) -> None:
        self._daemon = self._rig.full_server(*SETTINGS, env={"TZ": "UTC"})
        conf = ("--daemon.conf", self._rig.conf)
        self._monitor = self._started(
            *(MONITOR, *conf, "--state", self._folder / "state", "--prometheus", self._metrics),
            *("--nut", self._nut_file, "--events", self._folder / "events.d"),
        )
        self._mqtt = self._started(
            *(os.environ["KELVO_PWR_MQTT"], *conf, "--state", self._folder / "mqtt-state"),
            *("--host=127.0.0.1", "--board=board"),
        )

    def _started(self, *argv) -> Program:
        return self._open.enter_context(Program(list(argv)))

    def live_until(self, second: int) -> None:
        sleep_until(self._begin + second * SECOND)

    def _scrape(self) -> None:
        """As the node exporter does, whatever else happens."""
        for count in range(END // SCRAPE):
            self.live_until(count * SCRAPE)
            found = self._metrics_now()
            for name in found.keys() | self.series.keys():
                values = self.series.setdefault(name, [None] * count)
                values.append(found.get(name))

    def _metrics_now(self) -> dict[str, str]:
        try:
            lines = self._metrics.read_text().splitlines()
            written = int(self._metrics.stat().st_mtime)
        except FileNotFoundError:
            return {}
        found = dict(line.rsplit(" ", 1) for line in lines if not line.startswith("#"))
        return {**found, "mtime": str(written)}

    def ask(self) -> None:
        """Everybody."""
        with Nut(self._nut_file) as nut:
            # WAIT: the server has not heard of the driver yet.
            wait_until(lambda: nut.variables().get("ups.status", "WAIT") != "WAIT", 40, step=0.5)
            ups = nut.variables()
        notes = self._notes.read_text().splitlines() if self._notes.exists() else []
        events = [(int(time) - BEGIN, name) for time, name in map(str.split, notes)]
        self.answers.append({"events": events, "ups": ups, "mqtt": self._asked()})

    def _asked(self) -> dict:
        """What the broker keeps of the board, when that has found it."""
        with TemporaryDirectory() as folder, ExitStack() as running:
            conf = Path(folder) / "conf"
            conf.write_text("listener 1883 127.0.0.1\nallow_anonymous true\nuser root\n")
            running.enter_context(Program([TOOLS / "usr/sbin/mosquitto", "-c", conf]))
            client = [TOOLS / "usr/bin/mosquitto_sub", "-h", "127.0.0.1", "-C", "1", "-W", "60"]
            asked = [*client, "-t", "kelvo-pwr/board/state"]
            wait_until(lambda: run(asked).status == 0, within=90, step=1)
            return json.loads(run(asked).stdout)

    def lose_power(self) -> None:
        self._rig.board.ac(False)

    def give_power(self) -> None:
        self._rig.board.ac(True)

    def make_low(self) -> None:
        """The battery, for as long as its test can last."""
        self._rig.board.battery(False)
        sleep_until(now() + MINUTE * SECOND)
        self._rig.board.battery(True)

    def restart_daemon(self) -> None:
        self._daemon.end(within=1)
        self._daemon = self._rig.full_server(*SETTINGS, env={"TZ": "UTC"})

    def restart_all(self) -> None:
        """As by a reboot of a minute."""
        for program in (self._monitor, self._mqtt, self._daemon):
            program.kill()
        self._metrics.unlink()
        sleep_until(now() + MINUTE * SECOND)
        self._start_all()


def main() -> None:
    with TemporaryDirectory() as folder, Rig(Path(folder)) as rig, ExitStack() as running:
        # The time after a boot in which no test begins is over.
        sleep_until(600 * SECOND)
        set_wall(BEGIN + 0.5)
        month = Month(rig, Path(folder), running)
        for step in STEPS:
            month.live_until(step.at)
            if step.action:
                getattr(month, step.action)()
            month.live_until(step.at + KNOWN_SECONDS)
            month.ask()
        month.scraper.join()
        print(json.dumps({"answers": month.answers, "series": month.series}))


main()
