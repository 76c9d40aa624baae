"""What the kernel records of its own doing."""

import os
import re
from pathlib import Path

_TRACING = Path("/sys/kernel/tracing")


class Recording:
    """Records these events from its making until `close`; usable in a `with` statement.

    An event is named as its folder below `events`, by itself or with all of its group. Only one
    recording can be open at a time.
    """

    def __init__(self, *events: str, buffer_kilobytes: int = 16384):
        self._events = events
        self._rest = ""
        self.stop()
        write("trace_clock", "mono")
        write("options/overwrite", "0")
        write("buffer_size_kb", str(buffer_kilobytes))
        for event in events:
            write(f"events/{event}/enable", "1")
        self._pipe = os.open(_TRACING / "trace_pipe", os.O_RDONLY | os.O_NONBLOCK)
        self.clear()
        write("tracing_on", "1")

    def lines(self) -> list[str]:
        """Those that were completed since the last call. Raises if the kernel lost events."""
        complete: list[str] = []
        while chunk := self._read():
            *more, self._rest = (self._rest + chunk).split("\n")
            complete += more
        lost = re.search(r"dropped events: (\d+)", (_TRACING / "per_cpu/cpu0/stats").read_text())
        if int(lost[1]) > 0:
            raise RuntimeError(f"the trace lost {lost[1]} events: read it more often")
        return complete

    def clear(self) -> None:
        """Forgets what is recorded and not yet read."""
        write("trace", "")

    def stop(self) -> None:
        """Ends recording; what there is can still be read."""
        write("tracing_on", "0")

    def close(self) -> None:
        if self._pipe >= 0:
            for event in self._events:
                write(f"events/{event}/enable", "0")
            os.close(self._pipe)
            self._pipe = -1

    def __enter__(self) -> "Recording":
        return self

    def __exit__(self, *_) -> None:
        self.close()

    def _read(self) -> str:
        try:
            return os.read(self._pipe, 65536).decode()
        except BlockingIOError:
            return ""


def write(file: str, text: str) -> None:
    (_TRACING / file).write_text(text)
