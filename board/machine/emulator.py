"""One run of QEMU, from switching on to the end of the machine's power or of its system."""

import os
import random
import shlex
import signal
import subprocess
import time
from datetime import datetime, timezone
from pathlib import Path
from typing import NamedTuple, Optional

from host.children import follow_parent
from host.problems import BoardFailure
from machine.channels import Control, Ended, Mailbox, Pins
from machine.root import PROCESSORS

_MEGABYTES = 256
# One instruction takes 8 nanoseconds. While the processor is idle time skips to what is next.
_SKIPPING = ("-icount", "shift=3,sleep=off")
# Without addresses by chance the kernel need not hide itself at each call, which halves the time
# that a boot takes here; without the tests of its ciphers it takes a tenth less.
_PARAMETERS = (
    "console=ttyAMA0 root=/dev/vda ro loglevel=5 nokaslr cryptomgr.notests"
    " systemd.mask=e2scrub_reap.service"
)
_LOOK_EVERY_SECONDS = 0.002


class Product(NamedTuple):
    """What the machine boots; a user's own may stand for each."""

    architecture: str
    kernel: Path
    initial: Optional[Path]
    device_tree: Path


def command_of(architecture: str) -> list[str]:
    """The machine without what it boots."""
    processor = PROCESSORS[architecture]
    # Without its high memory the other processor has room for what PCI devices share.
    machine = "virt,highmem=off" if architecture == "armhf" else "virt"
    size = ("-m", str(_MEGABYTES))
    return [processor.emulator, "-M", machine, "-cpu", processor.model, *size, "-nic", "none"]


class Emulator:
    """Its files are in the folder; `wall` is what the machine's calendar shows at first.

    With a state that was saved it goes on where that was, which is a request that it has made.
    """

    def __init__(
        self,
        product: Product,
        folder: Path,
        drive: list[str],
        wall: float,
        realtime: bool,
        saved: Optional[Path] = None,
    ):
        sockets = {name: folder / name for name in ("control", "pins")}
        for path in sockets.values():
            path.unlink(missing_ok=True)
        self.mailbox = Mailbox(folder / "mailbox")
        self._stands = False
        self._is_saved = saved is not None
        base = datetime.fromtimestamp(wall, timezone.utc).strftime("%Y-%m-%dT%H:%M:%S")
        initial = [] if product.initial is None else ["-initrd", product.initial]
        command = [
            *command_of(product.architecture),
            *("-kernel", product.kernel, *initial, "-dtb", product.device_tree),
            *("-append", _PARAMETERS),
            *("-name", "machine,debug-threads=on", "-no-user-config", "-nodefaults"),
            *("-display", "none", "-monitor", "none"),
            *("-chardev", f"file,id=console,path={folder / 'console'},append=on"),
            *("-serial", "chardev:console"),
            *("-action", "panic=pause,reboot=shutdown,shutdown=poweroff"),
            *("-rtc", f"base={base},clock=vm"),
            *("-qmp", f"unix:{sockets['control']},server=on,wait=off"),
            *("-qtest", f"unix:{sockets['pins']},server=on,wait=off", "-qtest-log", "none"),
            *("-device", "pvpanic-pci"),
            "-object",
            f"memory-backend-file,id=shared,share=on,size={Mailbox.SIZE},"
            f"mem-path={folder / 'mailbox'}",
            # It is the one that keeps the memory: otherwise nothing could be saved.
            *("-device", "ivshmem-plain,memdev=shared,master=on"),
            *drive,
            *(() if realtime else _SKIPPING),
            *(() if saved is None else ("-incoming", f"exec:cat {shlex.quote(str(saved))}")),
            # Held until the inputs have their levels.
            "-S",
        ]
        parent = os.getpid()
        told = folder / "emulator-messages"
        with told.open("wb") as messages:
            self._process = subprocess.Popen(
                command,
                stdin=subprocess.DEVNULL,
                stdout=messages,
                stderr=messages,
                preexec_fn=lambda: follow_parent(parent, signal.SIGKILL),
            )
        try:
            self._control = Control(sockets["control"], lambda: self._process.poll() is None)
        except Ended:
            self.cut()
            raise BoardFailure(f"no machine can be begun: {told.read_text().strip()}") from None
        if not realtime:
            self._put_disk_first()
        self.pins = Pins(sockets["pins"], self._control)
        self.how: Optional[str] = None  # its system has ended itself: "poweroff", "reboot"

    def _put_disk_first(self) -> None:
        """Has all that the machine waits for done before it can begin to wait.

        Its time would skip on meanwhile, since nothing is due. So on one processor of the host
        all threads go ahead of the one that is the machine's processor.
        """
        tasks = Path(f"/proc/{self._process.pid}/task")
        processor = random.choice(sorted(os.sched_getaffinity(0)))
        for task in map(int, (path.name for path in tasks.iterdir())):
            os.sched_setaffinity(task, {processor})
            if "CPU" not in (tasks / str(task) / "comm").read_text():
                os.sched_setscheduler(task, os.SCHED_FIFO, os.sched_param(1))

    def begin(self) -> None:
        """Its inputs have their levels."""
        if self._is_saved:
            while self._control.do("query-status")["status"] == "inmigrate":
                time.sleep(_LOOK_EVERY_SECONDS)
            self._stands = True
        else:
            self._control.do("cont")

    def save(self, path: Path) -> None:
        """Its state while it waits for an answer; it does not go on after that."""
        self._control.do("migrate", uri=f"exec:cat >{shlex.quote(str(path))}")
        while (status := self._control.do("query-migrate")["status"]) != "completed":
            if status in ("failed", "cancelled"):
                raise RuntimeError(f"the machine cannot be saved: {status}")
            time.sleep(_LOOK_EVERY_SECONDS)

    def request(self, longest_seconds: float) -> Optional[dict]:
        """What the machine asks next; it does nothing until the answer. None: it has ended."""
        if self._stands:
            return self.mailbox.request()
        end = time.monotonic() + longest_seconds
        try:
            while time.monotonic() < end:
                event = self._control.event(_LOOK_EVERY_SECONDS) or {}
                if event.get("event") == "SHUTDOWN":
                    reason = event["data"]["reason"]
                    if reason == "host-signal":
                        raise RuntimeError("the emulator was ended by a signal")
                    self.how = "reboot" if reason == "guest-reset" else "poweroff"
                request = self.mailbox.request()
                if event.get("event") == "STOP" and self.how is None:
                    if request is None:
                        raise RuntimeError("the kernel has panicked")
                    self._stands = True
                    return request
                if request is not None and request["runs"]:
                    return request
        except Ended:
            self._process.wait()
            if self.how is None:
                raise RuntimeError("the emulator has ended by itself") from None
            return None
        raise TimeoutError

    def answer(self, content: dict) -> None:
        self.mailbox.answer(content)
        if self._stands:
            self._stands = False
            self._control.do("cont")

    def cut(self) -> None:
        """Ends it between two instructions."""
        self._process.kill()
        self._process.wait()
