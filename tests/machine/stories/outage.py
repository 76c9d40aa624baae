"""AC power goes and the battery is empty; AC power is back after so many seconds, if any."""

import sys

from story import BOOT, await_full_server, await_the_end, client, follow

from guest.board import found

with follow() as journal:
    await_full_server(journal)
    if BOOT == 1:
        board = found()
        for word in sys.argv[1:]:
            board.plan(float(word), ac=True, good=True)
        board.battery(False)
        board.ac(False)
        await_the_end()
    print(client("--status"), end="")
