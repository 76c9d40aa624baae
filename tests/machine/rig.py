"""The lives of a machine on which the package is installed, as they are looked at on the host.

MACHINE is its processor and its Debian, such as arm64-bookworm; PACKAGE_FOLDER has the packages.
"""

import hashlib
import json
import os
import random
import re
import subprocess
import tempfile
from pathlib import Path
from typing import NamedTuple, Optional

import pytest

from host.cache import kept
from host.problems import Unavailable
from machine.emulator import Product, command_of
from machine.files import names_in, put, text_of
from machine.life import Life
from machine.run import add_own, copy_disk, installed, journal, product_of
from way_down import CUT, START_AGAIN, source_and_text

__all__ = ["CUT", "START_AGAIN", "Lived"]

HERE = Path(__file__).parent
PROJECT = HERE.parents[1]
BOARD = PROJECT / "board"
STORIES = HERE / "stories"
CONFIGURATION = "/etc/kelvo/kelvo-pwr.conf"
STATE = "/var/lib/kelvo-pwr"
RESULT_FILE = f"{STATE}/kelvo-pwr.dat"
SETTINGS = f"""\
sys.save.path={RESULT_FILE}
test.battery=true
test.hour=-1
test.shut.cmd=poweroff
"""

# On the host's clock, for one life on a busy machine.
LONGEST_SECONDS = 1800


class Said(NamedTuple):
    boot: int
    seconds: float  # since the boot
    source: Optional[str]
    text: str


class Lived:
    """A life, over when it is made; in each boot `story` is run.

    The first boot is not played anew each time: it is that of `guarded`, which goes on here. With a
    seed chance decides at a power cut how far the disk had come and about what was not flushed, which
    is lost without one.
    """

    def __init__(self, folder, story, *words, coupled=False, seed=None, most_boots=None):
        try:
            product, disk = product_of(*os.environ["MACHINE"].split("-"), folder)
            saved = guarded(product, disk)
        except Unavailable as reason:
            pytest.skip(str(reason))
        self._folder, self.disk = folder, copy_disk(saved / "disk", folder)
        self.printed = ""
        self.life = Life(
            product,
            folder,
            self.disk,
            ["python3", "-uPB", f"/board/{story}.py", *map(str, words)],
            coupled=coupled,
            chance=None if seed is None else random.Random(seed),
            output=self._print,
            saved=saved,
            look=self._assert_left_whole,
        )
        self.status = self.life.live(LONGEST_SECONDS, most_boots)
        self.console = (folder / "console").read_text(errors="replace").splitlines()
        self.said = self._journal()

    def _print(self, number: int, data: bytes) -> None:
        if number == 1:
            self.printed += data.decode()

    def _journal(self) -> list[Said]:
        boots: list[str] = []
        said = []
        for entry in map(json.loads, journal(self.disk, self._folder).splitlines()):
            if entry["_BOOT_ID"] not in boots:
                boots.append(entry["_BOOT_ID"])
            seconds = int(entry["__MONOTONIC_TIMESTAMP"]) / 1e6
            said.append(Said(len(boots), seconds, *source_and_text(entry)))
        return said

    def of_the_daemon(self, boot: int) -> list[str]:
        return [one.text for one in self.said if (one.boot, one.source) == (boot, "kelvo-pwr")]

    def when(self, text: str, boot: int = 1) -> float:
        """When this was said in a boot; it must have been once."""
        (one,) = (one for one in self.said if (one.boot, one.text) == (boot, text))
        return one.seconds

    def levels(self, kind: str, boot: int = 1) -> list[tuple[float, int]]:
        """What a line's level became: seconds in that boot and levels, the same ones included."""
        return [
            (happening.time / 1e9, int(happening.text))
            for happening in self.life.happenings
            if (happening.boot, happening.kind) == (boot, kind)
        ]

    def when_outside(self, change: str) -> float:
        """When this change was made outside, in seconds of its boot."""
        (one,) = (h for h in self.life.happenings if (h.kind, h.text) == ("outside", change))
        return one.time / 1e9

    def ends(self) -> list[str]:
        return [happening.text for happening in self.life.happenings if happening.kind == "end"]

    def after_unmounting(self) -> list[str]:
        """What was told on the console when all was unmounted or read-only, in all boots."""
        told = (re.search(r"kelvo-pwr: (.*)", line) for line in self.console)
        return [match[1].rstrip() for match in told if match]

    def file(self, path: str) -> str:
        return text_of(self.disk.image, path)

    def state_files(self) -> list[str]:
        return names_in(self.disk.image, STATE)

    def _assert_left_whole(self, image: Path) -> None:
        """By a power cut: its journal replayed, there is nothing to mend before the next boot."""
        with tempfile.TemporaryDirectory(dir=self._folder) as folder:
            _assert_file_system_whole(copy_disk(image, Path(folder)).image)

    def assert_file_system_whole(self) -> None:
        _assert_file_system_whole(self.disk.image)


def _assert_file_system_whole(image: Path) -> None:
    """Replays its journal."""
    replay = ["e2fsck", "-p", "-E", "journal_only", image]
    subprocess.run(replay, check=True, stdout=subprocess.DEVNULL)
    looked = subprocess.run(["e2fsck", "-fn", image], capture_output=True, text=True)
    assert looked.returncode == 0, looked.stdout


def guarded(product: Product, disk: Path) -> Path:
    """A machine with the package and the stories, booted, its daemon a full server; kept."""
    disk = installed(product, disk, package_of("kelvo-pwr"))
    with tempfile.TemporaryDirectory() as unpacked:
        extract = ["dpkg-deb", "--extract", package_of("kelvo-pwr-monitor"), unpacked]
        subprocess.run(extract, check=True)
        monitor = Path(unpacked) / "usr/sbin/kelvo-pwr-monitor"
        return booted(product, disk, [*sorted(STORIES.glob("*.py")), monitor])


def booted(product: Product, disk: Path, own: list[Path]) -> Path:
    """With these files in /board."""

    def make(work: Path) -> Path:
        copy = copy_disk(disk, work)
        add_own(copy.image, own)
        put(copy.image, {CONFIGURATION: SETTINGS})
        saved = work / "saved"
        saved.mkdir()
        life = Life(product, work, copy, ["python3", "-PB", "/board/boot.py"])
        life.save(saved, LONGEST_SECONDS)
        return saved

    # What is on the machine, and what has saved it.
    library = [*(BOARD / "guest").rglob("*"), *(BOARD / "machine").rglob("*")]
    files = sorted(path for path in library if path.is_file() and path.suffix != ".pyc")
    version = subprocess.check_output([command_of(product.architecture)[0], "--version"])
    contents = [path.read_bytes() for path in [*files, *own]]
    parts = [disk.name.encode(), version, SETTINGS.encode(), *contents]
    return kept(f"guarded-machine-{hashlib.sha256(b''.join(parts)).hexdigest()[:16]}", make)


def package_of(name: str) -> Path:
    architecture, _ = os.environ["MACHINE"].split("-")
    (found,) = Path(os.environ["PACKAGE_FOLDER"]).glob(f"{name}_*_{architecture}.deb")
    return found
