"""AC power goes and the battery is empty; AC power is back after so many seconds, if any.

"late" in their place is when all is unmounted.
"""

import sys
from pathlib import Path

from story import BOOT, await_full_server, await_the_end, client, follow

from guest.board import found

LATE = Path("/usr/lib/systemd/system-shutdown/late")

with follow() as journal:
    await_full_server(journal)
    if BOOT == 1:
        board = found()
        if sys.argv[1:] == ["late"]:
            LATE.write_text("#!/bin/sh\nPYTHONPATH=/board exec /board/commands/ac on\n")
            LATE.chmod(0o755)
        board.battery(False)
        board.ac(False)
        journal.wait_for_line("Battery empty", within=3)
        if sys.argv[1:] != ["late"]:
            board.plan(float(sys.argv[1]), ac=True, good=True)
        await_the_end()
    print(client("--status"), end="")
