"""What hardens an executable, and what it tells of itself, read back from its file."""

import json
import re
import subprocess
from pathlib import Path
from typing import Callable, Optional, Sequence

# A place to which a jump may lead: by the processor's name in the file's header.
_LANDING = {
    "Advanced Micro Devices X86-64": r"endbr64",
    "AArch64": r"(?:paciasp|bti\s+\w+|hint\s+#0x(?:19|22|24|26))",
}
# What each executable has. "buffers checked" comes on top where the compiler does not know the size
# of each buffer, as in the program itself.
EVERY_FILE = {
    "any address",
    "relocations read-only",
    "bound at the start",
    "no code on the stack",
    "stack protector",
    "containers checked",
}
_OPTIONS = {"-fstack-protector-strong", "-fstack-clash-protection"}

Run = Callable[[Sequence[str]], str]


def _here(argv: Sequence[str]) -> str:
    return subprocess.run(argv, capture_output=True, text=True, check=True).stdout


class Executable:
    """A file; `run` gives a command's output where the file is, `prefix` is its binutils' there."""

    def __init__(self, path: Path, run: Run = _here, prefix: str = ""):
        self._path, self._run, self._prefix = str(path), run, prefix
        self._machine = re.search(r"Machine: +(.*)", self._readelf("--file-header"))[1]

    def _readelf(self, *options: str) -> str:
        return self._run(["readelf", "--wide", *options, self._path])

    def hardening(self) -> set[str]:
        """What of the linker's and of the library's part is there."""
        header, segments = self._readelf("--file-header"), self._readelf("--segments")
        dynamic, symbols = self._readelf("--dynamic"), self._readelf("--symbols")
        # As it is named before and in GCC 13 and later.
        asserts = r"\b_ZSt21__glibcxx_assert_fail|\b_ZSt20__replacement_assert"
        found = {
            "any address": "DYN (" in header and re.search(r"FLAGS_1.*\bPIE\b", dynamic),
            "relocations read-only": "GNU_RELRO" in segments,
            "bound at the start": re.search(r"FLAGS\).*\bBIND_NOW\b|FLAGS_1.*\bNOW\b", dynamic),
            "no code on the stack": re.search(r"GNU_STACK .* RW +0x", segments),
            "stack protector": re.search(r"\b__stack_chk_fail\b", symbols),
            "buffers checked": re.search(r"\b__v?f?printf_chk\b", symbols),
            "containers checked": re.search(asserts, symbols),
        }
        return {name for name, is_there in found.items() if is_there}

    def landings(self) -> Optional[int]:
        """How many places it marks for jumps to lead to; None where the processor has no marks."""
        if self._machine not in _LANDING:
            return None
        code = self._run([f"{self._prefix}objdump", "--disassemble", "--no-show-raw-insn", self._path])
        return len(re.findall(rf"^\s+[0-9a-f]+:\s+{_LANDING[self._machine]}\b", code, re.MULTILINE))

    def main_is_landing(self) -> bool:
        """Whether its own code begins so, not only that of libraries; the file has its symbols."""
        words = ["--disassemble=main", "--no-show-raw-insn", self._path]
        code = self._run([f"{self._prefix}objdump", *words])
        begin = rf"<main>:\n\s+[0-9a-f]+:\s+{_LANDING[self._machine]}\b"
        return re.search(begin, code) is not None

    def missing_options(self) -> set[str]:
        """Options that the debug information does not name for each source of the program."""
        information = self._readelf("--debug-dump=info")
        compiled = re.findall(r"DW_AT_producer +: .*(GNU C\+\+17.*)", information)
        assert compiled
        return {option for option in _OPTIONS for line in compiled if option not in line.split()}

    def package_note(self) -> dict:
        (note,) = re.findall(r"Packaging Metadata: (.*)", self._readelf("--notes"))
        return json.loads(note)
