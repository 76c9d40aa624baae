"""Battery tests of a second, one after the other, until power is cut; then a look at what is left.

The word is the number of seconds from the first request to the cut.
"""

import sys
import time

from story import BOOT, await_full_server, client, follow

from guest.board import found

with follow() as journal:
    await_full_server(journal)
    if BOOT == 1:
        found().plan(float(sys.argv[1]), ac=False, exhausted=True)
        found().plan(float(sys.argv[1]) + 5, ac=True, exhausted=False)
        while True:
            client("--run-test-now", "--test.duration=1")
            time.sleep(0.2)
    print(client("--status"), end="")
