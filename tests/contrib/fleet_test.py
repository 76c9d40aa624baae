"""Fifty boards, each with lines, records and a lock of its own, collected in one scrape."""

from contextlib import ExitStack
from pathlib import Path
from typing import NamedTuple

import pytest

from node_exporter import NodeExporter, export_command
from rig import PROGRAM, SECOND

from guest.clock import sleep_until
from guest.lines import remove_chips
from guest.own_lines import OwnLines
from guest.process import Program, run
from guest.system_calls import mount

BOARDS = 50
METRICS = 9
# Seconds that a daemon lives that is to die.
LIFE = 10.5
# Every board sees the collector's folder here, over whatever else it has of its own.
FOLDER = "/mnt"
WITH_OWN_SHM = Path(__file__).parent.parent / "host" / "with_own_shm"


class Member(NamedTuple):
    """What becomes of one board of the fleet: each has its own mixture."""

    number: int

    @property
    def name(self):
        return f"b{self.number:02}"

    @property
    def full(self):
        return self.number % 7 != 0

    @property
    def on_battery(self):
        return self.number % 3 == 0

    @property
    def battery_good(self):
        return self.number % 5 != 0

    @property
    def dies(self):
        return self.number % 11 == 0

    def lines(self):
        return OwnLines(self.name, not self.on_battery, self.battery_good)

    def words(self, lines):
        settings = [f"test.battery={int(self.full)}", "test.hour=-1", "test.shut.timeout=1000000"]
        return [f"--{setting}" for setting in (*lines.settings, *settings)]

    def metrics(self, count):
        """What is to be collected of it; `count` is that of a daemon that lives."""
        values = {
            "up": 1,
            "waited_seconds_total": int(LIFE) if self.dies else count,
            "power_missing": int(self.on_battery),
            "run_test": 0,
            "run_test_now": 0,
            "test_duration_seconds": 0,
        }
        if self.full:
            values |= {
                "battery_empty": int(self.on_battery and not self.battery_good),
                "battery_bad": 0,
                "testing": 0,
            }
        return [f'kelvo_pwr_{key}{{board="{self.name}"}} {value}' for key, value in values.items()]


FLEET = [Member(number) for number in range(BOARDS)]


@pytest.fixture
def boards():
    """The processes that hold the boards' name spaces, with a daemon started on each."""
    remove_chips()
    mount("tmpfs", FOLDER, "tmpfs")
    with ExitStack() as stack:
        lines = [member.lines() for member in FLEET]
        for own in lines:
            stack.enter_context(own.chip)
        yield [stack.enter_context(start(*both)) for both in zip(FLEET, lines)]


def start(member, lines):
    life = ["timeout", "--foreground", "--signal=KILL", LIFE] if member.dies else []
    # A board lives on when its daemon does not.
    on = ["sh", "-c", '"$@"; sleep infinity', "sh"]
    board = Program([WITH_OWN_SHM, *on, *life, PROGRAM, *member.words(lines)])
    board.wait_for_line(f"{'Full' if member.full else 'Minimal'} server", within=1)
    return board


def export(member, board):
    argv = ["nsenter", f"--target={board.pid}", "--mount"]
    command = export_command(f"{FOLDER}/{member.name}.prom", member.name)
    result = run([*argv, *command])
    assert result == ("", "", 0)


def test_fifty_boards_in_one_scrape(boards):
    for count in (20, 40):
        sleep_until(boards[0].started + count * SECOND + SECOND // 2)
        for member, board in zip(FLEET, boards):
            export(member, board)
        with NodeExporter(Path(FOLDER)) as node_exporter:
            lines = node_exporter.scrape("kelvo_pwr")
        samples = [line for line in lines if not line.startswith("#")]
        assert samples == sorted(line for member in FLEET for line in member.metrics(count))
        assert len(lines) - len(samples) == 2 * METRICS
    assert sum(line.startswith("kelvo_pwr_up") for line in samples) == BOARDS
