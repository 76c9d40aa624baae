"""The names of the figures, and what is aimed at."""

from figures import Goal
from programs import BARE, DEFAULT, EMPTY, OVERDUE, SMALL, TRUE

WAKE_UPS = "wake-ups per minute"
CALLS = "system calls per second"
MEMORY = "resident memory"
CPU = "CPU time per minute, on the board"
OWN_CPU = "CPU time per minute, on this machine"
INSTRUCTIONS = "instructions per second, outside the kernel"
START = "start"
STATUS = "status client"
FALL = "AC power back after a falling battery line, worst"
SIZE = "executable, stripped"

# What neither the machine's speed nor other programs change.
COUNTED_GOALS = [
    Goal(WAKE_UPS, DEFAULT, 60),
    Goal(WAKE_UPS, SMALL, 60),
    Goal(CALLS, DEFAULT, 2),
    Goal(CALLS, SMALL, 2),
    Goal(CALLS, OVERDUE, 3),
    Goal(INSTRUCTIONS, DEFAULT, 1.2, times=BARE),
    Goal(MEMORY, SMALL, 2000),
]

GOALS = [
    *COUNTED_GOALS,
    Goal(MEMORY, DEFAULT, 1.05, times=BARE),
    Goal(CPU, DEFAULT, 1.2, times=BARE),
    Goal(OWN_CPU, DEFAULT, 1.2, times=BARE),
    Goal(START, DEFAULT, 2, times=EMPTY),
    Goal(STATUS, DEFAULT, 1.5, times=EMPTY),
    Goal(STATUS, SMALL, 1.5, times=TRUE),
    Goal(FALL, DEFAULT, 100),
]
