"""One life as it was seen on the board, again in a simulated world.

LIVES_AS_SEEN is the file of the board's report of it, in JSON. Each step is done when it was then,
and time charges what the board's does.
"""

import json
import os
from pathlib import Path

import player
from on_board import IS_SIMULATED, Observer
from on_simulator import begin
from simulator import simulator
from world import Charges

__all__ = ["IS_SIMULATED", "Observer", "Player", "begin", "charges"]

_SEEN = json.loads(Path(os.environ["LIVES_AS_SEEN"]).read_text())


def charges() -> Charges:
    charges = Charges(*_SEEN["charges"])
    charged = simulator().shared.charges
    charged.clock_read, charged.line_read = charges.clock_read, charges.access
    charged.short_sleep, charged.printed_line = charges.short_sleep, charges.printed_line
    charged.command_begin = charges.before_note
    charged.command_end = charges.command - charges.before_note
    return charges


class Player(player.Player):
    def _wait(self, _: dict) -> None:
        until = _SEEN["moments"][self.played]
        while self.world.now < until:
            # As often as on the board the model learns how far it is from what is seen.
            self._pass_time(min(until, self.world.now + player.LONGEST_UNSEEN * player.SECOND))
            self._check()
