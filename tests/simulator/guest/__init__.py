"""The library for tests on the virtual board, with the simulated world in the place of its own.

What is not here is the board's.
"""

from pathlib import Path

__path__.append(str(Path(__file__).parents[3] / "board" / "guest"))
