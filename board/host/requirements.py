"""What the board takes of this host before it can boot."""

import ctypes
import errno
import os
import signal
import tempfile

from host.children import follow_parent
from host.kernel import bytes_for_registers
from host.problems import Unavailable

_libc = ctypes.CDLL(None, use_errno=True)

_PTRACE_TRACEME = 0
_PTRACE_GETREGSET = 0x4204
_NT_X86_XSTATE = 0x202
# More than any processor has.
_BUFFER_BYTES = 1 << 20


class _Extent(ctypes.Structure):
    """The C library's struct iovec."""

    _fields_ = [("begin", ctypes.c_void_p), ("length", ctypes.c_size_t)]


def check_host() -> None:
    """Raises Unavailable with what is missing."""
    bytes_here, room = register_bytes(), bytes_for_registers()
    if bytes_here > room:
        raise Unavailable(
            f"the registers of this processor take {bytes_here} bytes, and the board's kernel has"
            f" room for {room} (HOST_FP_SIZE in board/kernel/register-state.patch)"
        )
    folder = tempfile.gettempdir()
    if os.statvfs(folder).f_flag & os.ST_NOEXEC:
        raise Unavailable(f"{folder} is mounted noexec; TMPDIR can name another folder")


def register_bytes() -> int:
    """How much a user-mode kernel reads and writes as the registers of a process it traces.

    0 on processors that have only the oldest set, for which there is always room.
    """
    parent, child = os.getpid(), os.fork()
    if child == 0:
        follow_parent(parent, signal.SIGKILL)
        if _libc.ptrace(_PTRACE_TRACEME, 0, 0, 0) == 0:
            os.kill(os.getpid(), signal.SIGSTOP)
        os._exit(1)
    _, status = os.waitpid(child, os.WUNTRACED)
    if not os.WIFSTOPPED(status):
        raise Unavailable("this host does not let a process be traced (ptrace)")
    buffer = ctypes.create_string_buffer(_BUFFER_BYTES)
    extent = _Extent(ctypes.addressof(buffer), _BUFFER_BYTES)
    number = ctypes.c_void_p(_NT_X86_XSTATE)
    failed = _libc.ptrace(_PTRACE_GETREGSET, child, number, ctypes.byref(extent))
    os.kill(child, signal.SIGKILL)
    os.waitpid(child, 0)
    if failed and ctypes.get_errno() != errno.ENODEV:
        reason = os.strerror(ctypes.get_errno())
        raise Unavailable(f"the registers of a traced process cannot be read: {reason}")
    return 0 if failed else extent.length
