"""Builds the board's kernel from Debian's source package and keeps the result."""

import hashlib
import os
import shutil
import signal
import subprocess
import time
from collections import deque
from pathlib import Path

from host.cache import kept, say
from host.problems import BoardFailure, Unavailable

_PACKAGE = "linux-source-6.1"
_TARBALL = Path("/usr/src") / f"{_PACKAGE}.tar.xz"
_CONFIGURATION = Path(__file__).parent.parent / "kernel" / "board.config"
_NOT_COMPILED = Path(__file__).parent.parent / "kernel" / "not-compiled"
_TOOLS = ("gcc", "make", "flex", "bison", "bc", "xz")
_PROGRESS_EVERY_SECONDS = 5

# With these set the same source gives the same kernel, byte for byte.
_REPRODUCIBLE = {
    "KBUILD_BUILD_TIMESTAMP": "1970-01-01 00:00:00 UTC",
    "KBUILD_BUILD_USER": "board",
    "KBUILD_BUILD_HOST": "board",
    "KBUILD_BUILD_VERSION": "1",
}


def kernel() -> Path:
    """The kernel's path; builds it first unless one from the same ingredients is kept."""
    return kept(f"kernel-{_key()}", _build)


def _key() -> str:
    """Names everything that the kernel is made of, this recipe included."""
    ingredients = [_source_version().encode()]
    ingredients += (path.read_bytes() for path in (_CONFIGURATION, _NOT_COMPILED, Path(__file__)))
    digests = b"".join(hashlib.sha256(ingredient).digest() for ingredient in ingredients)
    return hashlib.sha256(digests).hexdigest()[:16]


def _source_version() -> str:
    query = ["dpkg-query", "--show", "--showformat=${Version}", _PACKAGE]
    try:
        answer = subprocess.run(query, capture_output=True, text=True)
    except FileNotFoundError:
        raise Unavailable("dpkg-query is missing: the board is made for Debian") from None
    if answer.returncode != 0 or not answer.stdout or not _TARBALL.exists():
        raise Unavailable(f"the package {_PACKAGE} is not installed")
    return answer.stdout


def _build(work: Path) -> Path:
    """Builds in the folder `work`; returns the kernel, which is in there."""
    if missing := [tool for tool in _TOOLS if not shutil.which(tool)]:
        raise Unavailable(f"building the kernel needs {', '.join(missing)}")
    (work / "out").mkdir()
    log = work / "log"

    say(f"unpacking {_PACKAGE}")
    unpack = ["tar", "--extract", "--file", _TARBALL, "--directory", work, "--wildcards"]
    _run([*unpack, f"--exclude-from={_NOT_COMPILED}"], log)
    make = ["make", "-C", work / _PACKAGE, "ARCH=um", f"O={work / 'out'}"]
    _run([*make, f"KCONFIG_ALLCONFIG={_CONFIGURATION}", "allnoconfig"], log)
    _check_options(work / "out" / ".config")
    _run([*make, f"-j{len(os.sched_getaffinity(0))}", "linux"], log)

    return work / "out" / "linux"


def _run(command: list, log: Path) -> None:
    """Runs a step of the build, with a word now and then on how far it is."""
    last_lines: deque[str] = deque(maxlen=20)
    compiled, next_word = 0, time.monotonic() + _PROGRESS_EVERY_SECONDS
    with log.open("a") as record, subprocess.Popen(
        command,
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
        start_new_session=True,
        # Messages that are the same everywhere, and no options of a make that called us.
        env={**_without_make(os.environ), **_REPRODUCIBLE, "LC_ALL": "C"},
    ) as process:
        try:
            for line in process.stdout:
                record.write(line)
                last_lines.append(line)
                compiled += line.startswith("  CC ")
                if time.monotonic() >= next_word:
                    say(f"{compiled} files compiled")
                    next_word += _PROGRESS_EVERY_SECONDS
        except BaseException:
            # Nobody may go on compiling in a folder that the next build removes.
            os.killpg(process.pid, signal.SIGTERM)
            raise
    if process.returncode != 0:
        raise BoardFailure(f"{command[0]} failed:\n{''.join(last_lines)}(all of it: {log})")


def _without_make(environment) -> dict[str, str]:
    of_make = ("MAKE", "MFLAGS", "KBUILD_", "KCONFIG_")
    return {name: value for name, value in environment.items() if not name.startswith(of_make)}


def _check_options(configuration: Path) -> None:
    """An option whose own needs are not met is dropped without a word; this says which."""
    asked_for = _CONFIGURATION.read_text().splitlines()
    in_force = set(configuration.read_text().splitlines())
    dropped = [line for line in asked_for if line.startswith("CONFIG_") and line not in in_force]
    if dropped:
        raise BoardFailure(f"the kernel has no {', '.join(dropped)}")
