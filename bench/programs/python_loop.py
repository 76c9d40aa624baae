"""The same in Python: python_loop.py DEVICE OFFSET"""

import fcntl
import struct
import sys
import time

# Of <linux/gpio.h>, version 1 of the interface.
GET_LINE_HANDLE = 0xC16CB403
GET_LINE_VALUES = 0xC040B408
LINE_REQUEST = struct.Struct("I252x I 64x 32s I i")
INPUT = 1

request = bytearray(LINE_REQUEST.pack(int(sys.argv[2]), INPUT, b"python-loop", 1, -1))
with open(sys.argv[1], "rb") as chip:
    fcntl.ioctl(chip, GET_LINE_HANDLE, request)
line = LINE_REQUEST.unpack(request)[-1]
values = bytearray(64)
while True:
    fcntl.ioctl(line, GET_LINE_VALUES, values)
    time.sleep(1)
