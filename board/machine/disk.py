"""A disk of which a power cut leaves what had been flushed.

The kernel's writes go to an overlay and, by QEMU's blklogwrites, to a log that has their order
and every flush. When the machine ends, the log says what reaches the disk itself.
"""

import random
import struct
import subprocess
from pathlib import Path
from typing import Iterator, NamedTuple, Optional

_SECTOR = 512
# As the kernel's dm-log-writes has them.
_ENTRY = struct.Struct("<QQQQ")
_FLUSH, _FLUSH_BEFORE_AND_AFTER, _DISCARD = 1, 2, 4
# Writes and flushes: more than the file of times takes, from its truncation to its last flush.
_MOST_UNDONE = 12


class _Write(NamedTuple):
    place: int  # in bytes, on the disk
    begin: int  # of the data, in the log
    length: int


class Lost(NamedTuple):
    """What a power cut has taken."""

    undone: int  # writes and flushes that the disk had not come to
    unflushed: int  # writes before these that had not been flushed
    stayed: int  # of them


class Disk:
    def __init__(self, image: Path):
        """A raw image, which changes when the machine has ended."""
        self.image = image
        self._overlay = image.with_suffix(".overlay")
        self._log = image.with_suffix(".log")

    def connect(self) -> list[str]:
        """QEMU's options for a machine that is switched on now."""
        self._log.write_bytes(b"")
        create = ["qemu-img", "create", "-q", "-f", "qcow2", "-F", "raw", "-b", self.image.name]
        subprocess.run([*create, self._overlay], check=True)
        # The files need not outlive a crash of the host; the log has the flushes all the same.
        file = "driver=file,cache.no-flush=on,locking=off"
        return [
            *("-blockdev", f"{file},node-name=overlay-file,filename={self._overlay}"),
            *("-blockdev", "driver=qcow2,node-name=overlay,file=overlay-file"),
            *("-blockdev", f"{file},node-name=log,filename={self._log}"),
            *("-blockdev", "driver=blklogwrites,node-name=disk,file=overlay,log=log"),
            *("-device", "virtio-blk-pci,drive=disk"),
        ]

    def keep_all(self) -> None:
        """The machine has ended with its power on."""
        with self._log.open("rb") as log, self.image.open("r+b") as image:
            for write in _writes(log):
                if write is not None:
                    _copy(log, image, write)

    def keep_flushed(self, chance: Optional[random.Random] = None) -> Lost:
        """Power was cut; of what was never flushed, nothing stays.

        Chance, if there is one, decides what of it stays, and how far the disk had come before: the
        emulated one takes no time, so no moment lies between a write and the flush behind it.
        """
        pending: list[_Write] = []
        with self._log.open("rb") as log, self.image.open("r+b") as image:
            writes = list(_writes(log))
            undone = chance.randint(0, min(_MOST_UNDONE, len(writes))) if chance else 0
            for write in writes[: len(writes) - undone]:
                if write is not None:
                    pending.append(write)
                    continue
                for flushed in pending:
                    _copy(log, image, flushed)
                pending = []
            stayed = [write for write in pending if chance and chance.random() < 0.5]
            if chance:
                chance.shuffle(stayed)
            for write in stayed:
                _copy(log, image, write)
        return Lost(undone, len(pending), len(stayed))


def _writes(log) -> Iterator[Optional[_Write]]:
    """In their order; None is a flush of all before it."""
    size = log.seek(0, 2)
    place = _SECTOR
    while place + _SECTOR <= size:
        log.seek(place)
        sector, count, flags, _ = _ENTRY.unpack(log.read(_ENTRY.size))
        place += _SECTOR
        length = 0 if flags & _DISCARD else count * _SECTOR
        # The last one may not be whole.
        if not (count or flags) or place + length > size:
            return
        if flags & (_FLUSH | _FLUSH_BEFORE_AND_AFTER):
            yield None
        if length:
            yield _Write(sector * _SECTOR, place, length)
        if flags & _FLUSH_BEFORE_AND_AFTER:
            yield None
        place += length


def _copy(log, image, write: _Write) -> None:
    log.seek(write.begin)
    image.seek(write.place)
    image.write(log.read(write.length))
