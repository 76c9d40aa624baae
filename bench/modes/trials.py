"""What other flags would give, and what the small build consists of."""

import tempfile
from pathlib import Path

from part import on_board
from programs.builds import build_otherwise, linker_map_of_small_build, stripped_bytes
from programs.linker_map import bytes_by_part
from programs.names import BARE, DEFAULT, SMALL
from report.tables import Rows

_LONGEST_SECONDS = 300

_COLLECT = [
    "-DCMAKE_CXX_FLAGS=-ffunction-sections -fdata-sections",
    "-DCMAKE_EXE_LINKER_FLAGS=-Wl,--gc-sections",
]
_PACK = "-DCMAKE_EXE_LINKER_FLAGS=-Wl,--gc-sections -Wl,-z,pack-relative-relocs,-z,noseparate-code"
_ACROSS_FILES = "-DCMAKE_INTERPROCEDURAL_OPTIMIZATION=ON"
_FOR_SIZE = "-DCMAKE_BUILD_TYPE=MinSizeRel"
_STATIC_BOOST = "-DBoost_USE_STATIC_LIBS=ON"

_TRIALS = {
    "sections collected": _COLLECT,
    "sections collected, optimised across files": [*_COLLECT, _ACROSS_FILES],
    "optimised for size, sections collected": [*_COLLECT, _FOR_SIZE],
    "the same, across files, relocations packed, segments not separated": [
        *_COLLECT,
        _PACK,
        _FOR_SIZE,
        _ACROSS_FILES,
    ],
    "libboost_program_options linked statically": [_STATIC_BOOST],
    "the same, sections collected": [*_COLLECT, _STATIC_BOOST],
}


def trials(paths: dict) -> dict[str, Rows]:
    """A table of each, by the name that it is kept under."""
    daemons = {"as it is": paths[DEFAULT]}
    for name, settings in _TRIALS.items():
        daemons[name] = build_otherwise(name, settings)
    memory = {BARE: _memory_alone(BARE, paths)}
    for name, path in daemons.items():
        memory[name] = _memory_alone(DEFAULT, {**paths, DEFAULT: path})
    of_memory = [[name, f"{kb:,}", f"{kb / memory[BARE]:.2f}"] for name, kb in memory.items()]
    with tempfile.TemporaryDirectory() as folder:
        size = stripped_bytes(paths[SMALL], Path(folder))
    parts = {**bytes_by_part(linker_map_of_small_build(), size), "together": size}
    of_parts = [[name, f"{part / 1000:,.0f}"] for name, part in parts.items()]
    return {
        "cost_trials": [["Build", "Memory, kB", f"Times that of the {BARE}"], *of_memory],
        "cost_parts": [["Part", "kB"], *of_parts],
    }


def _memory_alone(program: str, paths: dict) -> int:
    idle = {"paths": paths, "programs": [program], "rounds": 1, "window": 1}
    (found,) = on_board("idle.rounds", _LONGEST_SECONDS, realtime=False, **idle)
    return found["memory"][program]
