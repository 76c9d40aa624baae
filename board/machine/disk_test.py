"""What stays on a disk, by logs that are written here as QEMU's blklogwrites does."""

import random
import struct

import pytest

from machine.disk import Disk

SECTOR = 512
FLUSH, FUA, DISCARD = 1, 2, 4


class Log:
    """A disk of eight sectors, "-" in each byte, and what was done to it."""

    def __init__(self, folder):
        self.disk = Disk(folder / "disk")
        self.disk.image.write_bytes(b"-" * 8 * SECTOR)
        self._content = bytes(SECTOR)

    def write(self, sector, letters, flags=0):
        self._entry(sector, len(letters), flags, b"".join(c.encode() * SECTOR for c in letters))

    def flush(self):
        self._entry(0, 0, FLUSH)

    def discard(self, sector, count):
        self._entry(sector, count, DISCARD)

    def _entry(self, sector, count, flags, data=b""):
        header = struct.pack("<QQQQ", sector, count, flags, 0)
        self._content += header.ljust(SECTOR, b"\0") + data

    def save(self, without=0):
        content = self._content[: len(self._content) - without]
        self.disk.image.with_suffix(".log").write_bytes(content)

    def content(self):
        """The first letter of each sector."""
        data = self.disk.image.read_bytes()
        letters = data[::SECTOR].decode()
        assert data == b"".join(letter.encode() * SECTOR for letter in letters)
        return letters


@pytest.fixture
def log(tmp_path):
    log = Log(tmp_path)
    log.write(0, "ab")
    log.write(1, "c")
    log.flush()
    log.discard(0, 2)
    log.write(4, "de")
    return log


def test_power_cut_leaves_what_was_flushed(log):
    log.save()
    assert log.disk.keep_flushed() == (0, 1, 0)
    assert log.content() == "ac------"


def test_a_machine_that_kept_its_power_has_written_all(log):
    log.save()
    log.disk.keep_all()
    assert log.content() == "ac--de--"


def test_a_write_that_was_not_logged_whole_has_not_happened(log):
    log.flush()
    log.write(6, "fg")
    log.save(without=1)
    log.disk.keep_all()
    assert log.content() == "ac--de--"


def test_a_write_past_the_cache_brings_all_before_it(log):
    log.write(7, "h", FUA)
    log.write(0, "x")
    log.save()
    assert log.disk.keep_flushed() == (0, 1, 0)
    assert log.content() == "ac--de-h"


def test_chance_decides_about_what_was_not_flushed(log):
    for sector in (2, 3, 6, 7):
        log.write(sector, "x")
    log.save()
    seen = set()
    for lost, content in cuts(log):
        if lost.undone <= 5:
            assert (lost.unflushed, content[:2]) == (5 - lost.undone, "ac")
            assert content.count("x") + (content[4:6] == "de") == lost.stayed
        seen.add(content)
    assert len(seen) > 10


def test_chance_decides_how_far_the_disk_had_come(log):
    log.save()
    seen = {(lost.undone, lost.unflushed, content) for lost, content in cuts(log)}
    # One write behind the flush, two before it; each of them stays or does not.
    flushed = {(0, 1, "ac------"), (0, 1, "ac--de--"), (1, 0, "ac------")}
    first = {(3, 1, "--------"), (3, 1, "ab------"), (4, 0, "--------")}
    assert seen - flushed - first == {(2, 2, c + d + "------") for c, d in ("--", "-c", "ab", "ac")}
    assert flushed | first < seen


def cuts(log):
    """Of the same machine, by chance."""
    image = log.disk.image.read_bytes()
    for seed in range(200):
        log.disk.image.write_bytes(image)
        lost = log.disk.keep_flushed(random.Random(seed))
        yield lost, log.content()
