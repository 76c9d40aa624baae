import re
import signal
import struct
from contextlib import ExitStack

import pytest

from host.problems import BoardFailure
from machine.device_tree import device_tree
from machine.emulator import Emulator, Product, command_of

LONG = 60


def test_one_that_cannot_begin_says_why(tmp_path):
    missing = tmp_path / "missing"
    product = Product("arm64", missing, None, missing)
    told = f"no machine can be begun: qemu-system-aarch64: could not load kernel '{missing}'"
    with pytest.raises(BoardFailure, match=re.escape(told) + "$"):
        Emulator(product, tmp_path, [], 0, realtime=True)


@pytest.fixture
def begun(tmp_path):
    """Begins a machine that has these instructions for a kernel."""
    with ExitStack() as ends:

        def begin(*words):
            kernel = tmp_path / "kernel"
            kernel.write_bytes(struct.pack(f"<{len(words)}I", *words))
            product = Product("arm64", kernel, None, device_tree(command_of("arm64"), tmp_path))
            emulator = Emulator(product, tmp_path, [], 0, realtime=True)
            ends.callback(emulator.cut)
            emulator.begin()
            return emulator

        yield begin


def calling_firmware(number):
    # mov w0, #number; movk w0, #0x8400, lsl #16; hvc #0
    return 0x52800000 | number << 5, 0x72B08000, 0xD4000002


@pytest.mark.parametrize("number, how", [(8, "poweroff"), (9, "reboot")])
def test_how_a_system_ends_itself(begun, number, how):
    emulator = begun(*calling_firmware(number))
    assert emulator.request(LONG) is None
    assert emulator.how == how


@pytest.mark.parametrize(
    "number, told",
    [
        (signal.SIGTERM, "the emulator was ended by a signal"),
        (signal.SIGKILL, "the emulator has ended by itself"),
    ],
)
def test_an_emulator_that_is_ended_is_no_machine_that_is_off(begun, number, told):
    emulator = begun(0x14000000)  # b .
    emulator._process.send_signal(number)
    with pytest.raises(RuntimeError, match=f"^{told}$"):
        emulator.request(LONG)
