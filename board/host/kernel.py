"""Builds the board's kernel from Debian's source package and keeps the result."""

import hashlib
import os
import re
import shutil
import signal
import subprocess
import time
from collections import deque
from pathlib import Path
from typing import Iterable

from host.cache import kept, say
from host.problems import BoardFailure, Unavailable

_INGREDIENTS = Path(__file__).parent.parent / "kernel"
_NOT_COMPILED = _INGREDIENTS / "not-compiled"
_REGISTER_STATE = _INGREDIENTS / "register-state.patch"
_TOOLS = ("gcc", "make", "flex", "bison", "bc", "xz", "patch")
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
    package = _package()
    return kept(f"kernel-{_key(package)}", lambda work: _build(package, work))


def bytes_for_registers() -> int:
    """How many bytes of a processor's register state the kernel can keep for a process."""
    return int(re.search(r"^\+.*HOST_FP_SIZE, (\d+)", _REGISTER_STATE.read_text(), re.MULTILINE)[1])


def _package() -> str:
    """The package with the source of this Debian's kernel, such as linux-source-6.1."""
    package = _installed("linux-source", "Depends").split(" ")[0]
    if not _tarball(package).exists():
        raise Unavailable(f"the package {package} is not installed")
    return package


def _tarball(package: str) -> Path:
    return Path("/usr/src") / f"{package}.tar.xz"


def _version(package: str) -> str:
    return package.removeprefix("linux-source-")


def _configuration(package: str) -> str:
    """The options that are asked for, those that only this version has among them."""
    files = (_INGREDIENTS / "board.config", _INGREDIENTS / _version(package) / "board.config")
    return "".join(file.read_text() for file in files if file.exists())


def _key(package: str) -> str:
    """Names everything that the kernel is made of, this recipe included."""
    ingredients = [_installed(package, "Version").encode(), _configuration(package).encode()]
    files = (_NOT_COMPILED, *_patches(package), Path(__file__))
    ingredients += (file.read_bytes() for file in files)
    digests = b"".join(hashlib.sha256(ingredient).digest() for ingredient in ingredients)
    return hashlib.sha256(digests).hexdigest()[:16]


def _installed(package: str, field: str) -> str:
    """What an installed package says of itself."""
    query = ["dpkg-query", "--show", f"--showformat=${{{field}}}", package]
    try:
        answer = subprocess.run(query, capture_output=True, text=True)
    except FileNotFoundError:
        raise Unavailable("dpkg-query is missing: the board is made for Debian") from None
    if answer.returncode != 0 or not answer.stdout:
        raise Unavailable(f"the package {package} is not installed")
    return answer.stdout


def _build(package: str, work: Path) -> Path:
    """Builds in the folder `work`; returns the kernel, which is in there."""
    if missing := [tool for tool in _TOOLS if not shutil.which(tool)]:
        raise Unavailable(f"building the kernel needs {', '.join(missing)}")
    source, out, log = work / package, work / "out", work / "log"
    out.mkdir()
    asked_for = work / "asked-for.config"
    asked_for.write_text(_configuration(package))

    say(f"unpacking {package}")
    unpack = ["tar", "--extract", "--file", _tarball(package), "--directory", work, "--wildcards"]
    _run([*unpack, f"--exclude-from={_NOT_COMPILED}"], log)
    _change(source, _patches(package), log)
    make = ["make", "-C", source, "ARCH=um", f"O={out}"]
    _run([*make, f"KCONFIG_ALLCONFIG={asked_for}", "allnoconfig"], log)
    _check_options(asked_for, out / ".config")
    _run([*make, f"-j{len(os.sched_getaffinity(0))}", "linux"], log)

    return out / "linux"


def _patches(package: str) -> list[Path]:
    """Those for every version and those that only this one needs."""
    folders = (_INGREDIENTS, _INGREDIENTS / _version(package))
    return [patch for folder in folders for patch in sorted(folder.glob("*.patch"))]


def _change(source: Path, patches: Iterable[Path], log: Path) -> None:
    """Applies the patches; a source that one does not fit exactly ends the build."""
    for patch in patches:
        command = ["patch", "--force", "--fuzz=0", "--strip=1", f"--directory={source}"]
        _run([*command, f"--input={patch}"], log)


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


def _check_options(asked_for: Path, configuration: Path) -> None:
    """An option whose own needs are not met is dropped without a word; this says which."""
    in_force = set(configuration.read_text().splitlines())
    lines = asked_for.read_text().splitlines()
    dropped = [line for line in lines if line.startswith("CONFIG_") and line not in in_force]
    if dropped:
        raise BoardFailure(f"the kernel has no {', '.join(dropped)}")
