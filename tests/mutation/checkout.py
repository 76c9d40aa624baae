"""A copy of the checkout that can be broken, and what runs in it."""

import json
import os
import shlex
import signal
import subprocess
import tempfile
from contextlib import suppress
from functools import cache
from pathlib import Path
from typing import Optional

ROOT = Path(__file__).resolve().parent.parent.parent


def copy_checkout(folder: Path) -> None:
    listed = ["git", "ls-files", "--cached", "--others", "--exclude-standard", "-z"]
    for name in subprocess.check_output(listed, cwd=ROOT, text=True).split("\0"):
        if name and (ROOT / name).is_file():
            _copy(ROOT / name, folder / name)


def run(words: list, folder: Path, within: float, environment: dict) -> Optional[int]:
    """None when the time was over, as for a break that makes an endless loop.

    Whatever it has started ends with it: the loop may be in a child's child.
    """
    process = subprocess.Popen(
        words, cwd=folder, env={**os.environ, **environment}, start_new_session=True,
        stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
    )
    try:
        return process.wait(timeout=within)
    except subprocess.TimeoutExpired:
        return None
    finally:
        with suppress(ProcessLookupError):
            os.killpg(process.pid, signal.SIGKILL)
        process.wait()


@cache
def compiled_files() -> list[str]:
    """The sources and headers of src that the compiler reads for the program here."""
    names = set()
    with tempfile.TemporaryDirectory() as build:
        configure = ["cmake", "-S", str(ROOT), "-B", build, "-G", "Ninja"]
        configure += ["-DBUILD_TESTING=OFF", "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON"]
        subprocess.run(configure, check=True, stdout=subprocess.DEVNULL)
        for entry in json.loads(Path(build, "compile_commands.json").read_text()):
            words = shlex.split(entry["command"])
            del words[words.index("-o") : words.index("-o") + 2]
            rule = subprocess.check_output([*words, "-MM"], cwd=entry["directory"], text=True)
            names |= {Path(word).resolve() for word in rule.split()[1:] if word != "\\"}
    return sorted(str(name.relative_to(ROOT)) for name in names if ROOT / "src" in name.parents)


def _copy(source: Path, target: Path) -> None:
    """Leaves a target that is the same already as it is, so that it is not built again."""
    if target.exists() and target.read_bytes() == source.read_bytes():
        return
    target.parent.mkdir(parents=True, exist_ok=True)
    target.write_bytes(source.read_bytes())
    target.chmod(source.stat().st_mode)
