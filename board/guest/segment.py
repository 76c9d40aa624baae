"""The two shared records, read and written in place as any process of the owner can."""

import os
import struct
from pathlib import Path

from guest.process import Program, run
from guest.seen import FIELDS

SEGMENT = Path("/dev/shm/kelvo-pwr-shm")

_STATUS, _REQUEST = struct.Struct("=IBBBB"), struct.Struct("=BBH")
_MARKS = (0x5A17C0DE, 0xD1, 0xD2, 0xD3, 0xD4, 0xE1, 0xE2, 0xE3E4)


class Records:
    """A status client takes far longer to start than to look, so most looks are direct.

    Where the library has put the records is found once, by marks that segment_tool
    writes through the program's own code; each daemon makes the same segment anew. `status`
    and `request` are these places. Needs a wired board and no daemon.
    """

    def __init__(self):
        with Program([os.environ["KELVO_PWR"]]) as daemon:
            daemon.wait_for_line("Minimal server", within=1)
            words = [f"{name}={mark}" for name, mark in zip(FIELDS, _MARKS)]
            assert run([os.environ["SEGMENT_TOOL"], "set", *words]).status == 0
            content = SEGMENT.read_bytes()
        self.status = self._only(content, _STATUS.pack(*_MARKS[:5]))
        self.request = self._only(content, _REQUEST.pack(*_MARKS[5:]))

    def fields(self):
        """All eight by name, or None without a segment."""
        if not SEGMENT.exists():
            return None
        content = SEGMENT.read_bytes()
        status = _STATUS.unpack_from(content, self.status)
        request = _REQUEST.unpack_from(content, self.request)
        return dict(zip(FIELDS, status + request))

    def set(self, fields: dict) -> None:
        """Each field alone, since the daemon writes its own beside it."""
        with SEGMENT.open("r+b", buffering=0) as segment:
            for name, value in fields.items():
                segment.seek(self._place(name))
                segment.write(struct.pack("=" + FIELDS[name], value))

    def _place(self, name: str) -> int:
        names = list(FIELDS)
        first, begin = (names[5:], self.request) if name in names[5:] else (names, self.status)
        before = "".join(FIELDS[other] for other in first[: first.index(name)])
        return begin + struct.calcsize("=" + before)

    @staticmethod
    def _only(content: bytes, marks: bytes) -> int:
        assert content.count(marks) == 1
        return content.index(marks)
