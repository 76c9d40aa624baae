"""What happened in a story, as it goes from the board to the host."""

from dataclasses import dataclass


@dataclass
class Event:
    time: int  # nanoseconds on the board's monotonic clock
    # "chapter", "outside", "daemon", "error", "client", "command", "system", or a line's name
    kind: str
    text: str  # for a line: its new level


@dataclass
class Record:
    begin: int  # when the daemon was started
    coupled: bool  # BAT-T2 has an effect on PWR-IN
    levels: dict[str, int]  # of each line, before the first event
    events: list[Event]  # in the order of their times
    is_machine: bool = False  # told by a whole machine, to the cut of its power and after it

    def seconds(self, time: int) -> float:
        """Since the daemon was started; 0 for what was before."""
        return max(0, time - self.begin) / 1e9

    def changes(self, line: str) -> list[tuple[float, int]]:
        """Times in seconds and levels of one line, its first level at the start included."""
        found = [(0.0, self.levels[line])]
        for event in self.events:
            if event.kind == line and int(event.text) != found[-1][1]:
                found.append((self.seconds(event.time), int(event.text)))
        return found
