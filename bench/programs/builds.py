"""The programs to be measured, built now from this checkout."""

import os
import re
import shutil
import subprocess
from pathlib import Path
from typing import Optional, Sequence

from host.problems import Unavailable
from programs.names import BARE, BARE_STATIC, DEFAULT, EMPTY, MONITOR, NUT, SMALL, TRUE

_ROOT = Path(__file__).resolve().parent.parent.parent
_RELEASE, _SMALL = _ROOT / "build" / "release", _ROOT / "build" / "small"
_COMPARED = {BARE: "bare_loop", BARE_STATIC: "bare_loop_static", EMPTY: "empty_program"}
_NEEDED = ("gnuplot", "gpioget", "strace", "valgrind")

STAND_IN = _RELEASE / "tests" / "host" / "libstand_in.so"
SEGMENT_TOOL = _RELEASE / "tests" / "board" / "segment_tool"


def build() -> dict[str, str]:
    """The paths of all programs; NUT's is empty where it has not been fetched."""
    targets = ["kelvo-pwr", "kelvo-pwr-monitor", "segment_tool", "stand_in", *_COMPARED.values()]
    _cmake("release", targets, ["-DKELVO_BENCH=ON", "-DKELVO_MONITOR=ON", "-DBUILD_TESTING=ON"])
    _cmake("small", ["kelvo-pwr"])
    if missing := [tool for tool in _NEEDED if shutil.which(tool) is None]:
        raise Unavailable(f"no {', '.join(missing)}; bench/run --with-peers installs them")
    paths = {DEFAULT: f"{_RELEASE}/kelvo-pwr", SMALL: f"{_SMALL}/kelvo-pwr", TRUE: "/bin/true"}
    paths |= {name: f"{_RELEASE}/bench/programs/{file}" for name, file in _COMPARED.items()}
    for program in (BARE, EMPTY):
        if _libraries(paths[program]) != _libraries(paths[DEFAULT]):
            raise RuntimeError(f"{program} does not have the libraries of {DEFAULT}")
    paths[MONITOR] = f"{_RELEASE}/contrib/monitor/kelvo-pwr-monitor"
    tools = subprocess.run([_ROOT / "tests/contrib/tools"], stdout=subprocess.PIPE, text=True)
    return {**paths, NUT: tools.stdout.strip()}


def stripped_bytes(program: str, folder: Path) -> int:
    copy = folder / "stripped"
    subprocess.run(["strip", "-o", copy, program], check=True)
    return copy.stat().st_size


def linker_map_of_small_build() -> str:
    return (_SMALL / "kelvo-pwr.map").read_text()


def build_otherwise(name: str, settings: Sequence[str]) -> str:
    """The path of the default build with these settings of CMake."""
    folder = _ROOT / "build" / "trials" / re.sub(r"\W+", "-", name)
    _cmake("release", ["kelvo-pwr"], ["-DBUILD_TESTING=OFF", *settings], folder)
    return f"{folder}/kelvo-pwr"


def _cmake(
    preset: str, targets: Sequence[str], settings: Sequence[str] = (), folder: Optional[Path] = None
) -> None:
    folder = folder or _ROOT / "build" / preset
    quiet = {"stdout": subprocess.DEVNULL, "cwd": _ROOT, "check": True}
    subprocess.run(["cmake", "--preset", preset, "-B", folder, *settings], **quiet)
    jobs = str(len(os.sched_getaffinity(0)))
    build = ["cmake", "--build", folder, "--parallel", jobs, "--target", *targets]
    subprocess.run(build, **quiet)


def _libraries(program: str) -> set[str]:
    listing = subprocess.check_output(["ldd", program], text=True)
    return set(re.findall(r"=> (\S+)", listing))
