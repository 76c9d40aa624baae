"""What the first process does on either board."""

import os
import traceback
from typing import Callable

from guest.system_calls import power_off


def be_first_process(main: Callable[[], None]) -> None:
    """Runs it; the machine goes down when it ends, however it does."""
    try:
        main()
    except BaseException:
        traceback.print_exc()
    finally:
        power_off()


def write_to_kernel_messages() -> None:
    """What goes wrong from here on shows among the kernel's messages."""
    messages = os.open("/dev/kmsg", os.O_WRONLY)
    os.dup2(messages, 1)
    os.dup2(messages, 2)
