"""The kernel's GPIO character device: who holds a line, and holding one."""

import fcntl
import os
import struct
from typing import NamedTuple, Optional

# Structures and numbers of <linux/gpio.h>, version 2 of the interface.
_GET_LINE_INFO = 0xC100B405
_GET_LINE = 0xC250B407
_GET_VALUES = 0xC010B40E
_SET_VALUES = 0xC010B40F

_LINE_INFO = struct.Struct("=32s32sIIQ160x16x")
_LINE_REQUEST = struct.Struct("=I252x32sQI20xIIQQ216xII20xi")
_LINE_VALUES = struct.Struct("=QQ")

_FLAG_USED = 1 << 0
_FLAG_INPUT = 1 << 2
_FLAG_OUTPUT = 1 << 3
_ATTRIBUTE_OUTPUT_VALUES = 2


class LineInfo(NamedTuple):
    name: str
    used: bool
    holder: Optional[str]  # the consumer label; None while nobody holds the line
    direction: str  # "input" or "output"; stays after the holder has gone


def line_info(device: str, offset: int) -> LineInfo:
    with open(device, "rb", buffering=0) as chip:
        answer = bytearray(_LINE_INFO.pack(b"", b"", offset, 0, 0))
        fcntl.ioctl(chip, _GET_LINE_INFO, answer)
    name, consumer, _, _, flags = _LINE_INFO.unpack(answer)
    used = bool(flags & _FLAG_USED)
    return LineInfo(
        name=_text(name),
        used=used,
        holder=_text(consumer) if used else None,
        direction="output" if flags & _FLAG_OUTPUT else "input",
    )


class HeldLine:
    """A line requested by this process; usable in a `with` statement.

    With `output` given the line is driven to that level, otherwise it is an input.
    """

    def __init__(self, device: str, offset: int, consumer: str, output: Optional[int] = None):
        is_output = output is not None
        request = bytearray(
            _LINE_REQUEST.pack(
                offset,
                consumer.encode(),
                _FLAG_OUTPUT if is_output else _FLAG_INPUT,
                1 if is_output else 0,  # attributes in use
                _ATTRIBUTE_OUTPUT_VALUES if is_output else 0,
                0,
                output or 0,
                1 if is_output else 0,  # the lines which the attribute is for, a bit mask
                1,  # lines requested
                0,
                -1,
            )
        )
        with open(device, "rb", buffering=0) as chip:
            fcntl.ioctl(chip, _GET_LINE, request)
        self._descriptor = _LINE_REQUEST.unpack(request)[-1]

    def read(self) -> int:
        values = bytearray(_LINE_VALUES.pack(0, 1))
        fcntl.ioctl(self._descriptor, _GET_VALUES, values)
        return _LINE_VALUES.unpack(values)[0] & 1

    def write(self, level: int) -> None:
        fcntl.ioctl(self._descriptor, _SET_VALUES, _LINE_VALUES.pack(level, 1))

    def release(self) -> None:
        if self._descriptor >= 0:
            os.close(self._descriptor)
            self._descriptor = -1

    def __enter__(self) -> "HeldLine":
        return self

    def __exit__(self, *_) -> None:
        self.release()


def _text(field: bytes) -> str:
    return field.split(b"\0", 1)[0].decode()
