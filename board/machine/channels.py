"""What a running QEMU is told and asked: its machine protocol, and qtest for what has pins."""

import json
import mmap
import socket
import time
from pathlib import Path
from typing import Callable, Optional

from guest.names import AT1, AT2, BAT_SW, PWR_IN
from machine.supply import PULLS

# The lines of the overlay on the controller, a PL061.
OFFSETS = {PWR_IN: 4, AT1: 5, AT2: 6, BAT_SW: 7}
_DATA, _DIRECTION = 0x090303FC, 0x09030400

_PATIENCE_SECONDS = 60


class Ended(Exception):
    """The emulator has gone."""


class _Channel:
    def __init__(self, path: Path, is_alive: Callable[[], bool] = lambda: True):
        self._socket = socket.socket(socket.AF_UNIX)
        end = time.monotonic() + _PATIENCE_SECONDS
        while True:
            try:
                self._socket.connect(str(path))
                break
            except (FileNotFoundError, ConnectionRefusedError):
                if time.monotonic() > end or not is_alive():
                    raise Ended from None
                time.sleep(0.01)
        self._rest = b""

    def fileno(self) -> int:
        return self._socket.fileno()

    def send(self, line: str) -> None:
        try:
            self._socket.sendall(f"{line}\n".encode())
        except OSError:
            raise Ended from None

    def line(self, seconds: Optional[float] = _PATIENCE_SECONDS) -> Optional[str]:
        """The next line, or None if none comes for so long."""
        self._socket.settimeout(seconds)
        while b"\n" not in self._rest:
            try:
                chunk = self._socket.recv(65536)
            except (TimeoutError, BlockingIOError):
                return None
            except OSError:
                chunk = b""
            if not chunk:
                raise Ended
            self._rest += chunk
        line, self._rest = self._rest.split(b"\n", 1)
        return line.decode()

    def close(self) -> None:
        self._socket.close()


class Control(_Channel):
    """QEMU's machine protocol (QMP)."""

    def __init__(self, path: Path, is_alive: Callable[[], bool]):
        super().__init__(path, is_alive)
        self._events: list[dict] = []
        self.line()
        self.do("qmp_capabilities")

    def do(self, command: str, **arguments):
        self.send(json.dumps({"execute": command, "arguments": arguments}))
        while True:
            answer = json.loads(self.line() or "{}")
            if "event" in answer:
                self._events.append(answer)
            elif "return" in answer:
                return answer["return"]
            else:
                raise RuntimeError(f"{command}: {answer}")

    def event(self, seconds: float) -> Optional[dict]:
        """The next thing that has happened, or None."""
        if self._events:
            return self._events.pop(0)
        line = self.line(seconds)
        return None if line is None else json.loads(line)


class Pins(_Channel):
    """The pins of the controller, from outside."""

    def __init__(self, path: Path, control: Control):
        super().__init__(path)
        devices = control.do("qom-list", path="/machine/unattached")
        (name,) = (device["name"] for device in devices if device["type"] == "child<pl061>")
        self._controller = f"/machine/unattached/{name}"

    def put(self, inputs: dict[str, int]) -> None:
        for name, level in inputs.items():
            pin = f"unnamed-gpio-in {OFFSETS[name]} {level}"
            self._ask(f"set_irq_in {self._controller} {pin}")

    def outputs(self) -> dict[str, int]:
        """Levels on the outputs: what is driven, or what pulls there."""
        data, direction = self._register(_DATA), self._register(_DIRECTION)

        def level(name: str) -> int:
            is_driven = direction >> OFFSETS[name] & 1
            return data >> OFFSETS[name] & 1 if is_driven else PULLS[name]

        return {name: level(name) for name in (AT2, BAT_SW)}

    def _register(self, address: int) -> int:
        return int(self._ask(f"readl {address:#x}").split()[1], 16)

    def _ask(self, command: str) -> str:
        self.send(command)
        answer = self.line() or ""
        if not answer.startswith("OK"):
            raise RuntimeError(f"{command}: {answer}")
        return answer


class Mailbox:
    """A piece of memory that the machine shares with us: what it asks, what we answer."""

    SIZE = 1 << 17
    _HALF = SIZE // 2
    # Ahead of either text: its number and its length. The number comes last, for the other side
    # may be looking.
    _HEAD = 8

    def __init__(self, path: Path):
        path.write_bytes(bytes(self.SIZE))
        with path.open("r+b") as file:
            self._memory = mmap.mmap(file.fileno(), self.SIZE)
        self._asked = memoryview(self._memory).cast("I")
        self._answered = self._asked[self._HALF // 4 :]

    def request(self) -> Optional[dict]:
        """The one that is not answered yet, or None."""
        if self._asked[0] == self._answered[0]:
            return None
        return json.loads(self._memory[self._HEAD : self._HEAD + self._asked[1]])

    def answer(self, content: dict) -> None:
        text = json.dumps(content).encode()
        begin = self._HALF + self._HEAD
        self._memory[begin : begin + len(text)] = text
        self._answered[1] = len(text)
        self._answered[0] = self._asked[0]
