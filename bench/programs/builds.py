"""The programs to be measured, built now from this checkout."""

import os
import re
import shutil
import subprocess
from importlib.util import find_spec
from pathlib import Path
from tempfile import TemporaryDirectory
from typing import Iterator, Sequence

from host.problems import Unavailable
from places import ROOT
from programs.names import BARE, BARE_STATIC, DEFAULT, EMPTY, MONITOR, MQTT, SMALL, TRUE

_RELEASE, _SMALL = ROOT / "build/release", ROOT / "build/small"
_TOOLS, _MODULES = ("gnuplot", "gpioget", "strace", "valgrind"), ("psutil", "tabulate")

PATHS = {
    DEFAULT: f"{_RELEASE}/kelvo-pwr",
    MONITOR: f"{_RELEASE}/contrib/monitor/kelvo-pwr-monitor",
    MQTT: f"{_RELEASE}/contrib/mqtt/kelvo-pwr-mqtt",
    SMALL: f"{_SMALL}/kelvo-pwr",
    BARE: f"{_RELEASE}/bench/programs/bare_loop",
    BARE_STATIC: f"{_SMALL}/bench/programs/bare_loop",
    EMPTY: f"{_RELEASE}/bench/programs/empty_program",
    TRUE: "/bin/true",
}
STAND_IN = _RELEASE / "tests/host/libstand_in.so"
SEGMENT_TOOL = _RELEASE / "tests/board/segment_tool"
SMALL_MAP = _SMALL / "kelvo-pwr.map"

_LINKED = "-DCMAKE_EXE_LINKER_FLAGS=-Wl,--gc-sections"
_COLLECTED = ["-DCMAKE_CXX_FLAGS=-ffunction-sections -fdata-sections", _LINKED]
_PACKED = f"{_LINKED} -Wl,-z,pack-relative-relocs,-z,noseparate-code"
_ACROSS_FILES = "-DCMAKE_INTERPROCEDURAL_OPTIMIZATION=ON"
_FOR_SIZE = [*_COLLECTED, "-DCMAKE_BUILD_TYPE=MinSizeRel"]
_PACKED_WORDS = "the same, across files, relocations packed, segments not separated"
_STATIC_BOOST = "-DBoost_USE_STATIC_LIBS=ON"
_TRIALS = {
    "sections collected": _COLLECTED,
    "sections collected, optimised across files": [*_COLLECTED, _ACROSS_FILES],
    "optimised for size, sections collected": _FOR_SIZE,
    _PACKED_WORDS: [*_FOR_SIZE, _ACROSS_FILES, _PACKED],
    "libboost_program_options linked statically": [_STATIC_BOOST],
    "the same, sections collected": [*_COLLECTED, _STATIC_BOOST],
}


def build() -> None:
    """All of PATHS. From then on CONTRIB_TOOLS says where Network UPS Tools and a broker are."""
    tools = subprocess.run([ROOT / "tests/contrib/tools"], stdout=subprocess.PIPE, text=True)
    missing = [tool for tool in _TOOLS if not shutil.which(tool)]
    missing += [module for module in _MODULES if not find_spec(module)]
    if missing or tools.returncode != 0:
        named = ", ".join(missing or ["Network UPS Tools"])
        raise Unavailable(f"no {named}; bench/run --with-peers installs what is missing")
    os.environ["CONTRIB_TOOLS"] = tools.stdout.strip()
    targets = ["kelvo-pwr", MONITOR, MQTT, "segment_tool", "stand_in"]
    settings = ["-DKELVO_BENCH=ON", "-DKELVO_MONITOR=ON", "-DKELVO_MQTT=ON", "-DBUILD_TESTING=ON"]
    _cmake("release", _RELEASE, [*targets, "bare_loop", "empty_program"], settings)
    _cmake("small", _SMALL, ["kelvo-pwr", "bare_loop"], ["-DKELVO_BENCH=ON"])
    for program in (BARE, EMPTY):
        if _libraries(PATHS[program]) != _libraries(PATHS[DEFAULT]):
            raise RuntimeError(f"{program} does not have the libraries of {DEFAULT}")


def build_otherwise() -> Iterator[tuple[str, str]]:
    """The default build with other flags: what differs, and its path."""
    for name, settings in _TRIALS.items():
        folder = ROOT / "build/trials" / re.sub(r"\W+", "-", name)
        _cmake("release", folder, ["kelvo-pwr"], ["-DBUILD_TESTING=OFF", *settings])
        yield name, f"{folder}/kelvo-pwr"


def stripped_bytes(program: str) -> int:
    with TemporaryDirectory() as folder:
        copy = Path(folder, "stripped")
        subprocess.run(["strip", "-o", copy, program], check=True)
        return copy.stat().st_size


def _cmake(preset: str, folder: Path, targets: Sequence[str], settings: Sequence[str]) -> None:
    quiet = {"stdout": subprocess.DEVNULL, "cwd": ROOT, "check": True}
    subprocess.run(["cmake", "--preset", preset, "-B", folder, *settings], **quiet)
    subprocess.run(["cmake", "--build", folder, "--target", *targets], **quiet)


def _libraries(program: str) -> set[str]:
    listing = subprocess.check_output(["ldd", program], text=True)
    return set(re.findall(r"=> (\S+)", listing))
