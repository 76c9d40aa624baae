"""What the small build consists of, by the linker's map of it."""

import re
from collections import Counter

_LIBRARIES = {
    "libc": "C library",
    "libstdc++": "C++ library",
    "libgpiodcxx": "libgpiodcxx, libgpiod",
    "libgpiod": "libgpiodcxx, libgpiod",
    "libgcc": "libgcc: unwinding of exceptions",
    "libgcc_eh": "libgcc: unwinding of exceptions",
}
_PROGRAM = "the program, with Boost's templates"
_REST = "tables of the linker, padding"
# A long name has a line of its own.
_NAME_ALONE = re.compile(r"^( ?\.\S+)\n +0x", re.MULTILINE)
_OF_INPUT = re.compile(
    r" \S*\s+0x(?P<address>[0-9a-f]+)\s+0x(?P<size>[0-9a-f]+) "
    r"(?:\S*/)?(?P<file>\S+)\.(?P<kind>o|a\(\S+\))"
)
_NOT_IN_FILE = (".bss", ".tbss")


def bytes_by_part(linker_map: str, file_bytes: int) -> dict[str, int]:
    """Bytes of the stripped file by part."""
    found: Counter[str] = Counter()
    section = ""
    placed = linker_map.partition("\nLinker script and memory map\n")[2]
    for line in _NAME_ALONE.sub(r"\1 0x", placed).splitlines():
        if line.startswith("."):
            section = line.split()[0]
        entry = _OF_INPUT.fullmatch(line)
        # What has no address is not loaded: a strip takes it.
        if entry and int(entry["address"], 16) > 0 and section not in _NOT_IN_FILE:
            found[_part(entry["file"], entry["kind"])] += int(entry["size"], 16)
    del found[_REST]
    return {**dict(found.most_common()), _REST: file_bytes - sum(found.values())}


def _part(file: str, kind: str) -> str:
    if kind != "o":
        return _LIBRARIES.get(file, file)
    return _PROGRAM if file.endswith((".ltrans", ".cpp")) else _REST
