"""What other flags would give, and what the small build consists of."""

import tempfile
from pathlib import Path

from builds import build_otherwise, linker_map_of_small_build, stripped_kilobytes
from on_board import on_board
from parts import parts
from programs import BARE, DEFAULT, SMALL
from table import Rows

_LONGEST_SECONDS = 300

_COLLECTED = "-ffunction-sections -fdata-sections"
_COLLECT = "-Wl,--gc-sections"
_ACROSS_FILES = "-DCMAKE_INTERPROCEDURAL_OPTIMIZATION=ON"
_FOR_SIZE = "-DCMAKE_BUILD_TYPE=MinSizeRel"
_PACK = "-Wl,-z,pack-relative-relocs -Wl,-z,noseparate-code"
_STATIC_BOOST = "-DBoost_USE_STATIC_LIBS=ON"


def _collecting(more: str = "") -> list[str]:
    return [
        f"-DCMAKE_CXX_FLAGS={_COLLECTED}",
        f"-DCMAKE_EXE_LINKER_FLAGS={_COLLECT} {more}".rstrip(),
    ]


# By the folder of the build: its name in the table, and its settings.
_TRIALS = {
    "collected": ("sections collected", _collecting()),
    "across-files": (
        "sections collected, optimised across files",
        [*_collecting(), _ACROSS_FILES],
    ),
    "size": ("optimised for size, sections collected", [*_collecting(), _FOR_SIZE]),
    "size-across-files": (
        "the same, across files, relocations packed, segments not separated",
        [*_collecting(_PACK), _FOR_SIZE, _ACROSS_FILES],
    ),
    "static-boost": ("libboost_program_options linked statically", [_STATIC_BOOST]),
    "static-boost-collected": ("the same, sections collected", [*_collecting(), _STATIC_BOOST]),
}


def trials(paths: dict[str, str]) -> dict[str, Rows]:
    """A table of each, by the name that it is kept under."""
    daemons = {"as it is": paths[DEFAULT]}
    for folder, (name, settings) in _TRIALS.items():
        daemons[name] = build_otherwise(folder, settings)
    task = {"daemons": daemons, "bare": {BARE: paths[BARE]}}
    alone = on_board("alone.py", task, _LONGEST_SECONDS, realtime=False)
    return {"cost_trials": _of_memory(alone), "cost_parts": _of_parts(paths[SMALL])}


def _of_memory(alone: dict[str, int]) -> Rows:
    header = ["Build", "Memory, kB", f"Times that of the {BARE}"]
    return [
        header,
        *(
            [name, f"{kilobytes:,}", f"{kilobytes / alone[BARE]:.2f}"]
            for name, kilobytes in alone.items()
        ),
    ]


def _of_parts(program: str) -> Rows:
    with tempfile.TemporaryDirectory() as folder:
        kilobytes = stripped_kilobytes(program, Path(folder))
    found = parts(linker_map_of_small_build(), round(kilobytes * 1000))
    rows = [[name, f"{size / 1000:,.0f}"] for name, size in found.items()]
    return [["Part", "kB"], *rows, ["together", f"{kilobytes:,.0f}"]]
