"""Shows a story that was recorded: as text, and as files in the folder given.

Standard input has the record, as `story.py` prints it.
"""

import json
import sys
from pathlib import Path

from demo.picture import picture
from demo.record import Event, Record
from demo.timeline import timeline
from demo.waveform import waveform


def main() -> None:
    folder = Path(sys.argv[1])
    fields = json.load(sys.stdin)
    fields["events"] = [Event(**event) for event in fields["events"]]
    record = Record(**fields)
    folder.mkdir(parents=True, exist_ok=True)
    print("\n".join(timeline(record)))
    print()
    if record.is_machine:
        print("The machine's console, journal and lines: console, journal.json, happenings.json")
    elif record.coupled:
        print("The board is coupled: disconnecting AC power by BAT-T2 shows on PWR-IN.")
    else:
        print("Disconnecting AC power by BAT-T2 does not change PWR-IN here; with --coupled it does.")
    print()
    for name, text in (("lines.svg", picture(record)), ("lines.vcd", waveform(record))):
        (folder / name).write_text(text)
        print(folder / name)


if __name__ == "__main__":
    main()
