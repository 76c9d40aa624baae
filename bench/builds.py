"""The programs to be measured, built now from this checkout."""

import os
import re
import shutil
import subprocess
from pathlib import Path
from typing import Optional, Sequence

from problems import CannotMeasure
from programs import BARE, BARE_STATIC, DEFAULT, EMPTY, NUT, SMALL, TRUE

_ROOT = Path(__file__).parent.parent
_RELEASE, _SMALL = _ROOT / "build" / "release", _ROOT / "build" / "small"
_TOOLS = _ROOT / "tests" / "contrib" / "tools"

_NEEDED = ("gpioget", "strace", "valgrind")
_COMPARED = ("bare_loop", "bare_loop_static", "empty_program")

STAND_IN = _RELEASE / "tests" / "host" / "libstand_in.so"
SEGMENT_TOOL = _RELEASE / "tests" / "board" / "segment_tool"


def build() -> dict[str, str]:
    """The paths of all programs; NUT's is empty where it has not been fetched."""
    targets = ["kelvo-pwr", "segment_tool", "stand_in", *_COMPARED]
    _cmake("release", targets, ["-DKELVO_BENCH=ON", "-DBUILD_TESTING=ON"])
    _cmake("small", ["kelvo-pwr"])
    if missing := [tool for tool in _NEEDED if shutil.which(tool) is None]:
        raise CannotMeasure(f"no {', '.join(missing)}; bench/run --with-peers installs them")
    paths = {
        DEFAULT: _RELEASE / "kelvo-pwr",
        SMALL: _SMALL / "kelvo-pwr",
        BARE: _RELEASE / "bench" / "bare_loop",
        BARE_STATIC: _RELEASE / "bench" / "bare_loop_static",
        EMPTY: _RELEASE / "bench" / "empty_program",
        TRUE: Path("/bin/true"),
    }
    libraries = _libraries(paths[DEFAULT])
    for program in (BARE, EMPTY):
        if _libraries(paths[program]) != libraries:
            raise RuntimeError(f"{program} does not have the libraries of {DEFAULT}")
    tools = subprocess.run([_TOOLS], stdout=subprocess.PIPE, text=True)
    return {**{name: str(path) for name, path in paths.items()}, NUT: tools.stdout.strip()}


def stripped_kilobytes(program: str, folder: Path) -> float:
    copy = folder / "stripped"
    subprocess.run(["strip", "-o", copy, program], check=True)
    return copy.stat().st_size / 1000


def linker_map_of_small_build() -> str:
    file = _SMALL / "kelvo-pwr.map"
    if not file.exists():
        _cmake("small", ["kelvo-pwr"], [f"-DCMAKE_CXX_STANDARD_LIBRARIES=-Wl,-Map={file}"])
    return file.read_text()


def build_otherwise(name: str, settings: Sequence[str]) -> str:
    """The path of the default build with these settings of CMake."""
    folder = _ROOT / "build" / "trials" / name
    _cmake("release", ["kelvo-pwr"], ["-DBUILD_TESTING=OFF", *settings], folder)
    return str(folder / "kelvo-pwr")


def _cmake(
    preset: str,
    targets: Sequence[str],
    settings: Sequence[str] = (),
    folder: Optional[Path] = None,
) -> None:
    folder = folder or _ROOT / "build" / preset
    quiet = {"stdout": subprocess.DEVNULL, "cwd": _ROOT, "check": True}
    subprocess.run(["cmake", "--preset", preset, "-B", folder, *settings], **quiet)
    jobs = str(len(os.sched_getaffinity(0)))
    build = ["cmake", "--build", folder, "--parallel", jobs]
    subprocess.run([*build, "--target", *targets], **quiet)


def _libraries(program: Path) -> set[str]:
    listing = subprocess.run(["ldd", program], stdout=subprocess.PIPE, text=True, check=True)
    return set(re.findall(r"=> (\S+)", listing.stdout))
