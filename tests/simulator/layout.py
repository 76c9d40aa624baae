"""The layout of the world in the memory that it shares with its processes: that of world.h."""

import ctypes
import struct
from ctypes import c_char, c_int32, c_int64, c_ubyte, c_uint32, c_uint64

KINDS = "read write input output release field printed command sync saved call".split()
# The kinds whose events have a text, not a number.
TEXTS = tuple(KINDS.index(kind) for kind in ("command", "saved", "call"))
EVENT = struct.Struct("=qHHi24s")
NUMBER = struct.Struct("=q16x")


class Line(ctypes.Structure):
    _fields_ = [
        ("name", c_char * 32),
        ("consumer", c_char * 32),
        ("chip", c_int32),
        ("holder", c_int32),
        ("pull", c_int32),
        ("driven", c_int32),
        ("follows", c_int32),
        ("unused", c_int32),
    ]


class Trigger(ctypes.Structure):
    _fields_ = [
        ("call", c_char * 24),
        ("skips", c_uint32),
        ("times", c_uint32),
        ("is_after", c_int32),
        ("error", c_int32),
        ("signal", c_int32),
        ("line", c_int32),
        ("level", c_int32),
        ("process", c_int32),
        ("wall_step", c_int64),
        ("slept", c_int64),
    ]


class Charges(ctypes.Structure):
    _fields_ = [
        ("clock_read", c_int64),
        ("line_read", c_int64),
        ("short_sleep", c_int64),
        ("printed_line", c_int64),
        ("command_begin", c_int64),
        ("command_end", c_int64),
    ]


class World(ctypes.Structure):
    _fields_ = [
        ("size", c_uint64),
        ("now", c_int64),
        ("wall", c_int64),
        ("horizon", c_int64),
        ("events", c_uint64),
        ("most_events", c_uint64),
        ("command_lasts", c_int64),
        ("command_ends", c_int64),
        ("command_status", c_int32),
        ("command_owner", c_int32),
        ("command_holder", c_int32),
        ("stops_at_output", c_int32),
        ("has_calls", c_int32),
        ("triggers", c_int32),
        ("lines", c_int32),
        ("chips", c_int32),
        ("status_offset", c_int32),
        ("request_offset", c_int32),
        ("unrecorded", c_uint32),
        ("is_chip_there", c_ubyte * 16),
        ("charges", Charges),
        ("trigger", Trigger * 16),
        ("line", Line * 64),
    ]
