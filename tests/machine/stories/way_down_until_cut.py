"""A battery test, then the way down, until power is cut; then a look at what is left.

The word is the number of seconds from the shutdown command to the cut.
"""

import sys

from story import BOOT, await_full_server, await_the_end, client, follow

from guest.board import found

GRACE_SECONDS = 120

with follow() as journal:
    await_full_server(journal)
    if BOOT == 1:
        client("--run-test-now", "--test.duration=1")
        journal.wait_for_line("Test result: Battery is good", within=10)
        board = found()
        board.battery(False)
        board.ac(False)
        journal.wait_for_line("Battery empty", within=3)
        cut = GRACE_SECONDS + float(sys.argv[1])
        board.plan(cut, exhausted=True)
        board.plan(cut + 60, ac=True, good=True, exhausted=False)
        await_the_end()
    print(client("--status"), end="")
