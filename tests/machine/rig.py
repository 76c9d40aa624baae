"""The lives of a machine on which the package is installed, as they are looked at on the host.

MACHINE is its processor and its Debian, such as arm64-bookworm; PACKAGE_FOLDER has the packages.
"""

import json
import os
import random
import re
import subprocess
from pathlib import Path
from typing import NamedTuple, Optional

import pytest

from host.problems import Unavailable
from machine.files import names_in, put, text_of
from machine.life import Life
from machine.run import add_own, copy_disk, installed, journal, product_of
from way_down import CUT, source_and_text

__all__ = ["CUT", "Lived", "package_of"]

HERE = Path(__file__).parent
CONFIGURATION = "/etc/kelvo/kelvo-pwr.conf"
STATE = "/var/lib/kelvo-pwr"
RESULT_FILE = f"{STATE}/kelvo-pwr.dat"
UNMOUNTED = "All filesystems, swaps, loop devices, MD devices and DM devices detached."

# On the host's clock, for one life on a busy machine.
LONGEST_SECONDS = 900


class Said(NamedTuple):
    boot: int
    seconds: float  # since the boot
    source: Optional[str]
    text: str


class Lived:
    """A life with these settings, over when it is made; in each boot `story` is run.

    `more` goes to /board. With a seed chance decides at a power cut about what was not flushed, which
    is lost without one.
    """

    def __init__(
        self,
        folder,
        story,
        *words,
        settings=(),
        more=(),
        seed=None,
    ):
        try:
            product, disk = product_of(*os.environ["MACHINE"].split("-"), folder)
            disk = installed(product, disk, package_of("kelvo-pwr"))
        except Unavailable as reason:
            pytest.skip(str(reason))
        self._folder, self.disk = folder, copy_disk(disk, folder)
        add_own(self.disk.image, [*(HERE / "stories").glob("*.py"), *more])
        put(self.disk.image, {CONFIGURATION: self._configured(settings)})
        self.printed = ""
        self.life = Life(
            product,
            folder,
            self.disk,
            ["python3", "-PB", f"/board/{story}.py", *map(str, words)],
            chance=None if seed is None else random.Random(seed),
            output=self._print,
        )
        self.status = self.life.live(LONGEST_SECONDS)
        self.console = (folder / "console").read_text(errors="replace").splitlines()
        self.said = self._journal()

    def _configured(self, settings) -> str:
        usual = f"sys.save.path={RESULT_FILE}", "test.battery=true", "test.hour=-1"
        return "".join(f"{line}\n" for line in (*usual, *settings))

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

    def assert_file_system_whole(self) -> None:
        """Its journal replayed, there is nothing to mend."""
        subprocess.run(["e2fsck", "-p", "-E", "journal_only", self.disk.image], check=True)
        looked = subprocess.run(["e2fsck", "-fn", self.disk.image], capture_output=True, text=True)
        assert looked.returncode == 0, looked.stdout


def package_of(name: str) -> Path:
    """The package of that name for the machine."""
    architecture, _ = os.environ["MACHINE"].split("-")
    (found,) = Path(os.environ["PACKAGE_FOLDER"]).glob(f"{name}_*_{architecture}.deb")
    return found
