"""Plants breaks in a copy of the program and looks for the first random life that shows each.

A break is a patch; the line before it says what it is. The same life must agree with the
program as it is. Ends with status 1 when no life shows one of them, 77 when this host cannot play
lives.
"""

import argparse
import os
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path
from typing import Optional

from on_host import CannotRun, Host

_HERE = Path(__file__).resolve().parent
sys.path += [str(_HERE.parent / "mutation"), str(_HERE.parent / "docs")]

from checkout import copy_checkout  # noqa: E402
from kept import keep  # noqa: E402


class Copy:
    """The checkout with a build of its own."""

    def __init__(self, folder: Path):
        self._folder = folder
        copy_checkout(folder)
        self._run("cmake", "--preset", "release")
        self.whole = folder / "unbroken"
        shutil.copy(self._built(), self.whole)

    def broken(self, patch: Path) -> Path:
        """The program with the break, until the next one is built."""
        with patch.open() as text:
            self._run("patch", "--strip=1", "--silent", stdin=text)
        try:
            return self._built()
        finally:
            with patch.open() as text:
                self._run("patch", "--strip=1", "--silent", "--reverse", stdin=text)

    def _built(self) -> Path:
        self._run("cmake", "--build", "--preset", "release", "--target", "kelvo-pwr")
        return self._folder / "build" / "release" / "kelvo-pwr"

    def _run(self, *words: str, stdin=None) -> None:
        subprocess.run(words, cwd=self._folder, stdin=stdin, stdout=subprocess.DEVNULL, check=True)


def first_that_shows(host: Host, program: Path, until: int) -> Optional[dict]:
    """The report of that life."""
    os.environ["KELVO_PWR"] = str(program)
    return next((report for report in host.seeds(1, until) if report["detail"]), None)


def row_of(host: Host, copy: Copy, patch: Path, until: int) -> list[str]:
    title = patch.read_text().split("\n", 1)[0]
    shown = first_that_shows(host, copy.broken(patch), until)
    if shown is None:
        return [title, f"none up to {until}", ""]
    os.environ["KELVO_PWR"] = str(copy.whole)
    (without,) = host.seeds(shown["seed"], 1)
    if without["detail"]:
        sys.exit(f"life {shown['seed']} goes wrong without a break: {without['detail']}")
    return [title, str(shown["seed"]), shown["detail"].split("\n", 1)[0]]


def main() -> int:
    parser = argparse.ArgumentParser(prog="plant", description=__doc__.split("\n", 1)[0])
    parser.add_argument("--until", type=int, default=2000, metavar="SEED", help="the last life")
    parser.add_argument("--keep", action="store_true", help="write the results into the page")
    parser.add_argument("--work", type=Path, metavar="FOLDER", help="keep the copy and its build")
    parser.add_argument("patches", nargs="*", type=Path, help="default: all in tests/lives/breaks")
    words = parser.parse_args()
    patches = words.patches or sorted((_HERE / "breaks").glob("*.patch"))
    rows = []
    try:
        host = Host(on_board=False)
        with tempfile.TemporaryDirectory(prefix="plant-") as folder:
            copy = Copy(words.work.absolute() if words.work else Path(folder))
            for patch in patches:
                rows.append(row_of(host, copy, patch.absolute(), words.until))
                print(" | ".join(rows[-1]), flush=True)
    except CannotRun as reason:
        print(reason, file=sys.stderr)
        return 77
    if words.keep:
        rows.sort(key=lambda row: int(row[1]) if row[1].isdigit() else words.until + 1)
        keep("breaks", {
            "text": "On {date}, with src at {src}, of the lives up to {until}:",
            "values": {"until": words.until},
            "columns": ["Break", "Shown by life", "What differs there"],
            "rows": rows,
        })
    return 0 if all(row[1].isdigit() for row in rows) else 1


if __name__ == "__main__":
    sys.exit(main())
